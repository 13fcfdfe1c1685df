#pragma once

#include "mqtt/NodeSettings.h"
#include "service/Service.h"

#include <QObject>
#include <QStringList>

#include <memory>

class HistoryRing;
class RegionFollower;

/// `tessel-mqtt` from its settings on: the node of now, and the one that the configuration makes of it when
/// it is read again. Make it before any other thread is there.
class NodeProgram : public QObject
{
    Q_OBJECT

public:
    /// @p words are those of the command line, which are read again with the configuration file.
    explicit NodeProgram(const QStringList &words);
    ~NodeProgram() override;

    /// Begins a session. Throws a Refusal.
    void start(const NodeSettings &settings);

private:
    /// What one reading of the configuration runs.
    struct Run;
    /// What a run may take over from the one before.
    struct Inheritance
    {
        std::shared_ptr<RegionFollower> follower; ///< null: it makes its own
        std::shared_ptr<HistoryRing> history;     ///< null: there is none of these settings
    };

    void run(const NodeSettings &settings, const Inheritance &inherited);
    void end();
    void reload();
    void takeNext();
    void runFormer(const NodeSettings &former, const Inheritance &inherited);

    QStringList m_words;
    Service m_service;
    std::unique_ptr<Run> m_run;
    NodeSettings m_next;
    std::shared_ptr<RegionFollower> m_nextFollower;
    bool m_isEnding = false;
};
