#include "recordings/SetRing.h"

SetRing::SetRing(const ImageLayout &layout, std::chrono::microseconds span, quint64 mostBytes)
    : m_layout(layout)
    , m_span(span)
    , m_mostBytes(mostBytes)
{
}

quint64 SetRing::sizeOf(const Set &set)
{
    return sizeof(Set) + static_cast<quint64>(set.changes.size());
}

void SetRing::add(const SetFacts &facts, const QByteArray &changes, const QByteArray &set)
{
    if (m_sets.empty()) {
        m_first = set;
        // It is written as a whole one.
        m_sets.push_back({facts, {}});
    } else {
        // A copy without the room that the caller has for more.
        m_sets.push_back({facts, QByteArray(changes.constData(), changes.size())});
    }
    m_bytes += sizeOf(m_sets.back());
    while (m_sets.size() > 1 && span() > m_span) {
        dropFirst();
    }
    while (m_sets.size() > 1 && m_bytes > m_mostBytes) {
        m_wasFull = true;
        dropFirst();
    }
}

void SetRing::dropFirst()
{
    m_bytes -= sizeOf(m_sets.front());
    m_sets.pop_front();
    Set &first = m_sets.front();
    applyChanges(m_layout, first.changes.constData(), first.changes.size(), m_first, m_changed);
    m_bytes -= static_cast<quint64>(first.changes.size());
    first.changes.clear();
}

void SetRing::moveTo(RecordingWriter &writer)
{
    bool isFirst = true;
    for (const Set &set : m_sets) {
        if (isFirst) {
            writer.addWholeSet(set.facts, m_first);
        } else {
            writer.addChangedSet(set.facts, set.changes);
        }
        isFirst = false;
    }
    m_sets.clear();
    m_first.clear();
    m_bytes = 0;
}

std::chrono::microseconds SetRing::span() const
{
    return m_sets.empty() ? std::chrono::microseconds(0)
                          : std::chrono::microseconds(m_sets.back().facts.elapsed
                                                      - m_sets.front().facts.elapsed);
}
