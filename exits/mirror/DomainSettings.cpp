#include "mirror/DomainSettings.h"

#include "service/Refusal.h"
#include "service/SecretFile.h"

#include <QDir>

#include <algorithm>
#include <memory>

#include <ifaddrs.h>
#include <net/if.h>

namespace {

constexpr qint64 mostDomain = 230;
constexpr qint64 leastPort = 1024;
/// The engine adds 250 for each domain, and some for each program.
constexpr qint64 mostPort = 65535 - 250 - 100;
/// Of a sample, in MiB. The engine counts bytes with 31 bits.
constexpr qint64 mostSampleLimit = 2047;
constexpr quint64 bytesOfMebibyte = 1 << 20;
/// Of a set or a layout, without its bytes or leaves: names, numbers, and what the engine puts around them.
constexpr quint64 mostBytesAround = 4096;
/// Of a leaf of a layout, without its texts: numbers, lengths, and what aligns them.
constexpr quint64 mostBytesAroundLeaf = 48;
/// Programs of one machine and domain that find each other without multicast.
constexpr qint64 mostParticipants = 31;

bool isLoopback(const QString &name)
{
    ifaddrs *first = nullptr;
    if (::getifaddrs(&first) != 0) {
        throw Refusal{ExitCode::Internal, QStringLiteral("getifaddrs: no list of interfaces")};
    }
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> all(first, &::freeifaddrs);
    QStringList names;
    for (const ifaddrs *one = first; one != nullptr; one = one->ifa_next) {
        if (name == QLatin1String(one->ifa_name)) {
            return (one->ifa_flags & IFF_LOOPBACK) != 0;
        }
        names.append(QLatin1String(one->ifa_name));
    }
    names.removeDuplicates();
    throw Refusal{ExitCode::NoAccess, QStringLiteral("interface '%1' is not there; there are %2")
                                          .arg(name, names.join(QLatin1String(", ")))};
}

QByteArray attribute(const QString &text)
{
    return text.toHtmlEscaped().toUtf8();
}

/// The folder by its whole path.
QString securityOf(const QString &folder)
{
    if (folder.isEmpty()) {
        return {};
    }
    const QDir directory(folder);
    if (QLatin1String(TESSEL_DDS_SECURITY).isEmpty()) {
        throw Refusal{ExitCode::WrongUse,
                      QStringLiteral("security: this program was built where the engine has no "
                                     "plugins for it")};
    }
    for (const char *const name :
         {"authority.pem", "identity.pem", "governance.p7s", "permissions.p7s"}) {
        SecretFile::requireReadable(directory.filePath(QLatin1String(name)));
    }
    SecretFile::check(directory.filePath(QStringLiteral("identity.key")));
    return directory.absolutePath();
}

QByteArray plugin(const char *name, const char *functions)
{
    return QByteArray("<Library path=\"") + TESSEL_DDS_SECURITY + "/libdds_security_" + name
           + ".so\" initFunction=\"init_" + functions + "\" finalizeFunction=\"finalize_"
           + functions + "\"/>";
}

QByteArray securityText(const QString &folder)
{
    if (folder.isEmpty()) {
        return {};
    }
    const QByteArray beginning = "file:" + folder.toHtmlEscaped().toUtf8() + '/';
    const auto file = [&](const char *element, const char *name) {
        return QByteArray("<") + element + '>' + beginning + name + "</" + element + '>';
    };
    return "<Security><Authentication>" + plugin("auth", "authentication")
           + file("IdentityCertificate", "identity.pem") + file("IdentityCA", "authority.pem")
           + file("PrivateKey", "identity.key") + "</Authentication><AccessControl>"
           + plugin("ac", "access_control") + file("PermissionsCA", "authority.pem")
           + file("Governance", "governance.p7s") + file("Permissions", "permissions.p7s")
           + "</AccessControl><Cryptographic>" + plugin("crypto", "crypto")
           + "</Cryptographic></Security>";
}

} // namespace

QVector<SettingSyntax> DomainSettings::syntax()
{
    using Type = SettingSyntax::Type;
    return {{QStringLiteral("domain"), Type::Number, QStringLiteral("N"),
             QStringLiteral("Number of the domain; only programs of one domain meet."),
             QStringLiteral("0"), 0, mostDomain},
            {QStringLiteral("interface"),
             Type::List,
             QStringLiteral("NAME"),
             QStringLiteral("Network interface; may be repeated (lo)."),
             {}},
            {QStringLiteral("peer"),
             Type::List,
             QStringLiteral("ADDRESS"),
             QStringLiteral("Look for others there and not by multicast; may be repeated."),
             {}},
            {QStringLiteral("port-base"), Type::Number, QStringLiteral("PORT"),
             QStringLiteral("Where the ports of domain 0 begin."), QStringLiteral("7400"),
             leastPort, mostPort},
            {QStringLiteral("sample-limit"), Type::Number, QStringLiteral("MIB"),
             QStringLiteral("Take no larger sample, whoever sends it; more if a description "
                            "here needs it."),
             QStringLiteral("32"), 1, mostSampleLimit},
            {QStringLiteral("security"),
             Type::Text,
             QStringLiteral("DIR"),
             QStringLiteral("Encrypt all, with the certificates and permissions in a folder."),
             {}},
            {QStringLiteral("insecure"),
             Type::Flag,
             {},
             QStringLiteral("Use interfaces on which others can read and write everything."),
             QStringLiteral("no")}};
}

