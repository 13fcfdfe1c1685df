#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

/// A value or error state that a mirror asks for.
struct RequestedValue
{
    QString url;
    quint8 state = 0; ///< number of an error state; 0: there is a text
    QString text;     ///< as `tessel set` takes it, with all digits

    bool operator==(const RequestedValue &other) const
    {
        return url == other.url && state == other.state && text == other.text;
    }
};

/// What was written into a mirror, as it came in at the source, not checked.
struct WriteRequest
{
    quint64 publisher = 0; ///< who wrote it, by the engine
    QByteArray receiver;   ///< identity that the mirror gave itself
    QString host;
    quint64 number = 0;
    qint64 asked = 0; ///< microseconds since 1970, of the clock of the source
    QVector<RequestedValue> values;

    static constexpr int sm_mostValues = 1000;
    /// Milliseconds after which nobody waits for it any more, and after which it is not carried out.
    static constexpr int sm_lifetime = 3000;
    /// Milliseconds from one request of a mirror to the next, at least. So it stays below what a source carries
    /// out in a second, also where a request comes as late as the next one is sent.
    static constexpr int sm_interval = 11;
};

/// What became of it; the numbers go over the wire and are those in which `tessel set` ends.
enum class WriteResult : quint8 {
    Written = 0,
    WrongUse = 2, ///< The request makes no sense.
    NotFound = 3, ///< No such leaf or region.
    NoAccess = 4, ///< Not among what the source allows, or the region cannot be written.
    Refused = 5,  ///< A check refused: type, range, read-only.
    TimedOut = 6  ///< It came too late.
};

struct WriteAnswer
{
    quint64 number = 0;
    WriteResult result = WriteResult::Written;
    QString text; ///< why it was refused
};

/// The leaves, for a message: the first few by their URLs.
QString namesOf(const QVector<RequestedValue> &values);
/// The same with what was asked for.
QString textOf(const QVector<RequestedValue> &values);
