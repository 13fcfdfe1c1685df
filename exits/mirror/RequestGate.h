#pragma once

#include "mirror/WriteRequest.h"

#include <QMap>

#include <optional>

/// Decides at a source which requests are carried out: each once, in time, and so many a second from one
/// mirror. Knows nothing of values.
class RequestGate
{
public:
    struct Verdict
    {
        enum class What {
            CarryOut,  ///< then note() what became of it
            Refuse,    ///< with `answer`
            Repeat,    ///< `answer`, which was given before
            LeaveAlone ///< older than one that was answered, or under another name than before
        };

        What what;
        WriteAnswer answer;
    };

    /// @p now: microseconds since 1970, of the clock of this machine. @p ticks: milliseconds of a clock that
    /// nobody sets.
    Verdict take(const WriteRequest &request, qint64 now, qint64 ticks);
    /// The answer is given again when the request comes again.
    void note(const WriteRequest &request, const WriteAnswer &answer);

    /// Of one mirror, in a second. One that keeps its interval never asks for more.
    static constexpr int sm_mostInSecond = 100;

private:
    struct Mirror
    {
        QByteArray receiver; ///< that it names itself
        WriteAnswer last;
        qint64 second = 0; ///< since when its requests are counted
        int count = 0;
        qint64 seen = 0;
    };

    /// The one that was silent for longest is forgotten for another.
    static constexpr int sm_mostMirrors = 100;

    Mirror &mirrorOf(const WriteRequest &request, qint64 ticks);
    static std::optional<WriteAnswer> problemOf(const WriteRequest &request, qint64 now);

    QMap<quint64, Mirror> m_mirrors;
};
