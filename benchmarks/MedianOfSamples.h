#pragma once

#include <algorithm>
#include <array>
#include <chrono>

#include <benchmark/benchmark.h>

/// For what is too short to be timed with a loop around it: an iteration takes many samples and
/// counts their median, so that a sample in which the process was put aside does no harm.
namespace MedianOfSamples {

constexpr int count = 101;

using Clock = std::chrono::steady_clock;
using Samples = std::array<double, count>;

inline double secondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

inline double median(Samples &samples)
{
    std::nth_element(samples.begin(), samples.begin() + count / 2, samples.end());
    return samples[count / 2];
}

/// @p takeSample gives the seconds of one sample. For rows with manual time.
template <class TakeSample>
void measure(benchmark::State &state, const TakeSample &takeSample)
{
    Samples samples{};
    for (auto _ : state) {
        std::generate(samples.begin(), samples.end(), takeSample);
        state.SetIterationTime(median(samples));
    }
}

} // namespace MedianOfSamples
