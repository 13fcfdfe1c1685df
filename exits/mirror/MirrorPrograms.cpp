#include "mirror/MirrorPrograms.h"

#include "mirror/DescriptionFetch.h"
#include "mirror/MirrorSettings.h"
#include "mirror/SetReceiver.h"
#include "mirror/StatusFile.h"
#include "mirror/StatusLook.h"
#include "service/Refusal.h"
#include "service/Service.h"
#include "service/ServiceLog.h"
#include "service/StandardOutput.h"

#include <QCoreApplication>

#include <functional>
#include <memory>
#include <vector>

namespace {

QString placeOf(const DomainSettings &domain)
{
    return QStringLiteral("domain %1 on %2")
        .arg(QString::number(domain.domain), domain.interfaces.join(QLatin1String(", ")));
}

UrlChoice commandsOf(const Settings &settings)
{
    return UrlChoice(settings.settings().list(QStringLiteral("commands")));
}

void warnOfUnused(const Settings &settings, const QStringList &urls)
{
    const QString unused = commandsOf(settings).findUnused(urls);
    if (!unused.isEmpty()) {
        ServiceLog::warning(QStringLiteral("--commands '%1' leads to no leaf; 'tessel get' shows "
                                           "their URLs")
                                .arg(unused));
    }
}

/// One in which what is mirrored here is no sample that is too large.
DomainSettings domainOf(const Settings &settings)
{
    DomainSettings domain = DomainSettings::from(settings.settings());
    const QStringList paths = descriptionsOf(settings);
    for (const auto &path : paths) {
        domain.makeRoomFor(SlotLayout::of(DescriptionTree::read(path)));
    }
    return domain;
}

/// Null if none is wanted.
std::unique_ptr<StatusFile> statusFileOf(const Settings &settings, const MirrorDomain &domain,
                                         StatusReaders::Of of, const StatusFile::Own &own)
{
    const QString path = settings.settings().text(QStringLiteral("status-file"));
    return path.isEmpty() ? nullptr : std::make_unique<StatusFile>(path, domain, of, own);
}

struct Sending
{
    explicit Sending(const Settings &settings) : domain(domainOf(settings))
    {
        const auto pace = paceOf(settings.settings());
        const auto use = settings.settings().flag(QStringLiteral("read-only"))
                             ? RegionFollower::Use::Reading
                             : RegionFollower::Use::Watching;
        const UrlChoice commands = commandsOf(settings);
        const QStringList paths = descriptionsOf(settings);
        for (const auto &path : paths) {
            sources.push_back(std::make_unique<SetSource>(path, domain, pace, use, commands));
            QObject::connect(sources.back().get(), &SetSource::failed, QCoreApplication::instance(),
                             &QCoreApplication::exit);
        }
        warnOfUnused(settings, urls());
        statusFile = statusFileOf(settings, domain, StatusReaders::Of::Receivers,
                                  [this](DomainStatus &seen) {
                                      for (const auto &source : sources) {
                                          source->tell(seen);
                                      }
                                  });
        status = QStringLiteral("sending %1 in %2")
                     .arg(paths.join(QLatin1String(", ")),
                          placeOf(DomainSettings::from(settings.settings())));
    }

    QStringList urls() const
    {
        QStringList all;
        for (const auto &source : sources) {
            for (const auto &leaf : source->region().leaves()) {
                all.append(leaf.url);
            }
        }
        return all;
    }

    MirrorDomain domain;
    std::vector<std::unique_ptr<SetSource>> sources;
    std::unique_ptr<StatusFile> statusFile;
    QString status;
};

std::vector<std::unique_ptr<MirroredRegion>> regionsOf(const Settings &settings)
{
    const SettingGroup &group = settings.settings();
    const QStringList paths = descriptionsOf(settings);
    const QString key = group.text(QStringLiteral("as"));
    if (!key.isEmpty() && paths.size() > 1) {
        throw Refusal{ExitCode::WrongUse,
                      QStringLiteral("'as' gives one key, and there are %1 descriptions; run a "
                                     "program for each")
                          .arg(paths.size())};
    }
    const UrlChoice withoutState(group.list(QStringLiteral("without-state")));
    std::vector<std::unique_ptr<MirroredRegion>> regions;
    for (const auto &path : paths) {
        // A second one of the same key finds the region of the first in use.
        regions.push_back(std::make_unique<MirroredRegion>(path, key, withoutState));
    }
    return regions;
}

struct Receiving
{
    explicit Receiving(const Settings &settings)
        : domain(domainOf(settings))
        , receiver(domain, regionsOf(settings),
                   static_cast<int>(settings.settings().number(QStringLiteral("watchdog"))),
                   settings.settings().list(QStringLiteral("commands")))
        , statusFile(statusFileOf(settings, domain, StatusReaders::Of::All, nullptr))
        , status(QStringLiteral("receiving %1 in %2")
                     .arg(descriptionsOf(settings).join(QLatin1String(", ")),
                          placeOf(DomainSettings::from(settings.settings()))))
    {
    }

