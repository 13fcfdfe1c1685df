#include "Access/ProcessDataNotifier.h"

#include <QSocketNotifier>

#include <algorithm>
#include <limits>

namespace {

/// Milliseconds. While a signal is held back, nobody but the notifier looks whether the region is there.
constexpr qint64 regionLookInterval = 1000;

bool isRegionGone(ProcessDataWatcher &watcher)
{
    // Leaves the descriptor as it is, so that the publisher still has nobody to wake. No set comes behind
    // the last generation that there can be, so that none is told instead, however fast they come.
    quint64 seen = std::numeric_limits<quint64>::max();
    return watcher.wait(seen, std::chrono::milliseconds::zero())
           == ProcessDataWatcher::Result::RegionGone;
}

} // namespace

ProcessDataNotifier::ProcessDataNotifier(ProcessDataManager &manager, QObject *parent)
    : QObject(parent)
    , m_watcher(manager)
    , m_interval(this)
{
    m_interval.setSingleShot(true);
    m_interval.setTimerType(Qt::PreciseTimer);
    connect(&m_interval, &QTimer::timeout, this, &ProcessDataNotifier::onReadable);
    const int descriptor = m_watcher.getDescriptor();
    if (descriptor < 0) {
        return;
    }
    m_readable = new QSocketNotifier(descriptor, QSocketNotifier::Read, this);
    connect(m_readable, &QSocketNotifier::activated, this, &ProcessDataNotifier::onReadable);
}

ProcessDataNotifier::~ProcessDataNotifier()
{
    // Before the descriptor, which the watcher closes.
    delete m_readable;
}

bool ProcessDataNotifier::isActive() const
{
    return m_readable != nullptr;
}

void ProcessDataNotifier::setLeastInterval(int milliseconds)
{
    m_leastInterval = std::max(milliseconds, 0);
}

void ProcessDataNotifier::onReadable()
{
    const qint64 left = m_sinceLast.isValid() ? m_leastInterval - m_sinceLast.elapsed() : 0;
    if (left <= 0 || isRegionGone(m_watcher)) {
        tell();
        return;
    }
    // Not acknowledged before its time, so that the publisher has nobody to wake.
    m_readable->setEnabled(false);
    m_interval.start(static_cast<int>(std::min(left, regionLookInterval)));
}

void ProcessDataNotifier::tell()
{
    const auto result = m_watcher.acknowledge(m_seen);
    if (result == ProcessDataWatcher::Result::NewSet) {
        m_readable->setEnabled(true);
        m_sinceLast.start();
        Q_EMIT published(m_seen);
    } else if (result == ProcessDataWatcher::Result::TimedOut) {
        m_readable->setEnabled(true);
    } else {
        end();
        if (result == ProcessDataWatcher::Result::RegionGone) {
            Q_EMIT regionGone();
        }
    }
}

void ProcessDataNotifier::end()
{
    m_readable->setEnabled(false);
    // It may be the sender of the signal that led here.
    m_readable->deleteLater();
    m_readable = nullptr;
}
