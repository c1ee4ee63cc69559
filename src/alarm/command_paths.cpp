#include "alarm/command_paths.h"

#include <sys/stat.h>

#include "agent/env.h"
#include "agent/files.h"
#include "agent/strings.h"

std::set<std::string> CmdPaths(const std::string& command) {
    std::set<std::string> paths;
    const char* searchPath = TavUtils::Env::GetEnv("PATH");
    if (command.empty() || searchPath == nullptr) {
        return paths;
    }
    for (const std::string& directory : TavUtils::StringProcess::StrSplit(searchPath, ":", false)) {
        const std::string path = TavUtils::FileAttribute::GetRealPath(directory + "/" + command);
        struct stat info {};
        if (!path.empty() && stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode)) {
            paths.insert(path);
        }
    }
    return paths;
}
