// System calls and allocations that fail on request.
#pragma once

namespace FailingCalls {

// pthread_mutex_init fails with ENOMEM on its call number nth from now (1 is the next one) and works before and after.
// 0 takes the request back.
void FailMutexInit(int nth);

// The same for array allocations of the non-throwing kind.
void FailAllocation(int nth);

}  // namespace FailingCalls
