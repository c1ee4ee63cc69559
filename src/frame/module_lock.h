// Locks that exist from the module's start to its stop.
#pragma once

#include <pthread.h>

// A mutex that each start initialises and each stop destroys. Starts and stops may be repeated: a second Init keeps an
// initialised lock, a second Destroy does nothing. Init and Destroy are called by the thread that starts and stops the
// module, Destroy only after everything that takes the lock has ended.
class ModuleLock {
public:
    ModuleLock() = default;
    ModuleLock(const ModuleLock&) = delete;
    ModuleLock& operator=(const ModuleLock&) = delete;

    // Returns false if the system refuses the mutex.
    bool Init();
    void Destroy();

    // For std::lock_guard. Any thread, between Init and Destroy.
    void lock();
    void unlock();

private:
    pthread_mutex_t mutex_{};
    bool ready_ = false;
};

// Guards intakeMap, the processes that wait for the instant scan.
inline ModuleLock pidMapLock;

// Guards socketTable.
inline ModuleLock socketTableLock;
