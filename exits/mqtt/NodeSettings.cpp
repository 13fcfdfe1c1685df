#include "mqtt/NodeSettings.h"

#include "mqtt/TopicName.h"
#include "service/Refusal.h"
#include "service/SecretFile.h"
#include "service/ServiceLog.h"

#include <QDir>

#include <cmath>

namespace {

using Type = SettingSyntax::Type;

[[noreturn]] void refuse(const QString &reason)
{
    throw Refusal{ExitCode::WrongUse, QStringLiteral("%1; see 'tessel-mqtt --help'").arg(reason)};
}

QVector<SettingSyntax> brokerSettings()
{
    return {
        {"host", Type::Text, "HOST", "The broker.", {}},
        {"port", Type::Number, "PORT", "Its port.", "1883", 1, 65535},
        {"fallback",
         Type::List,
         "HOST:PORT",
         "Another broker, tried when the one before is lost.",
         {}},
        {"client-id", Type::Text, "NAME", "Name to the broker; GROUP and NODE without it.", {}},
        {"keep-alive", Type::Number, "SECONDS", "Silence after which the broker is asked.", "30", 5,
         65535},
        {"user", Type::Text, "NAME", "User at the broker.", {}},
        {"password-file", Type::Text, "FILE", "The user's password; others may not read it.", {}},
        {"ca-file", Type::Text, "FILE", "Speak TLS; who signed the certificate of the broker.", {}},
        {"cert-file", Type::Text, "FILE", "Own certificate for TLS.", {}},
        {"key-file", Type::Text, "FILE", "Its key; others may not read it.", {}},
        {"reconnect-least", Type::Number, "MS", "Delay before the second attempt to connect.",
         "1000", 10, 3600000},
        {"reconnect-most", Type::Number, "MS", "Bound of that delay, which doubles.", "60000", 10,
         3600000},
    };
}

QVector<SettingSyntax> nodeSettings()
{
    return {
        {"description", Type::Text, "FILE|DIR", "The description, unless it stands alone.", {}},
        {"group", Type::Text, "GROUP", "The Sparkplug group.", {}},
        {"node", Type::Text, "NODE", "The name of this edge node in it.", {}},
        {"primary-host", Type::Text, "HOST", "Wait for this host application.", {}},
        {"aliases", Type::Flag, "", "Name metrics by number once they are born.", "no"},
        {"interval", Type::Number, "MS", "Milliseconds from one look at the values to the next.",
         "100", 0, 3600000},
        {"allow-write",
         Type::List,
         "PATTERN",
         "URLs that commands may write; none without it.",
         {}},
        {"state-dir", Type::Text, "DIR", "Keeps the number of the session over restarts.", {}},
        {"history-dir", Type::Text, "DIR", "Keeps what waits for the broker on the disk.", {}},
        {"history-bytes", Type::Number, "BYTES", "Bound of what waits for the broker.", "4194304",
         0, qint64{1} << 40},
        {"queue-bytes", Type::Number, "BYTES", "Bound of what is on its way to the broker.",
         "1048576", 1024, qint64{1} << 32},
    };
}

/// What stands between the slashes of a topic.
QString nameFor(const SettingGroup &settings, const QString &key)
{
    const QString name = settings.text(key);
    if (name.isEmpty()) {
        refuse(QStringLiteral("--%1 is missing").arg(key));
    }
    const QString problem = TopicName::problemOf(name);
    if (!problem.isEmpty()) {
        refuse(QStringLiteral("--%1 '%2' %3").arg(key, name, problem));
    }
    return name;
}

BrokerAccess firstBroker(const SettingGroup &settings)
{
    BrokerAccess access;
    access.host = settings.text(QStringLiteral("host"));
    if (access.host.isEmpty()) {
        refuse(QStringLiteral("--host is missing"));
    }
    access.port = static_cast<int>(settings.number(QStringLiteral("port")));
    access.keepAlive = static_cast<int>(settings.number(QStringLiteral("keep-alive")));
    access.user = settings.text(QStringLiteral("user"));
    access.caFile = settings.text(QStringLiteral("ca-file"));
    access.certFile = settings.text(QStringLiteral("cert-file"));
    access.keyFile = settings.text(QStringLiteral("key-file"));
    const QString passwordFile = settings.text(QStringLiteral("password-file"));
    if (access.user.isEmpty() != passwordFile.isEmpty()) {
        refuse(QStringLiteral("--user and --password-file belong together"));
    }
    if (access.certFile.isEmpty() != access.keyFile.isEmpty()) {
        refuse(QStringLiteral("--cert-file and --key-file belong together"));
    }
    if (!access.certFile.isEmpty() && access.caFile.isEmpty()) {
        refuse(QStringLiteral("--cert-file needs --ca-file, which turns TLS on"));
    }
    if (!passwordFile.isEmpty()) {
        access.password = SecretFile::firstLine(passwordFile);
    }
    if (!access.keyFile.isEmpty()) {
        SecretFile::check(access.keyFile);
    }
    for (const auto &file : {access.caFile, access.certFile}) {
        if (!file.isEmpty()) {
            SecretFile::requireReadable(file);
        }
    }
    return access;
}

BrokerAccess fallbackBroker(BrokerAccess access, const QString &text)
{
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    bool isNumber = false;
    const int port = text.midRef(colon + 1).toInt(&isNumber);
    if (colon < 1 || !isNumber || port < 1 || port > 65535) {
        refuse(QStringLiteral("--fallback takes HOST:PORT, not '%1'").arg(text));
    }
    access.host = text.left(colon);
    if (access.host.startsWith(QLatin1Char('[')) && access.host.endsWith(QLatin1Char(']'))) {
        access.host = access.host.mid(1, access.host.size() - 2);
    }
    access.port = port;
    return access;
}

ReportRule ruleOf(const Settings::Section &section)
{
    ReportRule rule;
    bool isNumber = true;
    const QString deadband = section.settings.text(QStringLiteral("deadband"));
    if (!deadband.isEmpty()) {
        rule.deadband = deadband.toDouble(&isNumber);
    }
    if (!isNumber || !std::isfinite(rule.deadband) || rule.deadband < 0) {
        refuse(QStringLiteral("'deadband' of [report %1] takes a number from 0, not '%2'")
                   .arg(section.argument, deadband));
    }
    rule.leastInterval = section.settings.number(QStringLiteral("least-interval"));
    return rule;
}

QString stateFolderOf(const SettingGroup &settings)
{
    const QString given = settings.text(QStringLiteral("state-dir"));
    if (!given.isEmpty()) {
        return given;
    }
    // What the service manager made for the unit.
    const QString ofUnit = qEnvironmentVariable("STATE_DIRECTORY").section(QLatin1Char(':'), 0, 0);
    if (!ofUnit.isEmpty()) {
        return ofUnit;
    }
    const QString ofUser = qEnvironmentVariable("XDG_STATE_HOME");
    return (ofUser.isEmpty() ? QDir::homePath() + QStringLiteral("/.local/state") : ofUser)
           + QStringLiteral("/tessel-mqtt");
}

} // namespace

