#pragma once

#include "recordings/RecordingWriter.h"
#include "recordings/SetImage.h"

#include <deque>

/// The sets of the last while, in memory.
///
/// Holds two whole sets and, of each later one, what changed: at most @p mostBytes of that. Where they are not
/// enough for the time, it reaches less far back.
class SetRing
{
public:
    SetRing(const ImageLayout &layout, std::chrono::microseconds span, quint64 mostBytes);

    /// @p set is the whole one behind the changes.
    void add(const SetFacts &facts, const QByteArray &changes, const QByteArray &set);
    /// Writes all of it, the first set as a whole one, and is empty then.
    void moveTo(RecordingWriter &writer);

    bool isEmpty() const { return m_sets.empty(); }
    /// Whether it ever let a set go before its time.
    bool wasFull() const { return m_wasFull; }
    /// From its first set to its last.
    std::chrono::microseconds span() const;

private:
    struct Set
    {
        SetFacts facts;
        QByteArray changes;
    };

    static quint64 sizeOf(const Set &set);
    void dropFirst();

    ImageLayout m_layout;
    std::chrono::microseconds m_span;
    quint64 m_mostBytes;
    std::deque<Set> m_sets;
    QByteArray m_first; ///< the first of them, whole
    quint64 m_bytes = 0;
    bool m_wasFull = false;
    std::vector<int> m_changed; ///< kept for its memory
};
