#include "mqtt/EdgeNode.h"
#include "service/Refusal.h"
#include "service/Service.h"
#include "service/ServiceLog.h"

#include <QCoreApplication>
#include <QTextCodec>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>

namespace {

/// What one reading of the configuration runs.
struct Run
{
    explicit Run(const NodeSettings &given)
        : settings(given)
        , counter(settings.stateFolder, settings.group, settings.node)
        , follower(settings.path, settings.leastInterval)
        , history(settings.historyBytes, settings.historyFolder)
        , node(follower, settings, counter, history)
    {
    }

    NodeSettings settings;
    BirthCounter counter;
    RegionFollower follower;
    HistoryRing history;
    EdgeNode node;
};

NodeSettings readSettings(const QStringList &words)
{
    return NodeSettings::from(Settings::fromCommandLine(NodeSettings::syntax(), words));
}

/// The node of now, and the one that the configuration makes of it when it is read again.
class Program : public QObject
{
public:
    explicit Program(const QStringList &words) : m_words(words)
    {
        connect(&m_service, &Service::endAsked, this, &Program::end);
        connect(&m_service, &Service::reloadAsked, this, &Program::reload);
    }

    void start(const NodeSettings &settings)
    {
        m_run = std::make_unique<Run>(settings);
        connect(&m_run->node, &EdgeNode::finished, this, &Program::takeNext, Qt::QueuedConnection);
        connect(&m_run->node, &EdgeNode::statusChanged, &m_service, &Service::tellStatus);
        m_run->node.start();
        m_service.tellReady(QStringLiteral("connecting"));
    }

private:
    void end()
    {
        m_isEnding = true;
        m_run->node.finish();
    }

    void reload()
    {
        try {
            m_next = readSettings(m_words);
        } catch (const Refusal &refusal) {
            ServiceLog::error(
                QStringLiteral("%1; the configuration stays as it was").arg(refusal.text));
            m_service.tellReady(QStringLiteral("the configuration stays as it was"));
            return;
        }
        ServiceLog::notice(QStringLiteral("the configuration is read again; a new session begins"));
        m_run->node.finish();
    }

    void takeNext()
    {
        if (m_isEnding) {
            QCoreApplication::exit(static_cast<int>(ExitCode::Done));
            return;
        }
        const NodeSettings former = m_run->settings;
        m_run.reset();
        try {
            start(m_next);
        } catch (const Refusal &refusal) {
            ServiceLog::error(
                QStringLiteral("%1; the configuration stays as it was").arg(refusal.text));
            startFormer(former);
        }
    }

    void startFormer(const NodeSettings &former)
    {
        try {
            start(former);
        } catch (const Refusal &refusal) {
            ServiceLog::error(refusal.text);
            QCoreApplication::exit(static_cast<int>(refusal.code));
        }
    }

    QStringList m_words;
    Service m_service;
    std::unique_ptr<Run> m_run;
    NodeSettings m_next;
    bool m_isEnding = false;
};

QStringList typedWords(int argc, char *argv[])
{
    QStringList words;
    for (int i = 1; i < argc; ++i) {
        words.append(QString::fromUtf8(argv[i]));
    }
    return words;
}

int run(const QStringList &words)
{
    const Settings settings = Settings::fromCommandLine(NodeSettings::syntax(), words);
    if (settings.isHelpAsked() || settings.isVersionAsked()) {
        const QString text = settings.isHelpAsked()
                                 ? Settings::helpText(NodeSettings::syntax())
                                 : QStringLiteral("tessel-mqtt " TESSEL_VERSION "\n");
        std::fputs(text.toUtf8().constData(), stdout);
        if (std::fflush(stdout) != 0) {
            throw Refusal{ExitCode::InputOutputFile,
                          QStringLiteral("standard output: %1").arg(qt_error_string(errno))};
        }
        return static_cast<int>(ExitCode::Done);
    }
    Program program(words);
    program.start(NodeSettings::from(settings));
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    // Whoever has gone is told by the write.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    ServiceLog::start(QStringLiteral("tessel-mqtt"));
    try {
        return run(typedWords(argc, argv));
    } catch (const Refusal &refusal) {
        ServiceLog::error(refusal.text);
        return static_cast<int>(refusal.code);
    } catch (const std::exception &exception) {
        ServiceLog::error(
            QStringLiteral("internal: %1").arg(QString::fromLocal8Bit(exception.what())));
    }
    return static_cast<int>(ExitCode::Internal);
}
