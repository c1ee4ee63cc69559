#include "host/base/this_thread.h"

#include <pthread.h>

namespace Host {
namespace {

thread_local const WakeSignal* stopOfThisThread = nullptr;

}  // namespace

void NameThisThread(const std::string& name) {
    // The kernel rejects a longer name instead of cutting it.
    constexpr size_t longestName = 15;
    pthread_setname_np(pthread_self(), name.substr(0, longestName).c_str());
}

const WakeSignal* ThisThreadsStop() {
    return stopOfThisThread;
}

void SetThisThreadsStop(const WakeSignal* stop) {
    stopOfThisThread = stop;
}

}  // namespace Host
