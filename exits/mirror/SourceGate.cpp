#include "mirror/SourceGate.h"

#include "mirror/ByteOrder.h"

#include <tuple>

QString textOf(SourceState state)
{
    switch (state) {
    case SourceState::Live: return QStringLiteral("it is live");
    case SourceState::CreatorGone: return QStringLiteral("the creator of its region has gone");
    case SourceState::RegionReplaced: return QStringLiteral("its region was replaced");
    case SourceState::Silent: return QStringLiteral("nothing is published into its region");
    }
    return QStringLiteral("it is in a state that is none");
}

QString SourceGate::problemOf(const ReceivedSet &set) const
{
    if (set.state > static_cast<quint8>(SourceState::Silent)) {
        return QStringLiteral("its status is %1").arg(set.state);
    }
    if (set.byteOrder != static_cast<quint8>(ByteOrder::Order::LowestFirst)
        && set.byteOrder != static_cast<quint8>(ByteOrder::Order::HighestFirst)) {
        return QStringLiteral("its byte order is %1").arg(set.byteOrder);
    }
    const bool isLive = set.state == static_cast<quint8>(SourceState::Live);
    const quint32 expected = isLive ? m_bufferSize : 0;
    if (set.size != expected) {
        return QStringLiteral("it has %1 bytes, not %2")
            .arg(QString::number(set.size), QString::number(expected));
    }
    return {};
}

SourceGate::Answer SourceGate::take(const ReceivedSet &set)
{
    if (m_current && (m_current->identity != set.source || m_current->publisher != set.publisher)) {
        return Answer::OtherSource;
    }
    if (set.fingerprint != m_fingerprint) {
        return Answer::OtherLayout;
    }
    m_problem = problemOf(set);
    if (!m_problem.isEmpty()) {
        return Answer::NotASet;
    }
    const bool isLive = set.state == static_cast<quint8>(SourceState::Live);
    const auto age = [](const auto &one) { return std::tie(one.attachment, one.generation); };
    if (m_current && (age(set) < age(*m_current))) {
        return Answer::Keep;
    }
    const bool isKnown = m_current && m_current->isShown && age(set) == age(*m_current);
    m_current = Source{set.source, set.publisher, set.attachment, set.generation, isLive};
    m_hadSource = true;
    if (!isLive) {
        return Answer::Fail;
    }
    return isKnown ? Answer::Keep : Answer::Show;
}

void SourceGate::noteUnshown()
{
    if (m_current) {
        m_current->isShown = false;
    }
}

bool SourceGate::release(const QByteArray &source)
{
    const bool isCurrent = m_current && m_current->identity == source;
    if (isCurrent) {
        m_current.reset();
    }
    return isCurrent;
}
