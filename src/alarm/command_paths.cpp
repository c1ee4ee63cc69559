#include "alarm/command_paths.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <vector>

#include "agent/env.h"
#include "agent/files.h"
#include "agent/strings.h"
#include "frame/settings.h"
#include "inspect/detect_shell_utils.h"
#include "module/published.h"

static constexpr char neverCommon[] = "yum";
static constexpr std::string_view interpreters[] = {"perl", "python", "java", "php", "lua", "netcat", "nc", "ncat"};

// Directories of PATH in order, none if it is not set.
static std::vector<std::string> SearchPath() {
    const char* path = TavUtils::Env::GetEnv(Published::pathVariable);
    return path == nullptr ? std::vector<std::string>() : TavUtils::StringProcess::StrSplit(path, ":", false);
}

std::set<std::string> CmdPaths(const std::string& command) {
    std::set<std::string> paths;
    for (const std::string& directory : SearchPath()) {
        const std::string path = TavUtils::FileAttribute::GetRealPath(directory + "/" + command);
        if (DetectShellUtil::IsRegularFile(path)) {
            paths.insert(path);
        }
    }
    return paths;
}

// True for an interpreter's name, also with a version after it.
static bool IsInterpreter(const std::string& name) {
    return std::any_of(std::begin(interpreters), std::end(interpreters), [&name](std::string_view interpreter) {
        if (!name.starts_with(interpreter)) {
            return false;
        }
        return name.size() == interpreter.size() ||
               (name[interpreter.size()] >= '0' && name[interpreter.size()] <= '9');
    });
}

bool IsCommonCommand(const char* path) {
    if (path == nullptr) {
        return false;
    }
    if (shellPaths.contains(path)) {
        return true;
    }
    const std::string name = TavUtils::FileAttribute::GetBasename(path);
    if (name == neverCommon) {
        return false;
    }
    const std::vector<std::string> directories = SearchPath();
    const bool onPath = std::any_of(directories.begin(), directories.end(), [&name](const std::string& directory) {
        return DetectShellUtil::IsRegularFile(directory + "/" + name);
    });
    return onPath || IsInterpreter(name);
}
