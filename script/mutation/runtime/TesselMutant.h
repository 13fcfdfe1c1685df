#pragma once

// What every file with small changes includes first. The number of the change that a process has to
// make comes from the environment, once; 0 is none of them.
extern "C" {
extern unsigned tesselMutantChosen;
bool tesselMutantAsked(unsigned number) noexcept;
}

/// Whether the change @p number is to be made. Costs a load and a comparison while none is.
inline bool tesselMutant(unsigned number) noexcept
{
    return __builtin_expect(tesselMutantChosen != 0, 0) && tesselMutantAsked(number);
}
