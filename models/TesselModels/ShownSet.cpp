#include "Companion/StringConversionsDefinitions.h"
#include "ProcessData/ProcessValue.h"
#include "TesselModels/ShownSet_p.h"
#include "leaves/ShortestText.h"

#include <cstring>

namespace {

template <class Number>
quint64 bitsOf(Number number)
{
    quint64 bits = 0;
    std::memcpy(&bits, &number, sizeof number);
    return bits;
}

template <class Number>
Number fromBits(quint64 bits)
{
    Number number;
    std::memcpy(&number, &bits, sizeof number);
    return number;
}

quint64 bitsOf(const QVariant &value, QMetaType::Type content)
{
    switch (content) {
    case QMetaType::Float: return bitsOf(value.toFloat());
    case QMetaType::Double: return bitsOf(value.toDouble());
    case QMetaType::UInt:
    case QMetaType::ULongLong: return value.toULongLong();
    case QMetaType::QString: return 0;
    default: return static_cast<quint64>(value.toLongLong());
    }
}

} // namespace

ShownSet::ShownSet(std::shared_ptr<const SourceDescription> ofDescription)
    : description(std::move(ofDescription))
{
    if (description) {
        cells.resize(description->leaves.size());
        texts.resize(static_cast<std::size_t>(description->textCount));
    }
}

QVariant ShownSet::value(int leaf) const
{
    if (!isValid(leaf)) {
        return {};
    }
    const SourceLeaf &described = leafAt(leaf);
    const quint64 bits = cells[static_cast<std::size_t>(leaf)].bits;
    switch (described.content) {
    case QMetaType::Bool: return bits != 0;
    case QMetaType::Int: return static_cast<int>(bits);
    case QMetaType::UInt: return static_cast<uint>(bits);
    case QMetaType::LongLong: return static_cast<qlonglong>(bits);
    case QMetaType::ULongLong: return bits;
    case QMetaType::Float: return fromBits<float>(bits);
    case QMetaType::Double: return fromBits<double>(bits);
    case QMetaType::QString: return texts[static_cast<std::size_t>(described.textIndex)];
    default: return {};
    }
}

QString ShownSet::text(int leaf) const
{
    const QVariant content = value(leaf);
    if (!content.isValid()) {
        return ProcessValue(static_cast<ProcessDataDefinitions::ErrorTypes>(stateOf(leaf)))
            .toString();
    }
    switch (static_cast<QMetaType::Type>(content.userType())) {
    case QMetaType::Float:
    case QMetaType::Double: return shortestText(content);
    case QMetaType::Bool:
        return content.toBool() ? StringConversionsDefinitions::getBoolValueTrue()
                                : StringConversionsDefinitions::getBoolValueFalse();
    default: break;
    }
    const QString plain = content.toString();
    const QStringList &entries = leafAt(leaf).entries;
    return entries.isEmpty() ? plain : entries.value(content.toInt(), plain);
}

void ShownSet::decode(const QVector<ProcessDataValueSharedPointer> &elements,
                      const ProcessDataSnapshot &snapshot, const ProcessDataSnapshot &former,
                      const ShownSet *formerSet)
{
    generation = snapshot.getGeneration();
    isConnected = true;
    if (formerSet != nullptr) {
        cells = formerSet->cells;
        texts = formerSet->texts;
    }
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const auto &element = elements[static_cast<int>(i)];
        if (element && (formerSet == nullptr || snapshot.isDifferent(*element, former))) {
            decodeLeaf(i, *element, snapshot);
        }
    }
}

void ShownSet::decodeLeaf(std::size_t leaf, const ProcessDataValue &element,
                          const ProcessDataSnapshot &snapshot)
{
    ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    snapshot.getValue(element, value);
    const SourceLeaf &described = description->leaves[leaf];
    const bool hasContent = value.getErrorType()
                                == ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID
                            && value.getValue().isValid();
    ShownCell &cell = cells[leaf];
    cell.bits = hasContent ? bitsOf(value.getValue(), described.content) : 0;
    cell.state = hasContent
                         || value.getErrorType()
                                != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID
                     ? value.getErrorType()
                     : static_cast<qint32>(TesselModels::State::NoInput);
    if (described.textIndex >= 0) {
        texts[static_cast<std::size_t>(described.textIndex)] = hasContent
                                                                   ? value.getValue().toString()
                                                                   : QString();
    }
}

bool ShownSet::isSame(int leaf, const ShownSet &other) const
{
    const auto cell = static_cast<std::size_t>(leaf);
    const int textIndex = leafAt(leaf).textIndex;
    return cells[cell] == other.cells[cell]
           && (textIndex < 0
               || texts[static_cast<std::size_t>(textIndex)]
                      == other.texts[static_cast<std::size_t>(textIndex)]);
}

ShownChanges ShownSet::differencesTo(const ShownSet &other) const
{
    ShownChanges found;
    if (other.description != description) {
        return found;
    }
    for (int leaf = 0; leaf < static_cast<int>(cells.size()); ++leaf) {
        if (!isSame(leaf, other)) {
            found.leaves.push_back(leaf);
            found.isStateChanged = found.isStateChanged || stateOf(leaf) != other.stateOf(leaf);
        }
    }
    return found;
}

void ShownSet::compareWith(const ShownSet &shownBefore)
{
    changes = differencesTo(shownBefore);
    m_comparedWith = &shownBefore;
}

ShownChanges ShownSet::changesSince(const ShownSet &former) const
{
    return m_comparedWith == &former ? changes : differencesTo(former);
}
