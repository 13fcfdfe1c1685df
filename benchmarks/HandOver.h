#pragma once

#include "ForkedChild.h"
#include "MedianOfSamples.h"
#include "support/SharedRegion.h"

#include <atomic>
#include <chrono>
#include <new>
#include <optional>

#include <benchmark/benchmark.h>
#include <semaphore.h>

/// Times how long a number takes from this process to a child that polls for it.
///
/// The child notes the time at which it has the number, on the clock that both share, so that its
/// answer costs nothing. Between two samples it sleeps and disturbs no other row.
class HandOver
{
public:
    /// @p makeReader runs in the child and gives a function that returns the number it sees now.
    /// @p leave ends the child at end().
    template <class MakeReader>
    explicit HandOver(
        const MakeReader &makeReader, void (*leave)() = [] { _exit(0); })
        : m_mapping(sizeof(Shared))
        , m_shared(new (m_mapping.start()) Shared)
        , m_child([this, &makeReader, leave] {
            poll(makeReader());
            leave();
        })
    {
    }

    /// Whether the reader has come up; waits for it.
    bool isReady()
    {
        m_isReady = m_isReady || waitFor(m_shared->ready);
        return m_isReady;
    }

    /// Lets the reader end by itself. Without this the destructor kills it.
    void end()
    {
        m_shared->isOver.store(true, std::memory_order_relaxed);
        sem_post(&m_shared->begin);
        m_child.wait();
    }

    /// Seconds of the median of some hand-overs, numbers counting on. @p prepare(number) is not
    /// timed, @p publish(number) is. Nothing if the reader did not get one.
    template <class Prepare, class Publish>
    std::optional<double> sample(const Prepare &prepare, const Publish &publish)
    {
        sem_post(&m_shared->begin);
        MedianOfSamples::Samples times{};
        for (double &time : times) {
            ++m_number;
            prepare(m_number);
            const qint64 begin = now();
            publish(m_number);
            if (!waitUntilSeen(begin)) {
                return std::nullopt;
            }
            const qint64 taken = m_shared->seenAt.load(std::memory_order_relaxed) - begin;
            time = static_cast<double>(taken) * 1e-9;
        }
        return MedianOfSamples::median(times);
    }

private:
    static constexpr qint64 sm_longestWait = 5'000'000'000;

    struct Shared
    {
        Shared()
        {
            sem_init(&ready, 1, 0);
            sem_init(&begin, 1, 0);
        }

        alignas(64) std::atomic<quint64> seenNumber{0};
        std::atomic<qint64> seenAt{0};
        alignas(64) std::atomic<bool> isOver{false};
        sem_t ready;
        sem_t begin;
    };

    static qint64 now()
    {
        return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }

    static bool waitFor(sem_t &semaphore)
    {
        timespec until = {};
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_sec += 10;
        return sem_timedwait(&semaphore, &until) == 0;
    }

    template <class Reader>
    void poll(Reader &&read)
    {
        sem_post(&m_shared->ready);
        quint64 number = 0;
        while (sem_wait(&m_shared->begin) == 0 && !isOver()) {
            for (int i = 0; i < MedianOfSamples::count; ++i) {
                ++number;
                while (read() != number && !isOver()) { }
                m_shared->seenAt.store(now(), std::memory_order_relaxed);
                m_shared->seenNumber.store(number, std::memory_order_release);
            }
        }
    }

    bool isOver() const { return m_shared->isOver.load(std::memory_order_relaxed); }

    bool waitUntilSeen(qint64 begin) const
    {
        while (m_shared->seenNumber.load(std::memory_order_acquire) != m_number) {
            if (now() - begin > sm_longestWait) {
                return false;
            }
        }
        return true;
    }

    SharedMapping m_mapping;
    Shared *m_shared;
    ForkedChild m_child;
    quint64 m_number = 0;
    bool m_isReady = false;
};

/// A row of hand-overs: one median of many an iteration.
template <class Prepare, class Publish>
void measureHandOver(benchmark::State &state, HandOver &handOver, const Prepare &prepare,
                     const Publish &publish)
{
    if (!handOver.isReady()) {
        state.SkipWithError("the reading process did not come up");
        return;
    }
    for (auto _ : state) {
        const auto seconds = handOver.sample(prepare, publish);
        if (!seconds) {
            state.SkipWithError("the reading process did not get a value");
            return;
        }
        state.SetIterationTime(*seconds);
    }
}
