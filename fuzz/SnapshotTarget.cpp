#include "FuzzTarget.h"
#include "InputFile.h"
#include "snapshots/Snapshot.h"
#include "text/Failure.h"

#include <sanitizer/lsan_interface.h>

// A snapshot is refused as a file that is none, or becomes a set whose text is read again as the same.
//
// An input is the file.

namespace {

Snapshot readFrom(const QByteArray &text)
{
    const InputFile file(text);
    return readSnapshot(file.path());
}

} // namespace

void runInput(const QByteArray &input)
{
    // The parser of the toolkit forgets memory where a key stands twice.
    const __lsan::ScopedDisabler noLeaks;
    QString text;
    try {
        const Snapshot snapshot = readFrom(input);
        for (const auto &value : snapshot.values) {
            require(value.value.getErrorType()
                            != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID
                        || value.value.getValue().isValid(),
                    "a valid value has a content");
        }
        text = snapshotText(snapshot);
    } catch (const Failure &failure) {
        require(failure.code == ExitCode::InputOutputFile, "what is none is refused as such");
        return;
    }
    // Half a surrogate pair has no UTF-8, so that two such URLs can become one.
    if (input.toLower().contains("\\ud")) {
        return;
    }
    try {
        require(snapshotText(readFrom(text.toUtf8())) == text, "its text is read as the same set");
    } catch (const Failure &) {
        require(false, "its text is a snapshot");
    }
}
