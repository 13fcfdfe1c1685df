#include "web/EventStream.h"

#include "web/EventText.h"
#include "web/JsonText.h"

QByteArray EventStream::next()
{
    const std::shared_ptr<LiveFeed> feed = m_feed.lock();
    if (!feed) {
        return {};
    }
    QByteArray text = m_isGreeted ? newsOfRegion(*feed) : hello(*feed);
    text += newsOfValues(*feed);
    if (text.isEmpty() && m_sinceTold.hasExpired(sm_quietTime)) {
        text = signOfLife(*feed);
    }
    if (!text.isEmpty()) {
        m_sinceTold.start();
    }
    return text;
}

QByteArray EventStream::hello(const LiveFeed &feed)
{
    m_isGreeted = true;
    m_isUp = feed.isUp();
    m_spell = feed.spell();
    const QByteArray text = EventText::event(
        "hello", JsonText::object({{"fingerprint", '"' + feed.fingerprint() + '"'},
                                   {"up", JsonText::boolean(m_isUp)}}));
    return m_isUp ? text : text + gone(feed);
}

QByteArray EventStream::newsOfRegion(const LiveFeed &feed)
{
    QByteArray text;
    // It may have gone and come while nobody read.
    const bool hasGone = m_isUp && (!feed.isUp() || feed.spell() != m_spell);
    const bool hasOtherReason = !m_isUp && !feed.isUp() && feed.absence() != m_reason;
    if (hasGone || hasOtherReason) {
        text += gone(feed);
    }
    if (!m_isUp && feed.isUp()) {
        m_isUp = true;
        m_spell = feed.spell();
        m_told = 0;
        text += EventText::event(
            "back", JsonText::object({{"fingerprint", '"' + feed.fingerprint() + '"'}}));
    }
    return text;
}

QByteArray EventStream::newsOfValues(LiveFeed &feed)
{
    const quint64 newest = m_isUp ? feed.newest() : 0;
    if (newest == 0 || newest == m_told) {
        return {};
    }
    const QByteArray text = EventText::event("set", feed.setSince(m_told));
    m_told = newest;
    return text;
}

QByteArray EventStream::gone(const LiveFeed &feed)
{
    m_isUp = false;
    m_reason = feed.absence();
    return EventText::event("gone", JsonText::object({{"reason", JsonText::text(m_reason)}}));
}

QByteArray EventStream::signOfLife(const LiveFeed &feed) const
{
    const QByteArray age = m_isUp ? feed.ageJson() : "null";
    return EventText::comment() + EventText::event("age", JsonText::object({{"age", age}}));
}
