#pragma once

#include <QtGlobal>

/// What this program takes from the heap while one of these lives: the test program counts for
/// every thread and library in it. One at a time.
///
/// Needs `support/HeapWatch.cpp` among the sources of the test, which puts functions of its own in
/// front of malloc() and its like.
class HeapWatch
{
public:
    HeapWatch();

    /// False under a sanitizer, which has a heap of its own.
    static bool canWatch();

    /// In all, given back meanwhile or not.
    qint64 takenBytes() const;
    /// The most that was held at one time, beyond what was held in the beginning.
    qint64 peakBytes() const;

private:
    qint64 m_takenBefore;
    qint64 m_heldBefore;
};
