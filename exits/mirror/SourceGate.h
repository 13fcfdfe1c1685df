#pragma once

#include "mirror/SlotLayout.h"
#include "mirror/SourceState.h"

#include <optional>

/// Decides for one mirrored region what becomes of a set that came in: one source at a time, of the
/// same layout, never an older set.
class SourceGate
{
public:
    enum class Answer {
        Show,        ///< a newer set: publish it
        Keep,        ///< the set that is shown already, or an older one
        Fail,        ///< the source says that it has nothing to show
        OtherSource, ///< from somebody else than the source that is there
        OtherLayout, ///< laid out in another way
        NotASet      ///< its fields contradict each other
    };

    SourceGate(quint64 fingerprint, quint32 bufferSize)
        : m_fingerprint(fingerprint)
        , m_bufferSize(bufferSize)
    {
    }

    Answer take(const ReceivedSet &set);
    /// What take() last answered to show could not be: it is to be shown should it come again.
    void noteUnshown();
    /// Whether the source that is followed is this one; the next to come takes its place then.
    bool release(const QByteArray &source);
    /// The same of whoever is followed.
    void release() { m_current.reset(); }

    /// Whether a source is followed.
    bool hasSource() const { return m_current.has_value(); }
    /// Whether there was ever one.
    bool hadSource() const { return m_hadSource; }
    /// Why the last answer was NotASet.
    const QString &problem() const { return m_problem; }

private:
    struct Source
    {
        QByteArray identity;
        quint64 publisher;
        quint32 attachment;
        quint64 generation;
        bool isShown;
    };

    QString problemOf(const ReceivedSet &set) const;

    quint64 m_fingerprint;
    quint32 m_bufferSize;
    std::optional<Source> m_current;
    bool m_hadSource = false;
    QString m_problem;
};
