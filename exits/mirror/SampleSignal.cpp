#include "mirror/SampleSignal.h"

#include "service/Refusal.h"

#include <QSocketNotifier>

#include <cerrno>

#include <sys/eventfd.h>
#include <unistd.h>

namespace {

void wake(dds_entity_t, void *descriptor)
{
    const quint64 one = 1;
    // Full is readable too.
    (void)!::write(*static_cast<const int *>(descriptor), &one, sizeof one);
}

} // namespace

SampleSignal::SampleSignal(QObject *parent)
    : QObject(parent)
    , m_descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (m_descriptor < 0) {
        throw Refusal{ExitCode::Internal,
                      QStringLiteral("eventfd: %1").arg(qt_error_string(errno))};
    }
    m_listener = dds_create_listener(&m_descriptor);
    dds_lset_data_available(m_listener, &wake);
    auto *const readable = new QSocketNotifier(m_descriptor, QSocketNotifier::Read, this);
    connect(readable, &QSocketNotifier::activated, this, &SampleSignal::handleReadable);
}

SampleSignal::~SampleSignal()
{
    qDeleteAll(findChildren<QSocketNotifier *>());
    dds_delete_listener(m_listener);
    ::close(m_descriptor);
}

void SampleSignal::handleReadable()
{
    quint64 count = 0;
    (void)!::read(m_descriptor, &count, sizeof count);
    Q_EMIT arrived();
}
