// System calls and allocations that fail, or return a given answer, on request.
#pragma once

#include <cstdint>
#include <optional>

namespace FailingCalls {

// The nth call of pthread_mutex_init from now (1 is the next) fails with ENOMEM; all others work. 0 cancels.
void FailMutexInit(int nth);

// The same for new (std::nothrow), of objects and arrays, which returns null.
void FailAllocation(int nth);

// FS_IOC_GETFLAGS returns these flags for any file; nullopt cancels.
void AnswerFlags(std::optional<uint32_t> flags);

}  // namespace FailingCalls
