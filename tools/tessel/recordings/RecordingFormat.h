#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

#include <chrono>
#include <optional>

/// What a recording consists of; docs/recording-format.md tells it to other programs. Numbers are little-endian.
namespace RecordingFormat {

/// How a file begins. A transfer as text would break it.
constexpr char magic[] = {'\x89', 'T', 'S', 'R', '\r', '\n', '\x1A', '\n'};
constexpr quint32 number = 1;
/// Of the magic, the number and four zero bytes.
constexpr int fileHeadSize = 16;
/// Before the content of each record:
///
///     0        4        8         12
///     | length | kind   | CRC-32  | content ...
///
/// The length is that of the content, the checksum that of length, kind and content.
constexpr int recordHeadSize = 12;
/// Of a content.
constexpr quint32 longestRecord = 256U * 1024 * 1024;
/// Before the values of a set: generation, sets dropped before it, time, elapsed time.
constexpr int setHeadSize = 32;
/// Bytes of an error state.
constexpr quint32 stateSize = 4;

/// What readers do not know they skip.
enum Kind : quint32 {
    Head = 1,        ///< JSON
    Description = 2, ///< JSON
    Run = 3,         ///< JSON; a whole set comes next
    WholeSet = 4,
    ChangedSet = 5,
    Trigger = 6, ///< JSON
    End = 7      ///< JSON
};

} // namespace RecordingFormat

/// What a recording knows of one value.
struct RecordedValue
{
    QString url;
    QString type;
    QString unit;
    quint32 size = 0;      ///< bytes of the value
    quint32 stateSize = 0; ///< 4, or 0 without an error state of its own
    quint32 bitmask = 0;   ///< of single bits

    bool operator==(const RecordedValue &other) const
    {
        return url == other.url && type == other.type && size == other.size
               && stateSize == other.stateSize && bitmask == other.bitmask;
    }
};

/// What stands at the beginning of a recording.
struct RecordingHead
{
    QString key;
    QString fingerprint; ///< of the layout, as 0x and 16 digits
    QString started;     ///< ISO 8601
    QStringList urls;    ///< what was asked for; everything without one
    /// From set to set; none: every set.
    std::optional<std::chrono::microseconds> interval;
    QVector<RecordedValue> values;
    QByteArray description; ///< JSON of a process description
};

/// What is known of a set beside its values.
struct SetFacts
{
    quint64 generation = 0;
    /// Sets that were published before it, but could not be recorded.
    quint64 dropped = 0;
    /// Microseconds since 1970 in UTC, by the clock of the machine.
    qint64 time = 0;
    /// Microseconds since the recorder began, by a clock that is never set.
    quint64 elapsed = 0;
};
