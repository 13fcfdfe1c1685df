#pragma once

#include <benchmark/benchmark.h>

/// Many values, each read or written once and then the next one. Every side of a row goes through
/// as many of them: a loop over one would read words that never change their place.
namespace InTurn {

constexpr int count = 1000;

/// Times @p access(number) with the numbers from 0 to count - 1, for each call.
template <class Access>
void measure(benchmark::State &state, const Access &access)
{
    while (state.KeepRunningBatch(count)) {
        for (int number = 0; number < count; ++number) {
            access(number);
        }
    }
}

} // namespace InTurn
