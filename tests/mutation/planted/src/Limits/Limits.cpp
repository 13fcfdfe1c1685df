#include "Limits/Limits.h"

#include <tuple>

bool isAbove(int value, int limit)
{
    return value > limit;
}

bool isBelow(int value, int limit)
{
    return value < limit;
}

int magnitude(int value)
{
    return value < 0 ? -value : value;
}

int countDown(int from)
{
    int steps = from;
    while (from > 3) {
        from -= 1;
    }
    return steps - from;
}

int second()
{
    const auto pair = std::make_tuple(7, 8);
    return std::get<1>(pair);
}
