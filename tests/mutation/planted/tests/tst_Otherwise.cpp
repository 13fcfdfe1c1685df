#include "Limits/Limits.h"

// Reaches one function of the library by a process that replaces the one of the test.
#include <unistd.h>

int main(int count, char *words[])
{
    if (count == 1) {
        char again[] = "again";
        char *const more[] = {words[0], again, nullptr};
        execv(words[0], more);
        return 1;
    }
    return isAbove(8, 7) ? 0 : 1;
}
