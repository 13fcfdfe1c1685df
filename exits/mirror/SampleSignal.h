#pragma once

#include <QObject>

#include <dds/dds.h>

/// Tells an event loop that a reader of the engine has something. Its threads write into a descriptor.
class SampleSignal : public QObject
{
    Q_OBJECT

public:
    /// Throws a Refusal.
    explicit SampleSignal(QObject *parent = nullptr);
    /// The readers have to be deleted before: their last call has ended then.
    ~SampleSignal() override;

    /// For a reader that is made with it. Belongs to this object.
    const dds_listener_t *listener() const { return m_listener; }

Q_SIGNALS:
    void arrived();

private:
    void handleReadable();

    int m_descriptor;
    dds_listener_t *m_listener;
};
