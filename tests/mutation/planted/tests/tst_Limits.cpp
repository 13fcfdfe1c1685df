#include "Limits/Limits.h"

#include <cstdlib>

// The bound of isBelow() is not looked at.
int main()
{
    const bool holds = isAbove(2, 1) && !isAbove(1, 1) && isBelow(1, 9) && !isBelow(9, 1)
                       && magnitude(-3) == 3 && magnitude(3) == 3 && magnitude(0) == 0
                       && countDown(5) == 2 && countDown(3) == 0 && second() == 8;
    return holds ? EXIT_SUCCESS : EXIT_FAILURE;
}
