#include "mirror/MirrorCount.h"

void MirrorCount::addShown(const ReceivedSet &set, qint64 now)
{
    const bool isFollowing = set.source == m_source && set.attachment == m_attachment;
    if (isFollowing && set.generation > m_generation) {
        m_leftOut += set.generation - m_generation - 1;
    }
    m_source = set.source;
    m_attachment = set.attachment;
    m_generation = set.generation;
    ++m_sets;
    // A clock may say anything.
    m_lag = static_cast<qint64>(static_cast<quint64>(now) - static_cast<quint64>(set.timeStamp));
}
