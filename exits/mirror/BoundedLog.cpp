#include "mirror/BoundedLog.h"

#include "service/ServiceLog.h"

#include <utility>

bool BoundedLog::takeOne()
{
    if (!m_second.isValid() || m_second.hasExpired(sm_second)) {
        m_second.start();
        m_written = 0;
        if (m_leftOut > 0) {
            ServiceLog::warning(QStringLiteral("%1 more lines about writes were left out")
                                    .arg(std::exchange(m_leftOut, 0)));
        }
    }
    const bool isLeft = m_written < sm_mostInSecond;
    ++(isLeft ? m_written : m_leftOut);
    return isLeft;
}

void BoundedLog::notice(const QString &text)
{
    if (takeOne()) {
        ServiceLog::notice(text);
    }
}

void BoundedLog::warning(const QString &text)
{
    if (takeOne()) {
        ServiceLog::warning(text);
    }
}
