#include "mirror/SampleSignal.h"

#include "service/Refusal.h"

#include <QSocketNotifier>

#include <cerrno>

#include <sys/eventfd.h>
#include <unistd.h>

SampleSignal::SampleSignal(QObject *parent)
    : QObject(parent)
    , m_descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (m_descriptor < 0) {
        throw Refusal{ExitCode::Internal,
                      QStringLiteral("eventfd: %1").arg(qt_error_string(errno))};
    }
    m_listener = dds_create_listener(this);
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

void SampleSignal::wake(dds_entity_t reader, void *self)
{
    const auto &signal = *static_cast<const SampleSignal *>(self);
    if (signal.m_shortcut && signal.m_shortcut(reader)) {
        return;
    }
    const quint64 one = 1;
    // Full is readable too.
    (void)!::write(signal.m_descriptor, &one, sizeof one);
}

void SampleSignal::handleReadable()
{
    quint64 count = 0;
    (void)!::read(m_descriptor, &count, sizeof count);
    Q_EMIT arrived();
}
