#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "commands/ConfigurationExplanation.h"
#include "configuration/ConfigurationTable.h"
#include "live/RegionText.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/WrappedText.h"

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Members = QVector<QPair<QString, QString>>;

/// The shape of an array, as far as it has one.
struct ArrayShape
{
    int rows;
    std::optional<int> columns; ///< that are described
    QString problem;            ///< why it is no table; empty if it is one
};

ArrayShape shapeOf(const ConfigurationLeaf &leaf)
{
    const int rows = leaf.element->getValue().toList().size();
    try {
        const ConfigurationTable table(leaf);
        table.checkRowCount(rows);
        return {rows, table.columns().size(), {}};
    } catch (const Failure &failure) {
        return {rows, {}, failure.reason};
    }
}

bool isArray(const ConfigurationExplanation &explanation)
{
    return explanation.target.leaf.isArray();
}

QString headline(const ConfigurationExplanation &explanation)
{
    const ConfigurationTarget &target = explanation.target;
    QString text = target.url + QStringLiteral(": ");
    if (!explanation.hasValue()) {
        text += QStringLiteral("no value");
    } else if (!target.isCell && isArray(explanation)) {
        text += QStringLiteral("%1 rows").arg(shapeOf(target.leaf).rows);
    } else if (isNoInput(target.value, target.rules)) {
        text += QStringLiteral("nothing has been entered");
    } else {
        text += configurationText(target.value, target.rules) + QLatin1Char(' ') + target.unit;
    }
    return wrappedText({}, text.trimmed());
}

QString suspicionLines(const ConfigurationExplanation &explanation)
{
    QString lines;
    for (const auto &suspicion : explanation.suspicions) {
        lines += wrappedText(QStringLiteral("! "), suspicion.text);
    }
    return lines.isEmpty() ? QStringLiteral("nothing is suspicious\n") : lines;
}

QString limitsText(const ConfigurationValueRules &rules)
{
    const QString least = configurationText(rules.minLimit, rules);
    const QString most = configurationText(rules.maxLimit, rules);
    if (least.isEmpty() && most.isEmpty()) {
        return {};
    }
    return QStringLiteral("; limits ")
           + (least.isEmpty()  ? QStringLiteral("up to ") + most
              : most.isEmpty() ? QStringLiteral("from ") + least
                               : QStringLiteral("%1 to %2").arg(least, most));
}

QString typeText(const ConfigurationTarget &target)
{
    QString text = target.rules.type;
    if (!target.unit.isEmpty()) {
        text += QStringLiteral(" in ") + target.unit;
    }
    return text + limitsText(target.rules)
           + (target.rules.isReadOnly
                  ? QStringLiteral("; read-only: the library's writes do not look at that")
                  : QStringLiteral("; read-write"));
}

QString selectionText(const QStringList &entries)
{
    QStringList texts;
    for (int i = 0; i < entries.size(); ++i) {
        texts.append(QStringLiteral("%1 (%2)").arg(entries[i], QString::number(i)));
    }
    return texts.join(QStringLiteral(", "));
}

QString arrayText(const ConfigurationLeaf &leaf)
{
    const ArrayShape shape = shapeOf(leaf);
    QString text = QStringLiteral("%1 rows").arg(shape.rows);
    if (shape.columns) {
        text += QStringLiteral(" of %1 columns").arg(*shape.columns);
    }
    const auto property = [&leaf](const QString &key) { return leaf.element->getProperty(key); };
    if (property(Definitions::getKeyDataPropertyArrayHasDynamicRows()).toBool()) {
        const QVariant most = property(Definitions::getKeyDataPropertyArrayMaxRows());
        text += QStringLiteral("; from %1 rows")
                    .arg(property(Definitions::getKeyDataPropertyArrayMinRows()).toInt());
        text += most.isNull() ? QString() : QStringLiteral(" to %1").arg(most.toInt());
    } else {
        text += QStringLiteral("; their number is fixed");
    }
    return shape.problem.isEmpty() ? text : text + QStringLiteral("; no table: ") + shape.problem;
}

QString stampText(const FileStamp &stamp)
{
    if (!stamp.hasPlace) {
        return QStringLiteral("unknown, the file has no stamp");
    }
    if (stamp.lastModified.isEmpty() && stamp.modifiedBy.isEmpty()) {
        return QStringLiteral("never, says the stamp of its file");
    }
    QString text = QStringLiteral("its file by %1, at %2")
                       .arg(stamp.modifiedBy.isEmpty() ? QStringLiteral("nobody")
                                                       : stamp.modifiedBy,
                            stamp.lastModified);
    if (stamp.time().isValid()) {
        text += QStringLiteral(", %1 ago").arg(ageText(stamp.time()));
    }
    return text;
}

QString writeText(const CheckedWrite &write)
{
    QString text = statusText(write.status);
    if (!write.refusal.isEmpty()) {
        text += QStringLiteral("; tessel config set refuses it: ") + write.refusal;
    }
    return text;
}

QString writeFacts(const ConfigurationExplanation &explanation)
{
    QString facts = factLine(QStringLiteral("Write"), QStringLiteral("of the value that is there: ")
                                                          + writeText(explanation.presentWrite));
    if (const auto &asked = explanation.askedWrite) {
        facts += factLine({},
                          QStringLiteral("of '%1': ").arg(asked->text) + writeText(asked->write));
    }
    return facts;
}

/// Of a text that is not empty.
QString factIf(const QString &name, const QString &text)
{
    return text.isEmpty() ? QString() : factLine(name, text);
}

QString numberJson(const QVariant &number)
{
    return number.isValid() ? configurationJson(number) : jsonNull();
}

