#pragma once

#include "web/LiveFeed.h"

#include <QElapsedTimer>

#include <memory>

/// What one browser has been told of a feed, and what it is told next.
class EventStream
{
public:
    explicit EventStream(std::shared_ptr<LiveFeed> feed) : m_feed(std::move(feed)) { }

    /// The next events; empty if there is nothing to tell now.
    QByteArray next();

    /// Milliseconds after which a stream without news says that it lives.
    static constexpr qint64 sm_quietTime = 5000;

private:
    QByteArray hello();
    QByteArray newsOfRegion();
    QByteArray newsOfValues();
    QByteArray signOfLife() const;

    std::shared_ptr<LiveFeed> m_feed;
    bool m_isGreeted = false;
    bool m_isUp = false; ///< as it was told
    quint64 m_spell = 0; ///< that was told of
    quint64 m_told = 0;  ///< number of the set
    QElapsedTimer m_sinceTold;
};
