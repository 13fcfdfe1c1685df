#include <QEvent>
#include <QObject>

#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>

// Who posts a call or emits a queued signal does so before it is carried out. QtCore sees to that, which is not built
// for the thread sanitizer, so that what is handed over in that way would be reported. These definitions stand in front
// of those of QtCore, for the test program and for the library: they call the original and tell the sanitizer the
// order. Of a signal they do not know who receives it: all that were emitted count as before any call that comes after.

namespace {

template <class Function>
Function original(const char *name)
{
    void *const function = dlsym(RTLD_NEXT, name);
    if (function == nullptr) {
        qFatal("QtCore has no %s", name);
    }
    return reinterpret_cast<Function>(function);
}

char emittedSignals = 0;

} // namespace

bool QMetaObject::invokeMethodImpl(QObject *object, QtPrivate::QSlotObjectBase *slot,
                                   Qt::ConnectionType type, void *result)
{
    static const auto invokeOfQt =
        original<bool (*)(QObject *, QtPrivate::QSlotObjectBase *, Qt::ConnectionType, void *)>(
            "_ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14Connec"
            "tionTypeEPv");
    __tsan_release(object);
    return invokeOfQt(object, slot, type, result);
}

void QMetaObject::activate(QObject *sender, const QMetaObject *meta, int signal, void **arguments)
{
    static const auto activateOfQt =
        original<void (*)(QObject *, const QMetaObject *, int, void **)>(
            "_ZN11QMetaObject8activateEP7QObjectPKS_iPPv");
    __tsan_release(&emittedSignals);
    activateOfQt(sender, meta, signal, arguments);
}

bool QObject::event(QEvent *event)
{
    static const auto eventOfQt = original<bool (*)(QObject *, QEvent *)>(
        "_ZN7QObject5eventEP6QEvent");
    if (event->type() == QEvent::MetaCall) {
        __tsan_acquire(this);
        __tsan_acquire(&emittedSignals);
    }
    return eventOfQt(this, event);
}
