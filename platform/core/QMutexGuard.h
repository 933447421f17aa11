#pragma once

#include <QMutex>

#if defined(__SANITIZE_THREAD__)
#define VEXCORE_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VEXCORE_TSAN 1
#endif
#endif

#if defined(VEXCORE_TSAN)
#include <sanitizer/tsan_interface.h>
#endif

// Holds a QMutex for a scope. Qt 5 blocks and wakes inside its own, uninstrumented library, so
// ThreadSanitizer cannot see the order a QMutex gives; the guard states it explicitly in
// sanitizer builds and costs nothing otherwise.
class QMutexGuard {
public:
    explicit QMutexGuard(QMutex* mutex) : mutex(mutex) {
        mutex->lock();
#if defined(VEXCORE_TSAN)
        __tsan_acquire(mutex);
#endif
    }
    ~QMutexGuard() {
        if (mutex) {
            Unlock();
        }
    }

    QMutexGuard(const QMutexGuard&) = delete;
    QMutexGuard& operator=(const QMutexGuard&) = delete;

    // Unlocks before the end of the scope.
    void Unlock() {
#if defined(VEXCORE_TSAN)
        __tsan_release(mutex);
#endif
        mutex->unlock();
        mutex = nullptr;
    }
    // Leaves the mutex locked when the scope ends.
    void KeepLocked() {
        mutex = nullptr;
    }

private:
    QMutex* mutex;
};
