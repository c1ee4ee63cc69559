#include "host/base/this_thread.h"

#include <pthread.h>

namespace Host {

void NameThisThread(const std::string& name) {
    // The kernel's limit; a longer name is refused as a whole instead of being cut.
    constexpr size_t longestName = 15;
    pthread_setname_np(pthread_self(), name.substr(0, longestName).c_str());
}

}  // namespace Host
