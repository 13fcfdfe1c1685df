#include "web/WebSettings.h"

#include "service/Refusal.h"
#include "service/SecretFile.h"
#include "web/HostName.h"

#include <QFile>

#include <algorithm>

#include <arpa/inet.h>

namespace {

using Type = SettingSyntax::Type;

/// Of what a request brings.
constexpr int bodyBytes = 1024 * 1024;
constexpr int shortestToken = 16;

QVector<SettingSyntax> servingSettings()
{
    constexpr qint64 mostConnections = 1000;
    constexpr qint64 mostSeconds = 3600;
    constexpr qint64 highestRate = 50;
    return {{"listen", Type::Text, "ADDRESS:PORT",
             "Where the page is; port 0 lets the system choose.", "127.0.0.1:9300"},
            {"description", Type::Text, "FILE|DIR",
             "The description, unless it stands alone on the command line.", ""},
            {"rate", Type::Number, "N", "Sets a second that a browser is told of at most.", "10", 1,
             highestRate},
            {"configuration", Type::Text, "FILE|DIR",
             "A configuration that is shown beside the values.", ""},
            {"connections", Type::Number, "N", "Connections at once; others are answered 503.",
             "64", 1, mostConnections},
            {"timeout", Type::Number, "SECONDS",
             "For a whole request, and for silence between two.", "30", 1, mostSeconds}};
}

QVector<SettingSyntax> guardingSettings()
{
    return {
        {"host", Type::List, "NAME",
         "Another name by which browsers may ask for the page; may be repeated.", ""},
        {"token-file", Type::Text, "FILE", "Holds the token with which values may be written.", ""},
        {"cert-file", Type::Text, "FILE", "Certificate with its chain, for https.", ""},
        {"key-file", Type::Text, "FILE", "The key of the certificate.", ""}};
}

[[noreturn]] void refuse(const QString &reason)
{
    throw Refusal{ExitCode::WrongUse, QStringLiteral("%1; see 'tessel-web --help'").arg(reason)};
}

QByteArray tokenIn(const QString &path)
{
    const QByteArray token = SecretFile::firstLineForOwner(path).toUtf8();
    const bool isVisible = std::all_of(token.cbegin(), token.cend(), [](char character) {
        return character > ' ' && character <= '~';
    });
    if (token.size() < shortestToken || !isVisible) {
        throw Refusal{ExitCode::InputOutputFile,
                      QStringLiteral("%1: its first line is no token of at least %2 visible ASCII "
                                     "characters; 'openssl rand -hex 16' prints one")
                          .arg(path, QString::number(shortestToken))};
    }
    return token;
}

QByteArray contentOf(const QString &path)
{
    constexpr qint64 mostBytes = qint64{1024} * 1024;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        throw Refusal{ExitCode::NoAccess,
                      QStringLiteral("%1: %2; the user of this program has to be able to read it")
                          .arg(path, file.errorString())};
    }
    return file.read(mostBytes);
}

HttpServer::Certificate certificateOf(const SettingGroup &given)
{
    const QString certificate = given.text(QStringLiteral("cert-file"));
    const QString key = given.text(QStringLiteral("key-file"));
    if (certificate.isEmpty() != key.isEmpty()) {
        refuse(QStringLiteral("--cert-file and --key-file belong together"));
    }
    if (certificate.isEmpty()) {
        return {};
    }
    SecretFile::requireReadable(certificate);
    SecretFile::check(key);
    return {contentOf(certificate), contentOf(key), certificate};
}

void checkHosts(const QStringList &hosts)
{
    for (const auto &host : hosts) {
        const QByteArray name = host.toLower().toUtf8();
        in6_addr six{};
        const bool isAddress = inet_pton(AF_INET6, name.constData(), &six) == 1;
        if (hostNameOf(isAddress ? '[' + name + ']' : name) != name) {
            refuse(QStringLiteral("--host takes a name or an address without port, not '%1'")
                       .arg(host));
        }
    }
}

/// Nobody can ask for the page by such a name.
bool isEveryAddress(const QString &host)
{
    const QByteArray name = host.toLatin1();
    in_addr four{};
    in6_addr six{};
    return host.isEmpty() || (inet_pton(AF_INET, name.constData(), &four) == 1 && four.s_addr == 0)
           || (inet_pton(AF_INET6, name.constData(), &six) == 1 && IN6_IS_ADDR_UNSPECIFIED(&six));
}

/// Whoever can reach another address than the machine's own must neither listen in nor write as he likes.
void checkReach(const WebSettings &settings)
{
    if (settings.address.isLoopback()) {
        return;
    }
    const QString place = settings.address.urlAuthority(settings.address.port());
    if (settings.certificate.isEmpty() || settings.token.isEmpty()) {
        refuse(QStringLiteral("other machines can reach %1: give --cert-file, --key-file and "
                              "--token-file as well, or listen on 127.0.0.1")
                   .arg(place));
    }
    if (isEveryAddress(settings.address.host()) && settings.hosts.isEmpty()) {
        refuse(QStringLiteral("%1 is all addresses of this machine: give the names by which "
                              "browsers ask for the page with --host")
                   .arg(place));
    }
}

} // namespace

QSet<QByteArray> WebSettings::hostNames() const
{
    QSet<QByteArray> names{"localhost"};
    if (address.isLoopback()) {
        names += {"127.0.0.1", "::1"};
    }
    const QStringList all = hosts + QStringList{address.host()};
    for (const auto &host : all) {
        names.insert(host.toLower().toUtf8());
    }
    names.remove({});
    return names;
}

ProgramSyntax WebSettings::syntax()
{
    ProgramSyntax syntax;
    syntax.program = QStringLiteral("tessel-web");
    syntax.summary = QStringLiteral("Serve the values of a region as a live page, and to programs "
                                    "as JSON.");
    syntax.settings = servingSettings() + guardingSettings();
    syntax.examples = QStringLiteral(
        "  tessel web plant.process.json\n"
        "  tessel web --listen 127.0.0.1:9300 --token-file plant.token plant.process.json\n"
        "  tessel web --config /etc/tessel/web/plant.conf\n");
    return syntax;
}

WebSettings WebSettings::from(const Settings &all)
{
    const SettingGroup &given = all.settings();
    WebSettings settings;
    settings.path = all.description();
    settings.address = ListenAddress::fromText(given.text(QStringLiteral("listen")));
    settings.hosts = given.list(QStringLiteral("host"));
    checkHosts(settings.hosts);
    settings.rate = static_cast<int>(given.number(QStringLiteral("rate")));
    settings.configuration = given.text(QStringLiteral("configuration"));
    settings.limits.connections = static_cast<int>(given.number(QStringLiteral("connections")));
    settings.limits.time = std::chrono::seconds(given.number(QStringLiteral("timeout")));
    settings.limits.body = bodyBytes;
    const QString tokenFile = given.text(QStringLiteral("token-file"));
    if (!tokenFile.isEmpty()) {
        settings.token = tokenIn(tokenFile);
    }
    settings.certificate = certificateOf(given);
    checkReach(settings);
    return settings;
}
