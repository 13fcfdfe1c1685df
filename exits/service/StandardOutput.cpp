#include "service/StandardOutput.h"

#include "service/Refusal.h"

#include <algorithm>
#include <cerrno>

#include <unistd.h>

void writeToStandardOutput(const QByteArray &text)
{
    int written = 0;
    while (written < text.size()) {
        const ssize_t count = ::write(STDOUT_FILENO, text.constData() + written,
                                      static_cast<std::size_t>(text.size() - written));
        if (count < 0 && errno == EPIPE) {
            return; // Nobody reads any more.
        }
        if (count < 0 && errno != EINTR) {
            throw Refusal{ExitCode::InputOutputFile,
                          QStringLiteral("standard output: %1").arg(qt_error_string(errno))};
        }
        written += static_cast<int>(std::max<ssize_t>(count, 0));
    }
}
