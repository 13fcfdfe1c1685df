#include "TesselModels/ProcessDataSource.h"

#include "TesselModels/HelperThread_p.h"
#include "TesselModels/RegionWorker_p.h"

#include <algorithm>

namespace {

constexpr int usualUpdateInterval = 33;

} // namespace

class ProcessDataSource::Private
{
public:
    explicit Private(ProcessDataSource *source) : worker(new RegionWorker(mailbox)), thread(worker)
    {
        connect(worker, &RegionWorker::delivered, source, &ProcessDataSource::takeOver,
                Qt::QueuedConnection);
        connect(worker, &RegionWorker::writeFailed, source, &ProcessDataSource::writeFailed,
                Qt::QueuedConnection);
    }
    Private(const Private &) = delete;
    Private &operator=(const Private &) = delete;

    QString path;
    bool isEnabled = true;
    int updateInterval = usualUpdateInterval;
    std::shared_ptr<const ShownSet> set = std::make_shared<const ShownSet>();

    const std::shared_ptr<SetMailbox> mailbox = std::make_shared<SetMailbox>();
    RegionWorker *const worker; ///< owned by the thread, and only to be called there
    HelperThread thread;
};

std::shared_ptr<const ShownSet> ShownSetAccess::of(const ProcessDataSource *source)
{
    static const auto nothing = std::make_shared<const ShownSet>();
    return source != nullptr ? source->m_private->set : nothing;
}

ProcessDataSource::ProcessDataSource(QObject *parent) : ProcessDataSource(QString(), parent) { }

ProcessDataSource::ProcessDataSource(const QString &path, QObject *parent)
    : QObject(parent)
    , m_private(std::make_unique<Private>(this))
{
    m_private->thread.post(
        [worker = m_private->worker] { worker->setUpdateInterval(usualUpdateInterval); });
    setPath(path);
}

ProcessDataSource::~ProcessDataSource() = default;

QString ProcessDataSource::getPath() const
{
    return m_private->path;
}

void ProcessDataSource::setPath(const QString &path)
{
    if (path == m_private->path) {
        return;
    }
    m_private->path = path;
    m_private->thread.post([worker = m_private->worker, path] { worker->setPath(path); });
    Q_EMIT pathChanged();
}

bool ProcessDataSource::isEnabled() const
{
    return m_private->isEnabled;
}

void ProcessDataSource::setEnabled(bool isEnabled)
{
    if (isEnabled == m_private->isEnabled) {
        return;
    }
    m_private->isEnabled = isEnabled;
    m_private->thread.post(
        [worker = m_private->worker, isEnabled] { worker->setEnabled(isEnabled); });
    Q_EMIT enabledChanged();
}

bool ProcessDataSource::isConnected() const
{
    return m_private->set->isConnected;
}

quint64 ProcessDataSource::getGeneration() const
{
    return m_private->set->generation;
}

int ProcessDataSource::getUpdateInterval() const
{
    return m_private->updateInterval;
}

void ProcessDataSource::setUpdateInterval(int milliseconds)
{
    const int interval = std::max(milliseconds, 0);
    if (interval == m_private->updateInterval) {
        return;
    }
    m_private->updateInterval = interval;
    m_private->thread.post(
        [worker = m_private->worker, interval] { worker->setUpdateInterval(interval); });
    Q_EMIT updateIntervalChanged();
}

QString ProcessDataSource::getErrorText() const
{
    return m_private->set->errorText;
}

QStringList ProcessDataSource::urls() const
{
    const auto &description = m_private->set->description;
    return description ? description->urls() : QStringList();
}

void ProcessDataSource::write(const QString &url, const QVariant &value)
{
    m_private->thread.post([worker = m_private->worker, url, value] { worker->write(url, value); });
}

void ProcessDataSource::takeOver()
{
    m_private->mailbox->beginTaking();
    const auto set = m_private->mailbox->take();
    if (!set) {
        return;
    }
    const auto former = std::exchange(m_private->set, set);
    Q_EMIT setShown();
    // A slot may have taken over the next one already, or destroyed models; the source itself stays.
    if (set->description != former->description) {
        Q_EMIT urlsChanged();
    }
    if (set->isConnected != former->isConnected) {
        Q_EMIT connectedChanged();
    }
    if (set->generation != former->generation) {
        Q_EMIT generationChanged();
    }
    if (set->errorText != former->errorText) {
        Q_EMIT errorTextChanged();
    }
}