    MirrorDomain domain;
    SetReceiver receiver;
    std::unique_ptr<StatusFile> statusFile;
    QString status;
};

/// The keys that say something else in @p next, but for @p adopted.
QStringList keysToRestart(const Settings &former, const Settings &next, const QString &adopted)
{
    QStringList keys;
    for (const auto &setting : former.settings().syntax()) {
        const bool isList = setting.type == SettingSyntax::Type::List;
        const bool isSame =
            isList ? former.settings().list(setting.name) == next.settings().list(setting.name)
                   : former.settings().text(setting.name) == next.settings().text(setting.name);
        if (!isSame && setting.name != adopted) {
            keys.append(setting.name);
        }
    }
    return keys;
}

/// The one setting that a program takes over while it runs.
struct Adoption
{
    QString key;
    std::function<void(int)> adopt;
};

/// Takes over what is adopted alone: another key would end regions or leases, which is a restart.
void serve(Service &service, const Settings &settings, const QStringList &words,
           const ProgramSyntax &syntax, const QString &status, const Adoption &adoption)
{
    QCoreApplication *const application = QCoreApplication::instance();
    ServiceLog::notice(status);
    service.tellReady(status);
    QObject::connect(&service, &Service::endAsked, application, &QCoreApplication::quit);
    QObject::connect(&service, &Service::reloadAsked, application, [=, &service] {
        try {
            const Settings next = Settings::fromCommandLine(syntax, words);
            adoption.adopt(static_cast<int>(next.settings().number(adoption.key)));
            const QStringList others = keysToRestart(settings, next, adoption.key);
            ServiceLog::notice(QStringLiteral("the configuration was read again"));
            if (!others.isEmpty()) {
                ServiceLog::warning(QStringLiteral("%1: is taken over by a restart alone")
                                        .arg(others.join(QLatin1String(", "))));
            }
        } catch (const Refusal &refusal) {
            ServiceLog::error(
                QStringLiteral("%1; the configuration stays as it was").arg(refusal.text));
        }
        service.tellReady(status);
    });
}

int fetch(const Settings &settings)
{
    const SettingGroup &group = settings.settings();
    const QString key = group.text(QStringLiteral("describe"));
    const QString folder = group.text(QStringLiteral("output"));
    if (key.isEmpty() || folder.isEmpty() || !settings.positionals().isEmpty()) {
        throw Refusal{ExitCode::WrongUse,
                      QStringLiteral("--describe KEY and -o DIR go together, without a "
                                     "description")};
    }
    // Before the threads of the engine, so that they leave the signals alone.
    const HeldEnd held;
    const MirrorDomain domain(DomainSettings::from(group));
    const auto patience = static_cast<int>(group.number(QStringLiteral("watchdog")));
    writeToStandardOutput(fetchDescription(domain, key, folder, patience, held).toUtf8() + '\n');
    return static_cast<int>(ExitCode::Done);
}

} // namespace

int runSend(const Settings &settings, const QStringList &words)
{
    // Before the threads of the engine, so that they leave the signals alone.
    Service service;
    Sending sending(settings);
    const Adoption adoption{QStringLiteral("silent-after"), [&sending](int milliseconds) {
                                for (const auto &source : sending.sources) {
                                    source->setSilentAfter(milliseconds);
                                }
                            }};
    serve(service, settings, words, sendSyntax(), sending.status, adoption);
    return QCoreApplication::exec();
}

int runReceive(const Settings &settings, const QStringList &words)
{
    const SettingGroup &group = settings.settings();
    if (group.isSet(QStringLiteral("describe")) || group.isSet(QStringLiteral("output"))) {
        return fetch(settings);
    }
    Service service;
    Receiving receiving(settings);
    QObject::connect(&receiving.receiver, &SetReceiver::layoutRefused, QCoreApplication::instance(),
                     [] { QCoreApplication::exit(static_cast<int>(ExitCode::LayoutMismatch)); });
    const Adoption adoption{QStringLiteral("watchdog"), [&receiving](int milliseconds) {
                                receiving.receiver.setWatchdog(milliseconds);
                            }};
    serve(service, settings, words, receiveSyntax(), receiving.status, adoption);
    return QCoreApplication::exec();
}

int runStatus(const Settings &settings, const QStringList &)
{
    const SettingGroup &group = settings.settings();
    const DomainSettings place = DomainSettings::from(group);
    const int moment = static_cast<int>(group.number(QStringLiteral("for")));
    const DomainStatus status = lookAround(MirrorDomain(place), moment);
    if (group.flag(QStringLiteral("json"))) {
        writeToStandardOutput(status.json());
    } else if (status.isEmpty()) {
        writeToStandardOutput(QStringLiteral("no source and no receiver in %1 within %2 ms\n")
                                  .arg(placeOf(place), QString::number(moment))
                                  .toUtf8());
    } else {
        writeToStandardOutput(status.text().toUtf8());
    }
    return static_cast<int>(ExitCode::Done);
}