DomainSettings DomainSettings::from(const SettingGroup &settings)
{
    DomainSettings domain;
    domain.domain = static_cast<quint32>(settings.number(QStringLiteral("domain")));
    domain.portBase = static_cast<quint16>(settings.number(QStringLiteral("port-base")));
    domain.sampleLimit = static_cast<quint64>(settings.number(QStringLiteral("sample-limit")))
                         * bytesOfMebibyte;
    domain.peers = settings.list(QStringLiteral("peer"));
    domain.interfaces = settings.list(QStringLiteral("interface"));
    domain.security = securityOf(settings.text(QStringLiteral("security")));
    if (domain.portBase + qint64{250} * domain.domain + 11 + 2 * mostParticipants > 65535) {
        throw Refusal{ExitCode::WrongUse,
                      QStringLiteral("the ports of domain %1 lie behind 65535; take a smaller "
                                     "'domain' or 'port-base'")
                          .arg(domain.domain)};
    }
    if (domain.interfaces.isEmpty()) {
        domain.interfaces.append(QStringLiteral("lo"));
    }
    for (const auto &name : std::as_const(domain.interfaces)) {
        if (!isLoopback(name) && domain.security.isEmpty()
            && !settings.flag(QStringLiteral("insecure"))) {
            throw Refusal{ExitCode::WrongUse,
                          QStringLiteral("on interface '%1' anybody can read the values and send "
                                         "others; give certificates with 'security', or, if that "
                                         "network is yours alone, say 'insecure = yes' or "
                                         "--insecure")
                              .arg(name)};
        }
    }
    return domain;
}

void DomainSettings::makeRoomFor(const SlotLayout &layout)
{
    quint64 ofLeaves = 0;
    for (const auto &leaf : layout.leaves) {
        ofLeaves += static_cast<quint64>(leaf.url.toUtf8().size() + leaf.type.toUtf8().size())
                    + mostBytesAroundLeaf;
    }
    const quint64 needed = std::max<quint64>(layout.bufferSize, ofLeaves) + mostBytesAround;
    sampleLimit = std::min(std::max(sampleLimit, needed), mostSampleLimit * bytesOfMebibyte);
}

QByteArray DomainSettings::engineText() const
{
    QByteArray interfaceList;
    bool isOnlyLoopback = true;
    for (const auto &name : interfaces) {
        interfaceList += "<NetworkInterface name=\"" + attribute(name) + "\"/>";
        isOnlyLoopback = isOnlyLoopback && isLoopback(name);
    }
    // The loopback has no multicast.
    const bool isUnicast = isOnlyLoopback || !peers.isEmpty();
    QByteArray peerList;
    for (const auto &peer : peers) {
        peerList += "<Peer address=\"" + attribute(peer) + "\"/>";
    }
    if (isOnlyLoopback && peers.isEmpty()) {
        peerList = "<Peer address=\"127.0.0.1\"/>";
    }
    // As much at a time as the loopback carries in one piece: each piece wakes the receiver. Elsewhere the engine's
    // own sizes, of which a lost packet takes less with it.
    const QByteArray sizes = isOnlyLoopback ? "<MaxMessageSize>65500B</MaxMessageSize>"
                                              "<FragmentSize>64000B</FragmentSize>"
                                            : "";
    // The lease of a participant is also how soon two find each other again after a cut.
    return "<CycloneDDS><Domain Id=\"any\"><General><Interfaces>" + interfaceList
           + "</Interfaces><AllowMulticast>" + (isUnicast ? "false" : "true") + "</AllowMulticast>"
           + sizes
           + "</General><Discovery><ParticipantIndex>auto</ParticipantIndex>"
             "<MaxAutoParticipantIndex>"
           + QByteArray::number(mostParticipants) + "</MaxAutoParticipantIndex><LeaseDuration>2s"
           + "</LeaseDuration><SPDPInterval>500ms</SPDPInterval><Ports><Base>"
           + QByteArray::number(portBase) + "</Base></Ports><Peers>" + peerList
           + "</Peers></Discovery>" + securityText(security) + "<Internal><MaxSampleSize>"
           + QByteArray::number(sampleLimit)
           + " B</MaxSampleSize><WriterLingerDuration>0s</WriterLingerDuration>"
             "</Internal></Domain></CycloneDDS>";
}
