#include "frame/pacing.h"

#include <cerrno>
#include <ctime>

void Pause(unsigned int microseconds) {
    timespec left{};
    left.tv_sec = static_cast<time_t>(microseconds / 1000000U);
    left.tv_nsec = static_cast<long>(microseconds % 1000000U) * 1000L;
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
}
