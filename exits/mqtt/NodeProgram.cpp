#include "mqtt/NodeProgram.h"

#include "mqtt/EdgeNode.h"
#include "service/Refusal.h"
#include "service/ServiceLog.h"

#include <QCoreApplication>

namespace {

NodeSettings readSettings(const QStringList &words)
{
    return NodeSettings::from(Settings::fromCommandLine(NodeSettings::syntax(), words));
}

} // namespace

struct NodeProgram::Run
{
    explicit Run(const NodeSettings &given)
        : settings(given)
        , counter(settings.stateFolder, settings.group, settings.node)
        , follower(settings.path, settings.leastInterval,
                   settings.writablePatterns.isEmpty() ? RegionFollower::Use::Reading
                                                       : RegionFollower::Use::Writing)
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

NodeProgram::NodeProgram(const QStringList &words) : m_words(words)
{
    connect(&m_service, &Service::endAsked, this, &NodeProgram::end);
    connect(&m_service, &Service::reloadAsked, this, &NodeProgram::reload);
}

NodeProgram::~NodeProgram() = default;

void NodeProgram::start(const NodeSettings &settings)
{
    m_run = std::make_unique<Run>(settings);
    connect(&m_run->node, &EdgeNode::finished, this, &NodeProgram::takeNext, Qt::QueuedConnection);
    connect(&m_run->node, &EdgeNode::statusChanged, &m_service, &Service::tellStatus);
    m_run->node.start();
    m_service.tellReady(QStringLiteral("connecting"));
}

void NodeProgram::end()
{
    m_isEnding = true;
    m_run->node.finish();
}

void NodeProgram::reload()
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

void NodeProgram::takeNext()
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

void NodeProgram::startFormer(const NodeSettings &former)
{
    try {
        start(former);
    } catch (const Refusal &refusal) {
        ServiceLog::error(refusal.text);
        QCoreApplication::exit(static_cast<int>(refusal.code));
    }
}
