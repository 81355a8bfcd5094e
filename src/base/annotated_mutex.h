#pragma once

// Mutexes that clang's thread-safety analysis (-Wthread-safety) understands:
// data marked NUBEX_GUARDED_BY(m) may only be touched while m is held, and
// functions marked NUBEX_REQUIRES(m) only called so. Other compilers see
// plain mutexes.

#include <condition_variable>
#include <mutex>
#include <shared_mutex>

#if defined(__clang__)
#define NUBEX_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define NUBEX_THREAD_ANNOTATION(x)
#endif

#define NUBEX_CAPABILITY(x) NUBEX_THREAD_ANNOTATION(capability(x))
#define NUBEX_SCOPED_CAPABILITY NUBEX_THREAD_ANNOTATION(scoped_lockable)
#define NUBEX_GUARDED_BY(x) NUBEX_THREAD_ANNOTATION(guarded_by(x))
#define NUBEX_REQUIRES(...) NUBEX_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define NUBEX_ACQUIRE(...) NUBEX_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define NUBEX_ACQUIRE_SHARED(...) NUBEX_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define NUBEX_RELEASE(...) NUBEX_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define NUBEX_RELEASE_SHARED(...) NUBEX_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))

namespace Base {

class NUBEX_CAPABILITY("mutex") Mutex {
public:
    void lock() NUBEX_ACQUIRE() { mutex_.lock(); }
    void unlock() NUBEX_RELEASE() { mutex_.unlock(); }

    // Waits on the condition until ready() holds; the mutex is held around
    // every call of ready() and on return.
    template <typename Ready>
    void wait(std::condition_variable& condition, Ready ready) NUBEX_REQUIRES(this) {
        std::unique_lock<std::mutex> lock(mutex_, std::adopt_lock);
        condition.wait(lock, ready);
        lock.release();
    }

private:
    std::mutex mutex_;
};

class NUBEX_CAPABILITY("shared mutex") SharedMutex {
public:
    void lock() NUBEX_ACQUIRE() { mutex_.lock(); }
    void unlock() NUBEX_RELEASE() { mutex_.unlock(); }
    void lock_shared() NUBEX_ACQUIRE_SHARED() { mutex_.lock_shared(); }
    void unlock_shared() NUBEX_RELEASE_SHARED() { mutex_.unlock_shared(); }

private:
    std::shared_mutex mutex_;
};

// Holds a mutex (or a shared mutex exclusively) for its lifetime.
template <typename Lockable>
class NUBEX_SCOPED_CAPABILITY Lock {
public:
    explicit Lock(Lockable& mutex) NUBEX_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~Lock() NUBEX_RELEASE() { mutex_.unlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    Lockable& mutex_;
};

// Holds a shared mutex shared for its lifetime.
class NUBEX_SCOPED_CAPABILITY SharedLock {
public:
    explicit SharedLock(SharedMutex& mutex) NUBEX_ACQUIRE_SHARED(mutex) : mutex_(mutex) { mutex_.lock_shared(); }
    ~SharedLock() NUBEX_RELEASE() { mutex_.unlock_shared(); }
    SharedLock(const SharedLock&) = delete;
    SharedLock& operator=(const SharedLock&) = delete;

private:
    SharedMutex& mutex_;
};

using MutexLock = Lock<Mutex>;
using WriterLock = Lock<SharedMutex>;

}  // namespace Base
