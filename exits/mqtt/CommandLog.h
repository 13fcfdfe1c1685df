#pragma once

#include "service/ServiceLog.h"

#include <QElapsedTimer>

/// What is told of commands that are refused: lines in the log, of which there are not more than 60 in a minute,
/// since whoever can send commands must not fill the disk.
class CommandLog
{
public:
    void warning(const QString &line) { write(ServiceLog::Level::Warning, line); }
    void error(const QString &line) { write(ServiceLog::Level::Error, line); }

    static constexpr int sm_most = 60;

private:
    void write(ServiceLog::Level level, const QString &line);

    QElapsedTimer m_sinceFirst; ///< of those that are counted
    int m_count = 0;
};
