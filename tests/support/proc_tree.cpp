#include "tests/support/proc_tree.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <system_error>

static void Check(bool done, const char* what) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

bool MayMount() {
    return geteuid() == 0;
}

static void EnterOwnMountNamespace() {
    static const bool entered = [] {
        Check(unshare(CLONE_NEWNS) == 0, "unshare");
        Check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "mount private");
        return true;
    }();
    static_cast<void>(entered);
}

ProcTree::ProcTree() {
    EnterOwnMountNamespace();
    Check(mount(folder_.Path().c_str(), "/proc", nullptr, MS_BIND, nullptr) == 0, "mount over /proc");
}

ProcTree::~ProcTree() {
    umount2("/proc", MNT_DETACH);
}

void ProcTree::Add(const ProcEntry& entry) {
    const std::string name = std::to_string(entry.pid);
    const std::filesystem::path process = folder_.Path(name);
    std::filesystem::create_directories(process);
    if (entry.hasDescriptors) {
        std::filesystem::create_directories(process / "fd");
    }
    if (!entry.exe.empty()) {
        std::filesystem::create_symlink(entry.exe, process / "exe");
    }
    if (entry.hasStatus) {
        folder_.Write(name + "/status", "Name:\tname\nUmask:\t0022\nState:\tS (sleeping)\nTgid:\t" + name +
                                            "\nNgid:\t0\nPid:\t" + name + "\nPPid:\t" + std::to_string(entry.ppid) +
                                            "\nTracerPid:\t0\nUid:\t0\t0\t0\t0\nGid:\t0\t0\t0\t0\n");
    }
    folder_.Write(name + "/cmdline", entry.cmdline);
}

void ProcTree::AddDescriptor(int pid, int fd, const std::string& link) {
    AddDescriptorEntry(pid, std::to_string(fd), link);
}

void ProcTree::AddDescriptorEntry(int pid, const std::string& name, const std::string& link) {
    std::filesystem::create_symlink(link, std::filesystem::path(folder_.Path(std::to_string(pid))) / "fd" / name);
}

void ProcTree::AddFile(int pid, const std::string& name, const std::string& text) {
    AddFile(std::to_string(pid) + "/" + name, text);
}

void ProcTree::AddFile(const std::string& name, const std::string& text) {
    folder_.Write(name, text);
}

FileOverlay::FileOverlay(const std::string& target, const std::string& content) : target_(target) {
    EnterOwnMountNamespace();
    const std::string file = folder_.Write("overlay", content);
    Check(mount(file.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) == 0, "mount over a file");
}

FileOverlay::~FileOverlay() {
    umount2(target_.c_str(), MNT_DETACH);
}
