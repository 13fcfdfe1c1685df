#include "mqtt/CommandLog.h"

namespace {

constexpr qint64 minute = 60000;

} // namespace

void CommandLog::write(ServiceLog::Level level, const QString &line)
{
    if (!m_sinceFirst.isValid() || m_sinceFirst.hasExpired(minute)) {
        m_sinceFirst.start();
        m_count = 0;
    }
    ++m_count;
    if (m_count <= sm_most) {
        ServiceLog::write(level, line);
    } else if (m_count == sm_most + 1) {
        ServiceLog::warning(QStringLiteral(
            "more commands are refused than are told; no more of them for a minute"));
    }
}