QString textOrNull(const QString &text)
{
    return text.isEmpty() ? jsonNull() : jsonString(text);
}

QString listJson(const QStringList &texts)
{
    return QLatin1Char('[') + texts.join(QStringLiteral(", ")) + QLatin1Char(']');
}

Members writeMembers(const CheckedWrite &write)
{
    return {{QStringLiteral("status"), QString::number(int(write.status))},
            {QStringLiteral("statusName"), jsonString(statusText(write.status))},
            {QStringLiteral("refusal"), textOrNull(write.refusal)}};
}

QString askedJson(const std::optional<AskedWrite> &asked)
{
    return asked ? jsonObject(Members{{QStringLiteral("value"), jsonString(asked->text)}}
                              + writeMembers(asked->write))
                 : jsonNull();
}

Members valueMembers(const ConfigurationExplanation &explanation)
{
    const ConfigurationTarget &target = explanation.target;
    QStringList suspicions;
    for (const auto &suspicion : explanation.suspicions) {
        suspicions.append(jsonObject({{QStringLiteral("name"), jsonString(suspicion.name)},
                                      {QStringLiteral("text"), jsonString(suspicion.text)}}));
    }
    return {{QStringLiteral("url"), jsonString(target.url)},
            {QStringLiteral("value"), configurationJson(target.value)},
            {QStringLiteral("selection"),
             target.rules.isSelector() ? jsonString(configurationText(target.value, target.rules))
                                       : jsonNull()},
            {QStringLiteral("suspicions"), listJson(suspicions)}};
}

Members descriptionMembers(const ConfigurationExplanation &explanation)
{
    const auto &place = explanation.place;
    const ConfigurationTarget &target = explanation.target;
    QStringList entries;
    for (const auto &entry : target.rules.selectionList) {
        entries.append(jsonString(entry));
    }
    return {
        {QStringLiteral("file"), jsonString(place ? place->file : explanation.file)},
        {QStringLiteral("line"), place ? QString::number(place->line) : jsonNull()},
        {QStringLiteral("column"), place ? QString::number(place->column) : jsonNull()},
        {QStringLiteral("type"), jsonString(target.rules.type)},
        {QStringLiteral("unit"), jsonString(target.unit)},
        {QStringLiteral("labelTextId"),
         jsonString(explanation.text(Definitions::getKeyDataPropertyLabelTextId()))},
        {QStringLiteral("minLimit"), numberJson(target.rules.minLimit)},
        {QStringLiteral("maxLimit"), numberJson(target.rules.maxLimit)},
        {QStringLiteral("regularExpression"),
         textOrNull(explanation.text(Definitions::getKeyDataPropertyRegularExpression()))},
        {QStringLiteral("selectionList"),
         target.rules.isSelector() ? listJson(entries) : jsonNull()},
        {QStringLiteral("readOnly"), jsonBool(target.rules.isReadOnly)},
    };
}

Members arrayMembers(const ConfigurationExplanation &explanation)
{
    const ConfigurationLeaf &leaf = explanation.target.leaf;
    const auto property = [&leaf](const QString &key) {
        const QVariant value = leaf.element->getProperty(key);
        return leaf.isArray() && !value.isNull() ? configurationJson(value) : jsonNull();
    };
    const auto shape = leaf.isArray() ? std::make_optional(shapeOf(leaf)) : std::nullopt;
    return {
        {QStringLiteral("rows"), shape ? QString::number(shape->rows) : jsonNull()},
        {QStringLiteral("columns"), shape ? jsonNumber(shape->columns) : jsonNull()},
        {QStringLiteral("dynamicRows"),
         property(Definitions::getKeyDataPropertyArrayHasDynamicRows())},
        {QStringLiteral("minRows"), property(Definitions::getKeyDataPropertyArrayMinRows())},
        {QStringLiteral("maxRows"), property(Definitions::getKeyDataPropertyArrayMaxRows())},
    };
}

} // namespace

QString screenOf(const ConfigurationExplanation &explanation)
{
    const ConfigurationTarget &target = explanation.target;
    const auto &place = explanation.place;
    QString text = headline(explanation) + suspicionLines(explanation) + QLatin1Char('\n');
    text += factLine(
        QStringLiteral("Description"),
        place ? QStringLiteral("%1:%2:%3")
                    .arg(place->file, QString::number(place->line), QString::number(place->column))
              : explanation.file);
    text += factLine(QStringLiteral("Type"), typeText(target));
    text += factIf(QStringLiteral("Label"),
                   explanation.text(Definitions::getKeyDataPropertyLabelTextId()));
    text += factIf(QStringLiteral("Pattern"),
                   explanation.text(Definitions::getKeyDataPropertyRegularExpression()));
    text += factIf(QStringLiteral("Selection"), selectionText(target.rules.selectionList));
    if (isArray(explanation)) {
        text += factLine(QStringLiteral("Array"), arrayText(target.leaf));
    }
    return text + factLine(QStringLiteral("Modified"), stampText(explanation.stamp))
           + writeFacts(explanation);
}

QString jsonOf(const ConfigurationExplanation &explanation)
{
    const FileStamp &stamp = explanation.stamp;
    const Members answers{
        {QStringLiteral("modifiedBy"), textOrNull(stamp.modifiedBy)},
        {QStringLiteral("lastModified"), textOrNull(stamp.lastModified)},
        {QStringLiteral("write"), jsonObject(writeMembers(explanation.presentWrite))},
        {QStringLiteral("writeAsked"), askedJson(explanation.askedWrite)},
    };
    return jsonObject(valueMembers(explanation) + descriptionMembers(explanation)
                      + arrayMembers(explanation) + answers);
}
