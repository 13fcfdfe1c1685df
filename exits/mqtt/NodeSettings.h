#pragma once

#include "mqtt/BrokerConnection.h"
#include "mqtt/ReportRules.h"
#include "region/UrlChoice.h"
#include "service/Settings.h"

/// What an edge node was told, checked.
struct NodeSettings
{
    QString path; ///< of the description
    QString group;
    QString node;
    /// The same access to each of the brokers, which are tried in turn.
    QVector<BrokerAccess> brokers;
    QString primaryHost; ///< empty: none is waited for
    bool hasAliases = false;
    ReportRules rules;
    QStringList rulePatterns;
    UrlChoice writable; ///< what commands may write
    QStringList writablePatterns;
    int leastInterval = 0;
    QString stateFolder;
    QString historyFolder; ///< empty: what waits to be sent is kept in memory
    qint64 historyBytes = 0;
    qint64 queueBytes = 0;
    int leastDelay = 0; ///< milliseconds between two attempts to connect
    int longestDelay = 0;

    static ProgramSyntax syntax();
    /// Throws a Refusal that names what makes no sense, or a file that is not to be used.
    static NodeSettings from(const Settings &all);
};
