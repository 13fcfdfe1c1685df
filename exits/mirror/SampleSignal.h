#pragma once

#include <QObject>

#include <functional>

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
    /// Has a thread of the engine try @p take with the reader first: false leaves it to the event loop. Nothing
    /// else of that program is received meanwhile, so that it should not wait for anybody. Before the reader is made.
    void setShortcut(const std::function<bool(dds_entity_t)> &take) { m_shortcut = take; }

Q_SIGNALS:
    void arrived();

private:
    static void wake(dds_entity_t reader, void *self);
    void handleReadable();

    std::function<bool(dds_entity_t)> m_shortcut;
    int m_descriptor;
    dds_listener_t *m_listener;
};
