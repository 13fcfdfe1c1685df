#include "text/StandardDescriptors.h"

#include <cerrno>
#include <initializer_list>

#include <fcntl.h>
#include <unistd.h>

void fillStandardDescriptors()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(descriptor, F_GETFD) >= 0 || errno != EBADF) {
            continue;
        }
        // The lowest free number is this one, as those below are taken by now. What reads cannot be written.
        const int direction = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
        static_cast<void>(::open("/dev/null", direction | O_CLOEXEC));
    }
}
