#include "commands/ConfigurationChange.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "commands/ConfigActions.h"
#include "configuration/ConfigurationFileUpdate.h"
#include "text/Failure.h"
#include "text/JsonText.h"
#include "text/Output.h"

namespace {

using Base = ConfigurationAndProcessDataBase;
using ConfigOption::isSet;

QString patternOf(const ConfigurationLeaf &leaf)
{
    return leaf.text(ConfigurationAndProcessDataDefinitions::getKeyDataPropertyRegularExpression());
}

/// True if the value is another one now, false if it stood there already.
bool isChange(Base::SetValueStatus status, const ConfigurationTarget &target)
{
    switch (status) {
    case Base::SetValueChanged: return true;
    case Base::SetValueUnchanged: return false;
    case Base::SetValueRegularExpressionMismatch:
        throw Failure{ExitCode::Refused,
                      QStringLiteral("'%1': the text does not match the regular expression %2")
                          .arg(target.url, patternOf(target.leaf))};
    case Base::SetValueTargetMissing:
        throw Failure{ExitCode::NotFound, QStringLiteral("'%1': no such element").arg(target.url)};
    case Base::SetValuePropertyPathInvalid: break;
    }
    throw Failure{
        ExitCode::Refused,
        QStringLiteral("'%1': the element has no value that could be set").arg(target.url)};
}

QString stampText(const ConfigurationStamp &stamp)
{
    return QStringLiteral("stamped %1: modifiedBy %2, lastModified %3")
        .arg(stamp.instanceName, stamp.modifiedBy, stamp.lastModified);
}

QString stampJson(const ConfigurationStamp &stamp)
{
    return jsonObject({{QStringLiteral("instance"), jsonString(stamp.instanceName)},
                       {QStringLiteral("modifiedBy"), jsonString(stamp.modifiedBy)},
                       {QStringLiteral("lastModified"), jsonString(stamp.lastModified)}});
}

QVector<QPair<QString, QString>> membersOf(const QString &url, bool isChanged,
                                           const QStringList &stamps)
{
    return {{QStringLiteral("url"), jsonString(url)},
            {QStringLiteral("changed"), jsonBool(isChanged)},
            {QStringLiteral("stamped"),
             QLatin1Char('[') + stamps.join(QStringLiteral(", ")) + QLatin1Char(']')}};
}

QString trialJson(const QString &url)
{
    auto members = membersOf(url, true, {});
    members.append({QStringLiteral("written"), jsonBool(false)});
    return jsonObject(members);
}

void printTrial(const CommandLine &line, const ConfigurationTarget &target, const QString &change,
                const ConfigurationFile &file)
{
    const QString text =
        isSet(line, ConfigOption::json)
            ? trialJson(target.url)
            : change + QStringLiteral("\nnot written to %1").arg(printable(file.entry.filePath()));
    writeOutput(text + QLatin1Char('\n'));
}

void printChange(const CommandLine &line, const QString &url, const QString &change,
                 const QList<ConfigurationStamp> &stamps)
{
    QStringList texts{change};
    QStringList objects;
    for (const auto &stamp : stamps) {
        texts.append(printable(stampText(stamp)));
        objects.append(stampJson(stamp));
    }
    if (isSet(line, ConfigOption::json)) {
        texts = QStringList(jsonObject(membersOf(url, true, objects)));
    }
    writeOutput(texts.join(QLatin1Char('\n')) + QLatin1Char('\n'));
}

void printUnchanged(const CommandLine &line, const QString &url)
{
    const QString text = isSet(line, ConfigOption::json)
                             ? jsonObject(membersOf(url, false, {}))
                             : printable(url) + QStringLiteral(": unchanged");
    writeOutput(text + QLatin1Char('\n'));
}

} // namespace

void checkNotReadOnly(const ConfigurationTarget &target)
{
    if (target.rules.isReadOnly) {
        throw Failure{ExitCode::Refused, QStringLiteral("'%1' is read-only").arg(target.url)};
    }
}

void applyChange(const CommandLine &line, const ConfigurationSource &source,
                 const ConfigurationTarget &target, const QVariant &value, const QString &change)
{
    const auto status = ConfigurationAndProcessDataTools::setConfigValueWithStatus(
        target.url, source.root(), value);
    if (!isChange(status, target)) {
        printUnchanged(line, target.url);
        return;
    }
    const ConfigurationFile &file = source.fileOf(target.leaf);
    if (isSet(line, ConfigOption::dryRun)) {
        requireUpdatable(file);
        printTrial(line, target, printable(change), file);
        return;
    }
    const QList<ConfigurationStamp> stamps = updateFile(source, file);
    if (stamps.isEmpty()) {
        writeErrorLine(
            QStringLiteral("tessel: note: %1 has no place for a stamp").arg(file.entry.filePath()));
    }
    printChange(line, target.url, printable(change), stamps);
}
