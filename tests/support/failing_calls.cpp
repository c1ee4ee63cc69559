#include "tests/support/failing_calls.h"

#include <linux/fs.h>
#include <pthread.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <new>

#include "tests/support/wrapped_calls.h"

static int mutexInitsUntilFailure = 0;
static int allocationsUntilFailure = 0;
static std::optional<uint32_t> answeredFlags;

static bool FailsNow(int& countdown) {
    return countdown > 0 && --countdown == 0;
}

void FailingCalls::FailMutexInit(int nth) {
    mutexInitsUntilFailure = nth;
}

void FailingCalls::FailAllocation(int nth) {
    allocationsUntilFailure = nth;
}

void FailingCalls::AnswerFlags(std::optional<uint32_t> flags) {
    answeredFlags = flags;
}

extern "C" {

int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    return FailsNow(mutexInitsUntilFailure) ? ENOMEM : __real_pthread_mutex_init(mutex, attributes);
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request != FS_IOC_GETFLAGS || !answeredFlags) {
        return __real_ioctl(fd, request, argument);
    }
    // The kernel writes 32 bits too, although the request number encodes the size of a long.
    memcpy(argument, &*answeredFlags, sizeof(uint32_t));
    return 0;
}
}

// Null where allocate throws.
template <typename Allocation>
static void* Allocate(Allocation allocate) {
    if (FailsNow(allocationsUntilFailure)) {
        return nullptr;
    }
    try {
        return allocate();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

// These replace the standard library's operators.

void* operator new(size_t bytes, const std::nothrow_t&) noexcept {
    return Allocate([bytes] { return ::operator new(bytes); });
}

void* operator new[](size_t bytes, const std::nothrow_t&) noexcept {
    return Allocate([bytes] { return ::operator new[](bytes); });
}
