#pragma once

#include "service/ServiceLog.h"

#include <QElapsedTimer>

#include <chrono>

/// Lines of the log that others cause: no more than so many in a span of time, since whoever can cause them
/// must not fill the disk.
class BoundedLog
{
public:
    /// At most @p most lines in @p span, and one that says that more of them, about @p what, are left out.
    BoundedLog(int most, std::chrono::seconds span, const QString &what);

    void notice(const QString &text) { write(ServiceLog::Level::Notice, text); }
    void warning(const QString &text) { write(ServiceLog::Level::Warning, text); }
    void error(const QString &text) { write(ServiceLog::Level::Error, text); }

private:
    void write(ServiceLog::Level level, const QString &text);

    int m_most;
    std::chrono::seconds m_span;
    QString m_what;
    QElapsedTimer m_sinceFirst; ///< of those that are counted
    int m_count = 0;
};
