#include "mqtt/NodeProgram.h"

#include "mqtt/EdgeNode.h"
#include "service/Refusal.h"
#include "service/ServiceLog.h"

#include <QCoreApplication>

#include <utility>

namespace {

NodeSettings readSettings(const QStringList &words)
{
    return NodeSettings::from(Settings::fromCommandLine(NodeSettings::syntax(), words));
}

std::shared_ptr<RegionFollower> makeFollower(const NodeSettings &settings)
{
    return std::make_shared<RegionFollower>(settings.path, settings.leastInterval,
                                            settings.writablePatterns.isEmpty()
                                                ? RegionFollower::Use::Reading
                                                : RegionFollower::Use::Writing);
}

bool haveOneHistory(const NodeSettings &left, const NodeSettings &right)
{
    return left.historyFolder == right.historyFolder && left.historyBytes == right.historyBytes;
}

} // namespace

struct NodeProgram::Run
{
    Run(const NodeSettings &given, const Inheritance &inherited)
        : settings(given)
        , counter(settings.stateFolder, settings.group, settings.node)
        , follower(inherited.follower ? inherited.follower : makeFollower(given))
        , history(inherited.history ? inherited.history
                                    : std::make_shared<HistoryRing>(settings.historyBytes,
                                                                    settings.historyFolder))
        , node(*follower, settings, counter, *history)
    {
    }

    NodeSettings settings;
    BirthCounter counter;
    std::shared_ptr<RegionFollower> follower;
    std::shared_ptr<HistoryRing> history;
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
    run(settings, {});
}

void NodeProgram::run(const NodeSettings &settings, const Inheritance &inherited)
{
    m_run = std::make_unique<Run>(settings, inherited);
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
        const NodeSettings next = readSettings(m_words);
        // Before anything ends: a description may be broken as well.
        m_nextFollower = makeFollower(next);
        m_next = next;
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
    // What waits for the broker is not lost with the session. No two have one folder at a time.
    const Inheritance inherited{m_run->follower,
                                haveOneHistory(former, m_next) ? m_run->history : nullptr};
    m_run.reset();
    try {
        run(m_next, {std::exchange(m_nextFollower, nullptr), inherited.history});
    } catch (const Refusal &refusal) {
        ServiceLog::error(
            QStringLiteral("%1; the configuration stays as it was").arg(refusal.text));
        runFormer(former, inherited);
    }
}

void NodeProgram::runFormer(const NodeSettings &former, const Inheritance &inherited)
{
    try {
        run(former, inherited);
    } catch (const Refusal &refusal) {
        ServiceLog::error(refusal.text);
        QCoreApplication::exit(static_cast<int>(refusal.code));
    }
}
