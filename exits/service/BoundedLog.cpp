#include "service/BoundedLog.h"

BoundedLog::BoundedLog(int most, std::chrono::seconds span, const QString &what)
    : m_most(most)
    , m_span(span)
    , m_what(what)
{
}

void BoundedLog::write(ServiceLog::Level level, const QString &text)
{
    const std::chrono::milliseconds span = m_span;
    if (!m_sinceFirst.isValid() || m_sinceFirst.hasExpired(span.count())) {
        m_sinceFirst.start();
        m_count = 0;
    }
    ++m_count;
    if (m_count <= m_most) {
        ServiceLog::write(level, text);
    } else if (m_count == m_most + 1) {
        ServiceLog::warning(QStringLiteral("no more lines about %1 for %2 s: there are too many")
                                .arg(m_what)
                                .arg(m_span.count()));
    }
}
