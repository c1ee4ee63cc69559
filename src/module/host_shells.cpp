#include "module/host_shells.h"

#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "agent/bounds_checked.h"
#include "agent/config.h"
#include "agent/files.h"
#include "alarm/command_paths.h"
#include "frame/log.h"
#include "frame/settings.h"
#include "module/published.h"

static constexpr char logSource[] = "detect_shell";

std::set<unsigned long> FindSshdInodes() {
    std::set<unsigned long> inodes;
    for (const std::string& cmdPath : CmdPaths("sshd")) {
        struct stat info {};
        if (stat(cmdPath.c_str(), &info) != 0) {
            continue;
        }
        const auto inode = static_cast<unsigned long>(info.st_ino);
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "[cmdPath=%s inode=%lu]", cmdPath.c_str(), inode);
        inodes.insert(inode);
    }
    return inodes;
}

static std::string SettingsDirectory() {
    TavUtils::Config& config = TavUtils::Config::GetInstance();
    const std::lock_guard<TavUtils::Config> guard(config);
    const auto& settings = config.GetConfigMap<std::string>();
    const auto directory = settings.find(Published::folderSetting);
    return directory == settings.end() ? std::string() : directory->second;
}

std::set<std::string> ListedShells() {
    std::set<std::string> listed;
    TavUtils::FileOperation::ParseShellsFile(listed, SettingsDirectory() + "/" + Published::shellListName);
    TavUtils::FileOperation::ParseShellsFile(listed, Published::hostShellList);
    return listed;
}

bool ResolveShellPaths(const std::set<std::string>& listed, std::set<std::string>& paths) {
    constexpr size_t bufferSize = 4097;
    static_assert(bufferSize > PATH_MAX);
    const std::unique_ptr<char[]> buffer(new (std::nothrow) char[bufferSize]);
    if (buffer == nullptr) {
        return false;
    }
    for (const std::string& shell : listed) {
        memset_s(buffer.get(), bufferSize, 0, bufferSize);
        if (realpath(shell.c_str(), buffer.get()) == nullptr) {
            continue;
        }
        for (const std::string& path : {std::string(buffer.get()), shell}) {
            if (!path.empty()) {
                paths.insert(path);
            }
        }
    }
    return true;
}

bool LearnHostShells() {
    shellPaths.clear();
    sshdInodes.clear();
    sshdInodes = FindSshdInodes();
    std::set<std::string> resolved;
    if (!ResolveShellPaths(ListedShells(), resolved)) {
        return false;
    }
    shellPaths = std::move(resolved);
    return !shellPaths.empty();
}
