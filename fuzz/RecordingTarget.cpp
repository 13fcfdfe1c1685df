#include "FuzzTarget.h"
#include "recordings/Crc32.h"
#include "recordings/RecordedLeaves.h"
#include "recordings/RecordingReader.h"
#include "text/Failure.h"

#include <QBuffer>
#include <QtEndian>

#include <algorithm>

#include <sanitizer/lsan_interface.h>

// A recording is refused, or gives whole sets, whatever its bytes are; what comes first gives the same sets also
// where the rest is missing.
//
// An input is a recording. It is read as it is, and once more with its checksums put right, which random bytes
// would hardly have.

namespace {

using namespace RecordingFormat;

QByteArray withChecksums(QByteArray bytes)
{
    qint64 place = fileHeadSize;
    while (place + recordHeadSize <= bytes.size()) {
        char *const head = bytes.data() + place;
        const auto length = qFromLittleEndian<quint32>(head);
        if (length > bytes.size() - place - recordHeadSize) {
            break;
        }
        qToLittleEndian(crc32(head + recordHeadSize, length, crc32(head, 8)), head + 8);
        place += recordHeadSize + qint64(length);
    }
    return bytes;
}

/// By the rules of their types, whatever these are.
void readValues(const RecordingReader &reader, const RecordedSet &set)
{
    RecordedLeaves leaves(reader.head(), reader.layout());
    leaves.show(set.image);
    for (const int changed : set.changed) {
        leaves.value(changed);
    }
}

/// How many sets there are.
int read(const QByteArray &bytes, bool hasValues)
{
    // The parser of the toolkit forgets memory where a key stands twice.
    const __lsan::ScopedDisabler noLeaks;
    auto buffer = std::make_unique<QBuffer>();
    buffer->setData(bytes);
    buffer->open(QIODevice::ReadOnly);
    int sets = 0;
    try {
        RecordingReader reader(std::move(buffer), QStringLiteral("input"));
        RecordedSet set;
        while (reader.next(set)) {
            ++sets;
            require(quint64(set.image.size()) == reader.layout().size(), "a set is whole");
            require(std::is_sorted(set.changed.begin(), set.changed.end()),
                    "changes come in the order of the values");
            require(set.changed.empty()
                        || (set.changed.front() >= 0
                            && set.changed.back() < reader.head().values.size()),
                    "what has changed is a value");
            require(reader.position() <= bytes.size(), "nothing behind the end is read");
            if (hasValues && sets <= 3) {
                readValues(reader, set);
            }
        }
        require(reader.isDamaged() || reader.isCutOff() || reader.position() == bytes.size(),
                "the reading ends at the end");
        require(!reader.next(set), "the end is the end");
    } catch (const Failure &failure) {
        require(sets == 0, "a recording is refused at its head");
        require(failure.code == ExitCode::InputOutputFile, "what is none is refused as such");
    }
    return sets;
}

void check(const QByteArray &bytes)
{
    const int sets = read(bytes, true);
    require(read(bytes.left(bytes.size() / 2), false) <= sets, "half of it has no more sets");
    require(read(bytes.chopped(std::min(1, bytes.size())), false) >= sets - 1,
            "the last byte is one of the last set at most");
}

} // namespace

void runInput(const QByteArray &input)
{
    check(input);
    check(withChecksums(input));
}
