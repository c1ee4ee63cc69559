#include "agent/time_master.h"

#include <cstdio>
#include <ctime>

namespace TavUtils::TimeMaster {

void GetCurrentUTC(std::string& text) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    gmtime_r(&now.tv_sec, &parts);
    char stamp[96];
    const int length = std::snprintf(stamp, sizeof(stamp), "%04d-%02d-%02dT%02d:%02d:%02d.%03ldZ", parts.tm_year + 1900,
                                     parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                                     static_cast<long>(now.tv_nsec / 1000000));
    text.assign(stamp, static_cast<size_t>(length));
}

}  // namespace TavUtils::TimeMaster
