#ifndef NORVA_MUTEX_H
#define NORVA_MUTEX_H

class wxMutex;

/// Non-recursive lock over the platform mutex. Take it with MutexLock
/// (a scoped guard) inside the library; never lock it twice on one path.
class mutex {
public:
    /// An unlocked lock.
    mutex();
    /// Must not be locked.
    virtual ~mutex();
    /// Waits for and takes the lock.
    void lock();
    /// Releases the lock, which the calling thread must hold.
    void unlock();

    /// Not copyable.
    mutex(const mutex&) = delete;
    mutex& operator=(const mutex&) = delete;

private:
    wxMutex* m_pMutex;
};

#endif
