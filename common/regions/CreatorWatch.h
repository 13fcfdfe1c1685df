#pragma once

#include <QtGlobal>

#include <chrono>

/// Whether the values of an attached region have somebody behind them. The region of a creator that has died
/// counts as left until somebody publishes into it again, and then until nobody has for a minute: a publisher that
/// is slower than the looks would otherwise have it come and go at each set.
class CreatorWatch
{
public:
    using Time = std::chrono::steady_clock::time_point;

    /// A region that was just attached, with the number of its swaps.
    void start(bool isCreatorDead, quint64 swapCount, Time now);
    /// What a look found, one each second or so.
    void look(bool isCreatorDead, quint64 swapCount, Time now);
    /// Woken by a set. The first time it is the one that was there before.
    void handleSet(bool isCreatorDead, quint64 swapCount, Time now);

    bool isLeft() const { return m_isLeft; }

private:
    void goOn(bool isCreatorDead);

    bool m_isLeft = false;
    bool m_hasOtherPublisher = false; ///< than its creator, who has died
    quint64 m_swapCount = 0;          ///< at the last look
    Time m_lastSet;                   ///< when that was another one than before
};
