#include "commands/Explanation.h"
#include "live/MirrorNote.h"
#include "live/RegionText.h"
#include "text/JsonText.h"
#include "values/StateName.h"
#include "values/ValueText.h"

#include <cmath>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Members = QVector<QPair<QString, QString>>;

QString hexOrNull(const QByteArray &bytes)
{
    return bytes.isEmpty() ? jsonNull() : jsonString(QString::fromLatin1(bytes.toHex()));
}

/// A number of the description; null if there is none.
QString numberOf(const Explanation &explanation, const QString &property)
{
    const QVariant value = explanation.leaf.element->getProperty(property);
    return value.isNull() || !value.canConvert<double>()
               ? jsonNull()
               : valueJson({value, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID});
}

Members valueMembers(const Explanation &explanation)
{
    const auto value = explanation.value();
    if (!value) {
        return {{QStringLiteral("value"), jsonNull()},
                {QStringLiteral("state"), jsonNull()},
                {QStringLiteral("stateName"), jsonNull()},
                {QStringLiteral("namurSignal"), jsonNull()}};
    }
    const ProcessDataDefinitions::ErrorTypes state = value->getErrorType();
    return {{QStringLiteral("value"), valueJson(*value)},
            {QStringLiteral("state"), QString::number(static_cast<int>(state))},
            {QStringLiteral("stateName"), jsonString(stateName(state))},
            {QStringLiteral("namurSignal"),
             jsonString(getNamurStateTypeAsString(stateMeaning(state).namurState).trimmed())}};
}

Members descriptionMembers(const Explanation &explanation, const DescriptionSource &description)
{
    const auto &place = explanation.place;
    return {
        {QStringLiteral("file"), jsonString(place ? place->file : description.path())},
        {QStringLiteral("line"), place ? QString::number(place->line) : jsonNull()},
        {QStringLiteral("column"), place ? QString::number(place->column) : jsonNull()},
        {QStringLiteral("type"), jsonString(explanation.slot.type)},
        {QStringLiteral("unit"), jsonString(explanation.unit())},
        {QStringLiteral("labelTextId"),
         jsonString(explanation.text(Definitions::getKeyDataPropertyLabelTextId()))},
        {QStringLiteral("minLimit"),
         numberOf(explanation, Definitions::getKeyDataPropertyMinLimit())},
        {QStringLiteral("maxLimit"),
         numberOf(explanation, Definitions::getKeyDataPropertyMaxLimit())},
        {QStringLiteral("viewStart"),
         numberOf(explanation, Definitions::getKeyDataPropertyViewStart())},
        {QStringLiteral("viewEnd"),
         numberOf(explanation, Definitions::getKeyDataPropertyViewEnd())},
        {QStringLiteral("readOnly"), jsonBool(explanation.slot.isReadOnly)},
    };
}

QString jsonOf(const BufferedSlot &buffer)
{
    const bool isKnown = buffer.value.getValue().isValid();
    const bool isFirst = buffer.buffer == RegionInspection::Buffer::First;
    return jsonObject({
        {QStringLiteral("buffer"),
         jsonString(isFirst ? QStringLiteral("first") : QStringLiteral("second"))},
        {QStringLiteral("isRead"), jsonBool(buffer.isRead)},
        {QStringLiteral("valueBytes"), hexOrNull(buffer.bytes.value)},
        {QStringLiteral("stateBytes"), hexOrNull(buffer.bytes.state)},
        {QStringLiteral("value"), isKnown ? valueJson(buffer.value) : jsonNull()},
        {QStringLiteral("stateName"),
         isKnown ? jsonString(stateName(buffer.value.getErrorType())) : jsonNull()},
    });
}

Members slotMembers(const Explanation &explanation)
{
    QStringList buffers;
    for (const auto &buffer : explanation.buffers) {
        buffers.append(jsonOf(buffer));
    }
    const LeafSlot &slot = explanation.slot;
    return {
        {QStringLiteral("offset"), QString::number(slot.offset)},
        {QStringLiteral("size"), QString::number(slot.size)},
        {QStringLiteral("relativeOffsetMetadata"), QString::number(slot.relativeOffsetMetadata)},
        {QStringLiteral("sizeMetadata"), QString::number(slot.sizeMetadata)},
        {QStringLiteral("bitmask"), QString::number(slot.bitmask)},
        {QStringLiteral("buffers"),
         QLatin1Char('[') + buffers.join(QStringLiteral(", ")) + QLatin1Char(']')},
    };
}

QString lockName(RegionLock::State state)
{
    switch (state) {
    case RegionLock::State::Unknown: break;
    case RegionLock::State::Free: return jsonString(QStringLiteral("free"));
    case RegionLock::State::Kept: return jsonString(QStringLiteral("kept"));
    case RegionLock::State::Held: return jsonString(QStringLiteral("held"));
    }
    return jsonNull();
}

Members regionMembers(const RegionLook &look, const DescriptionSource &description)
{
    const auto usual = look.usualInterval();
    return {
        {QStringLiteral("key"), jsonString(description.key())},
        {QStringLiteral("regionExists"), jsonBool(look.region().exists())},
        {QStringLiteral("doubleBuffer"), jsonBool(description.isDoubleBuffered())},
        {QStringLiteral("bufferSize"), QString::number(description.bufferSize())},
        {QStringLiteral("swapCount"), jsonNumber(look.swapCount())},
        {QStringLiteral("lastSwap"), jsonTime(look.lastSwap())},
        {QStringLiteral("usualInterval"),
         usual ? QString::number(static_cast<qint64>(std::llround(*usual))) : jsonNull()},
        {QStringLiteral("creatorPid"), jsonNumber(look.creator().pid)},
        {QStringLiteral("creatorAlive"), jsonFlag(look.creator().isAlive)},
        {QStringLiteral("lock"), lockName(look.lock().state)},
        {QStringLiteral("lockHolder"), jsonNumber(look.lock().holder)},
        {QStringLiteral("lockWaiters"), QString::number(look.lock().waiters)},
        {QStringLiteral("attached"), jsonUsers(look.users(), look.areUsersComplete())},
        {QStringLiteral("attachedComplete"), jsonBool(look.areUsersComplete())},
        {QStringLiteral("mirror"), mirrorJson(description.key())},
    };
}

Members suspicionMembers(const Explanation &explanation)
{
    QStringList objects;
    for (const auto &suspicion : explanation.suspicions) {
        objects.append(jsonObject({{QStringLiteral("name"), jsonString(suspicion.name)},
                                   {QStringLiteral("text"), jsonString(suspicion.text)}}));
    }
    return {{QStringLiteral("suspicions"),
             QLatin1Char('[') + objects.join(QStringLiteral(", ")) + QLatin1Char(']')}};
}

} // namespace

QString explanationJson(const Explanation &explanation, const RegionLook &look,
                        const DescriptionSource &description)
{
    const Members url{{QStringLiteral("url"), jsonString(explanation.leaf.url)}};
    return jsonObject(url + valueMembers(explanation) + suspicionMembers(explanation)
                      + descriptionMembers(explanation, description) + slotMembers(explanation)
                      + regionMembers(look, description));
}
