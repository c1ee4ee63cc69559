#include "host/check/setup.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cerrno>

#include "agent/files.h"
#include "host/base/descriptor.h"
#include "host/detector/module.h"
#include "host/system/environment.h"
#include "module/published.h"

namespace Host {
namespace {

std::string Joined(const std::set<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

bool IsShellProgram(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

void CheckShellList(const std::string& file, std::set<std::string>& resolved, CheckReport& report) {
    std::set<std::string> listed;
    if (!TavUtils::FileOperation::ParseShellsFile(listed, file)) {
        report.Limited(file, "cannot be read; shells listed there are unknown to the agent",
                       "Write the absolute paths of shells into it, one a line, if it should list any");
        return;
    }
    std::set<std::string> present;
    std::set<std::string> absent;
    for (const std::string& shell : listed) {
        (IsShellProgram(shell) ? present : absent).insert(shell);
    }
    resolved.insert(present.begin(), present.end());
    std::string detail = present.empty() ? "lists no shell that exists" : "lists " + Joined(present);
    if (!absent.empty()) {
        detail += "; passed over because they do not exist: " + Joined(absent);
    }
    report.Ok(file, detail);
}

}  // namespace

void CheckModule(const std::optional<std::string>& named, CheckReport& report) {
    std::string error;
    const std::string path = FindModule(named, ModulePlaces(), error);
    if (!path.empty() && Module::Load(path, error)) {
        report.Ok("module", path + " can be loaded and has its four entries");
    } else {
        report.Missing("module", error, "Install it, or name it with --module");
        report.Lacks(Facility::module, "the module cannot be loaded");
    }
}

void CheckLocation(CheckReport& report) {
    const std::string reason = WhySearchIsOff();
    if (reason.empty()) {
        report.Ok(Published::locationVariable, "is not set");
    } else {
        report.Limited(Published::locationVariable, "is set in the environment",
                       "Unset it to search for reverse shells");
        report.Lacks(Facility::location, reason);
    }
}

std::set<std::string> CheckShellLists(const std::string& listFolder, const std::string& shellsFile,
                                      CheckReport& report) {
    std::set<std::string> resolved;
    CheckShellList(listFolder + "/" + Published::shellListName, resolved, report);
    CheckShellList(shellsFile, resolved, report);
    if (resolved.empty()) {
        report.Missing("shells", "neither list names a shell that exists, so the module does not start",
                       "Write the absolute path of one into " + shellsFile);
        report.Lacks(Facility::module, "no shell is listed, so that the module does not start");
    } else {
        report.Ok("shells", std::to_string(resolved.size()) + " to look after");
    }
    return resolved;
}

void CheckShellFlags(const std::set<std::string>& shells, CheckReport& report) {
    std::set<std::string> failed;
    int lastError = 0;
    for (const std::string& shell : shells) {
        const Descriptor file(::open(shell.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
        int flags = 0;
        if (!file.IsOpen() || ::ioctl(file.Get(), FS_IOC_GETFLAGS, &flags) != 0) {
            lastError = errno;
            failed.insert(shell);
        }
    }
    if (failed.empty()) {
        report.Ok("file flags", "can be read of all shells");
    } else {
        const std::string finding = "cannot be read of " + Joined(failed) + ": " + ErrorText(lastError);
        report.Limited("file flags", finding + "; a change of them is not noticed",
                       "Keep the shells on a file system that has flags, such as ext4, xfs or btrfs");
        report.Lacks(Facility::fileFlags, "file flags " + finding);
    }
}

}  // namespace Host
