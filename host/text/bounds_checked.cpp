#include "agent/bounds_checked.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>

namespace {

constexpr size_t maxObjectBytes = std::numeric_limits<size_t>::max() / 2;

bool HasWriteBack(const char* format) {
    for (const char* p = format; *p != '\0'; ++p) {
        if (*p != '%') {
            continue;
        }
        ++p;
        p += std::strspn(p, "-+ #0'I123456789.*$hlqjztL");
        if (*p == 'n') {
            return true;
        }
        if (*p == '\0') {
            return false;
        }
    }
    return false;
}

}  // namespace

int memset_s(void* dest, size_t destMax, int ch, size_t count) {
    if (dest == nullptr || destMax > maxObjectBytes) {
        return EINVAL;
    }
    std::memset(dest, ch, count > destMax ? destMax : count);
    // Keeps the compiler from removing the store when nothing reads the buffer afterwards.
    __asm__ __volatile__("" : : "r"(dest) : "memory");
    return count > destMax ? ERANGE : 0;
}

int sprintf_s(char* dest, size_t destMax, const char* format, ...) {
    if (dest == nullptr || destMax == 0 || destMax > maxObjectBytes) {
        return -1;
    }
    if (format == nullptr || HasWriteBack(format)) {
        dest[0] = '\0';
        return -1;
    }
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(dest, destMax, format, arguments);
    va_end(arguments);
    if (length < 0 || static_cast<size_t>(length) >= destMax) {
        dest[0] = '\0';
        return -1;
    }
    return length;
}
