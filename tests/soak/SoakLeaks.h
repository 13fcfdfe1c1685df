#pragma once

#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <vector>

namespace Soak {

/// Leaks on purpose, one of each kind a period, which the script has to find.
///
/// What a process cannot keep beyond its end ends with it; semaphores and segments are removed here.
class SoakLeaks
{
public:
    /// @p kinds of `memory`, `descriptor`, `mapping`, `semaphore` and `segment`; others are not for this class.
    SoakLeaks(const QStringList &kinds, const QString &key);
    ~SoakLeaks();

    SoakLeaks(const SoakLeaks &) = delete;
    SoakLeaks &operator=(const SoakLeaks &) = delete;

    /// Leaks if @p period is another than the last time.
    void leak(quint64 period);

private:
    void leakSegment();

    QStringList m_kinds;
    QString m_key;
    quint64 m_period = 0;
    std::vector<int> m_semaphores;
    QStringList m_segments;
};

} // namespace Soak
