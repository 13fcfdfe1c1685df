#pragma once

#include <QRandomGenerator>

#include <algorithm>

/// How long to wait before the next attempt: twice as long each time, up to a bound. Of that time a random
/// part, between half and the whole, so that the nodes of a plant do not all come back at once.
class Backoff
{
public:
    /// Milliseconds.
    Backoff(int least, int most) : m_least(least), m_most(std::max(least, most)), m_next(least) { }

    int next()
    {
        const int bound = m_next;
        m_next = std::min(m_most, m_next > m_most / 2 ? m_most : m_next * 2);
        return bound / 2 + QRandomGenerator::global()->bounded(bound - bound / 2 + 1);
    }
    void reset() { m_next = m_least; }

private:
    int m_least;
    int m_most;
    int m_next;
};
