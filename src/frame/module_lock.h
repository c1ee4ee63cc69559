// The module's locks, which live from one start to the next stop.
#pragma once

#include <pthread.h>

// A mutex that is set up by each start and taken down by each stop, neither of which is guaranteed to come only once:
// a second Init leaves a lock that is ready as it is, a second Destroy does nothing. Init and Destroy are called by the
// thread that starts and stops the module, Destroy only once everything that takes the lock has ended.
class ModuleLock {
public:
    ModuleLock() = default;
    ModuleLock(const ModuleLock&) = delete;
    ModuleLock& operator=(const ModuleLock&) = delete;

    // False if the system refuses the mutex.
    bool Init();
    void Destroy();

    // For std::lock_guard. Any thread, between Init and Destroy.
    void lock();
    void unlock();

private:
    pthread_mutex_t mutex_{};
    bool ready_ = false;
};

// Guards the processes that wait to be looked at by the instant scan.
inline ModuleLock pidMapLock;

// Guards the table of the host's sockets.
inline ModuleLock socketTableLock;
