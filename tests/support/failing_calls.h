// System calls and allocations that fail, or answer what the host's would not, on request.
#pragma once

#include <cstdint>
#include <optional>

namespace FailingCalls {

// pthread_mutex_init fails with ENOMEM on its call number nth from now (1 is the next one) and works before and after.
// 0 takes the request back.
void FailMutexInit(int nth);

// The same for array allocations of the non-throwing kind.
void FailAllocation(int nth);

// The ioctl FS_IOC_GETFLAGS answers these flags for any file; nothing takes the request back.
void AnswerFlags(std::optional<uint32_t> flags);

}  // namespace FailingCalls
