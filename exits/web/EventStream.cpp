#include "web/EventStream.h"

#include "web/EventText.h"
#include "web/JsonText.h"

QByteArray EventStream::next()
{
    QByteArray text = m_isGreeted ? newsOfRegion() : hello();
    text += newsOfValues();
    if (text.isEmpty() && m_sinceTold.hasExpired(sm_quietTime)) {
        text = signOfLife();
    }
    if (!text.isEmpty()) {
        m_sinceTold.start();
    }
    return text;
}

QByteArray EventStream::hello()
{
    m_isGreeted = true;
    m_isUp = m_feed->isUp();
    m_spell = m_feed->spell();
    const QByteArray text = EventText::event(
        "hello", JsonText::object({{"fingerprint", '"' + m_feed->fingerprint() + '"'},
                                   {"up", JsonText::boolean(m_isUp)}}));
    return m_isUp
               ? text
               : text
                     + EventText::event(
                         "gone", JsonText::object({{"reason", JsonText::text(m_feed->absence())}}));
}

QByteArray EventStream::newsOfRegion()
{
    QByteArray text;
    // It may have gone and come while nobody read.
    if (m_isUp && (!m_feed->isUp() || m_feed->spell() != m_spell)) {
        m_isUp = false;
        text += EventText::event("gone",
                                 JsonText::object({{"reason", JsonText::text(m_feed->absence())}}));
    }
    if (!m_isUp && m_feed->isUp()) {
        m_isUp = true;
        m_spell = m_feed->spell();
        m_told = 0;
        text += EventText::event(
            "back", JsonText::object({{"fingerprint", '"' + m_feed->fingerprint() + '"'}}));
    }
    return text;
}

QByteArray EventStream::newsOfValues()
{
    const quint64 newest = m_isUp ? m_feed->newest() : 0;
    if (newest == 0 || newest == m_told) {
        return {};
    }
    const QByteArray text = EventText::event("set", m_feed->setSince(m_told));
    m_told = newest;
    return text;
}

QByteArray EventStream::signOfLife() const
{
    const QByteArray age = m_isUp ? m_feed->ageJson() : "null";
    return EventText::comment() + EventText::event("age", JsonText::object({{"age", age}}));
}
