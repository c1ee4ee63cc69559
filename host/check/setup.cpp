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
        report.Limited(file, "cannot be read; the agent does not know the shells that it lists",
                       "Make it readable, or create it with the absolute paths of shells, one per line");
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
        detail += "; ignored because they do not exist: " + Joined(absent);
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
        report.Missing("module", error.substr(0, error.find_last_not_of('.') + 1),
                       "Without it the agent does not start");
        report.Lacks(Facility::module, "the module cannot be loaded");
    }
}

void CheckLocation(CheckReport& report) {
    const std::string reason = WhySearchIsOff();
    if (reason.empty()) {
        report.Ok(Published::locationVariable, "not set");
    } else {
        report.Limited(Published::locationVariable,
                       "set in the environment; the agent does not search for reverse shells", "Unset it");
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
                       "Add the absolute path of an existing shell to " + shellsFile);
        report.Lacks(Facility::module, "no listed shell exists, so the module does not start");
    } else {
        report.Ok("shells", std::to_string(resolved.size()) + " found");
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
        report.Ok("file flags", "readable for all shells");
    } else {
        const std::string finding = "not readable for " + Joined(failed) + ": " + ErrorText(lastError);
        report.Limited("file flags", finding + "; changes of them are not reported",
                       "Keep the shells on a file system that has flags, such as ext4, xfs or btrfs");
        report.Lacks(Facility::fileFlags, "file flags are " + finding);
    }
}

}  // namespace Host
