#ifndef NORVA_PRIVATE_MUTEXLOCK_H
#define NORVA_PRIVATE_MUTEXLOCK_H

#include "mutex.h"

// Holds a mutex for the lifetime of a scope. The only way the library takes
// its locks, so that no path can leave one held.
class MutexLock {
public:
    explicit MutexLock(mutex& m) : m_mutex(m) { m_mutex.lock(); }
    ~MutexLock() { m_mutex.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    mutex& m_mutex;
};

#endif
