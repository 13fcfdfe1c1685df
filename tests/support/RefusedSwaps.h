#pragma once

#include <atomic>

/// While one lives, no set is published in this process: swaps fail, with the reason "No swap now.". The
/// program has to be made with RefusedSwaps.cpp.
class RefusedSwaps
{
public:
    RefusedSwaps() { sm_isAlive = true; }
    ~RefusedSwaps() { sm_isAlive = false; }

    RefusedSwaps(const RefusedSwaps &) = delete;
    RefusedSwaps &operator=(const RefusedSwaps &) = delete;

    static std::atomic<bool> sm_isAlive;
};
