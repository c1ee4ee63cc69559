#include "frame/module_lock.h"

bool ModuleLock::Init() {
    if (!ready_) {
        ready_ = pthread_mutex_init(&mutex_, nullptr) == 0;
    }
    return ready_;
}

void ModuleLock::Destroy() {
    if (ready_) {
        pthread_mutex_destroy(&mutex_);
        ready_ = false;
    }
}

void ModuleLock::lock() {
    pthread_mutex_lock(&mutex_);
}

void ModuleLock::unlock() {
    pthread_mutex_unlock(&mutex_);
}
