#include "inspect/file_kind.h"

#include <sys/stat.h>

// Narrow ones would have stat(2) fail for a file beyond 2 GiB or dated after 2038, and so hide it from every question.
static_assert(sizeof(off_t) == 8 && sizeof(ino_t) == 8 && sizeof(time_t) == 8);

bool IsRegularFile(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}
