#pragma once

/// What becomes of files that are replaced.
enum class Disturbance { None, Fail, KillBefore, KillAfter };

/// Disturbs the last step of replacing files, rename(), as long as it lives: makes it fail, or ends
/// the process there as a power failure would. One at a time.
///
/// A program that links it calls this rename(), the toolkit and the library in it too.
class DisturbedRename
{
public:
    /// @p call tells which one is disturbed, counted from 1. 0: every one.
    DisturbedRename(Disturbance kind, int call);
    ~DisturbedRename();

    DisturbedRename(const DisturbedRename &) = delete;
    DisturbedRename &operator=(const DisturbedRename &) = delete;

    /// How many there were since the last object was made.
    static int calls();
};
