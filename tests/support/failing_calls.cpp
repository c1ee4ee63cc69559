#include "tests/support/failing_calls.h"

#include <pthread.h>

#include <cerrno>
#include <new>

static int mutexInitsUntilFailure = 0;
static int allocationsUntilFailure = 0;

static bool FailsNow(int& countdown) {
    return countdown > 0 && --countdown == 0;
}

void FailingCalls::FailMutexInit(int nth) {
    mutexInitsUntilFailure = nth;
}

void FailingCalls::FailAllocation(int nth) {
    allocationsUntilFailure = nth;
}

extern "C" {

int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    return FailsNow(mutexInitsUntilFailure) ? ENOMEM : __real_pthread_mutex_init(mutex, attributes);
}
}

// Replaces the library's, as the language allows a program to.
void* operator new[](size_t bytes, const std::nothrow_t&) noexcept {
    if (FailsNow(allocationsUntilFailure)) {
        return nullptr;
    }
    try {
        return ::operator new[](bytes);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