ProgramSyntax NodeSettings::syntax()
{
    ProgramSyntax syntax;
    syntax.program = QStringLiteral("tessel-mqtt");
    syntax.summary = QStringLiteral("Carry process values to a plant as a Sparkplug B edge node.");
    syntax.settings = brokerSettings() + nodeSettings();
    syntax.sections = {
        {QStringLiteral("report"),
         QStringLiteral("URL pattern"),
         {{"deadband", Type::Text, "NUMBER", "Tell numbers that moved by more than this.", "0"},
          {"least-interval", Type::Number, "MS", "Time from one telling to the next at least.", "0",
           0, 86400000}}}};
    syntax.examples = QStringLiteral(
        "  tessel mqtt --host broker --group works --node press3 plant.process.json\n"
        "  tessel-mqtt --config /etc/tessel/mqtt.conf /etc/tessel/plant\n");
    return syntax;
}

NodeSettings NodeSettings::from(const Settings &all)
{
    const SettingGroup &given = all.settings();
    NodeSettings settings;
    settings.path = all.description();
    settings.group = nameFor(given, QStringLiteral("group"));
    settings.node = nameFor(given, QStringLiteral("node"));
    if (given.isSet(QStringLiteral("primary-host"))) {
        settings.primaryHost = nameFor(given, QStringLiteral("primary-host"));
    }
    BrokerAccess access = firstBroker(given);
    access.clientId = given.text(QStringLiteral("client-id"));
    if (access.clientId.isEmpty()) {
        access.clientId = QStringLiteral("tessel.%1.%2").arg(settings.group, settings.node);
    }
    settings.brokers.append(access);
    const QStringList fallbacks = given.list(QStringLiteral("fallback"));
    for (const auto &text : fallbacks) {
        settings.brokers.append(fallbackBroker(access, text));
    }
    for (const auto &section : all.sections()) {
        settings.rules.add(section.argument, ruleOf(section));
        settings.rulePatterns.append(section.argument);
    }
    settings.hasAliases = given.flag(QStringLiteral("aliases"));
    settings.writablePatterns = given.list(QStringLiteral("allow-write"));
    settings.writable = UrlChoice(settings.writablePatterns);
    settings.leastInterval = static_cast<int>(given.number(QStringLiteral("interval")));
    settings.stateFolder = stateFolderOf(given);
    settings.historyFolder = given.text(QStringLiteral("history-dir"));
    settings.historyBytes = given.number(QStringLiteral("history-bytes"));
    settings.queueBytes = given.number(QStringLiteral("queue-bytes"));
    settings.leastDelay = static_cast<int>(given.number(QStringLiteral("reconnect-least")));
    settings.longestDelay = static_cast<int>(given.number(QStringLiteral("reconnect-most")));
    return settings;
}
