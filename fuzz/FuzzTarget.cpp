#include "FuzzTarget.h"

#include "PlantedFault.h"

#include <QString>
#include <QtGlobal>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

/// Odd input is told in many lines, which nobody reads here. What ends the process is.
void dropMessage(QtMsgType type, const QMessageLogContext & /*context*/, const QString &text)
{
    if (type == QtFatalMsg) {
        std::fprintf(stderr, "%s\n", qPrintable(text));
        std::abort();
    }
}

/// Reads `--plant FAULT` behind -ignore_remaining_args=1, where libFuzzer looks at nothing.
void readPlantedFault(int count, char **arguments)
{
    for (int i = 1; i + 1 < count; ++i) {
        if (QByteArray(arguments[i]) != "--plant") {
            continue;
        }
        if (!PlantedFault::plant(arguments[i + 1])) {
            std::fprintf(stderr, "there is no fault called '%s'\n", arguments[i + 1]);
            std::exit(2); // NOLINT(concurrency-mt-unsafe): there is one thread yet.
        }
    }
}

} // namespace

void require(bool holds, const char *promise)
{
    if (!holds) {
        std::fprintf(stderr, "broken promise: %s\n", promise);
        std::abort();
    }
}

// NOLINTNEXTLINE(readability-non-const-parameter): the signature is libFuzzer's.
extern "C" int LLVMFuzzerInitialize(int *count, char ***arguments)
{
    qInstallMessageHandler(dropMessage);
    readPlantedFault(*count, *arguments);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    PlantedFault::meet();
    // In a block of its own that ends where the input does, so that a read behind it is seen.
    runInput(QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)));
    return 0;
}
