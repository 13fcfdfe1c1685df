#pragma once

#include "web/LiveFeed.h"

#include <QElapsedTimer>

#include <memory>

/// What one browser has been told of a feed, and what it is told next.
///
/// Does not keep the feed: a browser that has stopped reading must not keep a region that nobody follows any
/// more.
class EventStream
{
public:
    explicit EventStream(const std::shared_ptr<LiveFeed> &feed) : m_feed(feed) { }

    /// The next events; empty if there is nothing to tell now, or the feed has gone.
    QByteArray next();

    /// Milliseconds after which a stream without news says that it lives.
    static constexpr qint64 sm_quietTime = 5000;

private:
    QByteArray hello(const LiveFeed &feed);
    QByteArray newsOfRegion(const LiveFeed &feed);
    QByteArray newsOfValues(LiveFeed &feed);
    QByteArray signOfLife(const LiveFeed &feed) const;
    QByteArray gone(const LiveFeed &feed);

    std::weak_ptr<LiveFeed> m_feed;
    bool m_isGreeted = false;
    bool m_isUp = false; ///< as it was told
    QString m_reason;    ///< of the absence that was told
    quint64 m_spell = 0; ///< that was told of
    quint64 m_told = 0;  ///< number of the set
    QElapsedTimer m_sinceTold;
};
