#pragma once

#include "mqtt/NodeSettings.h"
#include "service/Service.h"

#include <QObject>
#include <QStringList>

#include <memory>

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

    void end();
    void reload();
    void takeNext();
    void startFormer(const NodeSettings &former);

    QStringList m_words;
    Service m_service;
    std::unique_ptr<Run> m_run;
    NodeSettings m_next;
    bool m_isEnding = false;
};
