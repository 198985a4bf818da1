#ifndef NORVA_MUTEX_H
#define NORVA_MUTEX_H

class wxMutex;

// Non-recursive lock over the platform mutex. Take it with MutexLock
// (a scoped guard) inside the library; never lock it twice on one path.
class mutex {
public:
    mutex();
    virtual ~mutex();
    void lock();
    void unlock();

    mutex(const mutex&) = delete;
    mutex& operator=(const mutex&) = delete;

private:
    wxMutex* m_pMutex;
};

#endif
