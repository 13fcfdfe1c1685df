#include <QMutex>

#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>

// QMutex locks inside QtCore, which is not built for the thread sanitizer, so that what a QMutex
// keeps apart would be reported. These definitions stand in front of those of QtCore, for the test
// program and for the library: they call the original and tell the sanitizer the order that it makes.

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

} // namespace

void QMutex::lock() QT_MUTEX_LOCK_NOEXCEPT
{
    static const auto lockOfQt = original<void (*)(QMutex *)>("_ZN6QMutex4lockEv");
    lockOfQt(this);
    __tsan_acquire(this);
}

bool QMutex::tryLock(int timeout) QT_MUTEX_LOCK_NOEXCEPT
{
    static const auto tryLockOfQt = original<bool (*)(QMutex *, int)>("_ZN6QMutex7tryLockEi");
    const bool isLocked = tryLockOfQt(this, timeout);
    if (isLocked) {
        __tsan_acquire(this);
    }
    return isLocked;
}

void QMutex::unlock() noexcept
{
    static const auto unlockOfQt = original<void (*)(QMutex *)>("_ZN6QMutex6unlockEv");
    __tsan_release(this);
    unlockOfQt(this);
}
