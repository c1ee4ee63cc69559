#include "inspect/file_kind.h"

#include <sys/stat.h>

bool IsRegularFile(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}
