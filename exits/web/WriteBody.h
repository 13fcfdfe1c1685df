#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

/// A value that somebody asks for, as it was written.
struct AskedWrite
{
    enum class Kind {
        Number, ///< with all its digits
        Text,
        Boolean, ///< `true` or `false`
        State    ///< the name or the number of an error state
    };

    QString url;
    Kind kind;
    QString text;
};

/// What a request to write brings: an object of URLs and values, `{"pump/speed": 12.5, "pump/level":
/// {"state": "timeout"}}`, in JSON as RFC 8259 has it.
struct WriteBody
{
    QVector<AskedWrite> writes;
    QString problem; ///< empty: there is at least one write
    QString where;   ///< of the problem: a URL, or a character of the body

    static WriteBody read(const QByteArray &body);
};
