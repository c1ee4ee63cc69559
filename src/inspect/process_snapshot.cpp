#include "inspect/process_snapshot.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdlib>
#include <utility>
#include <vector>

#include "frame/pacing.h"
#include "frame/run_state.h"
#include "inspect/detect_shell_utils.h"
#include "inspect/proc_directory.h"

static constexpr unsigned int snapshotPauseMicroseconds = 10000;
static constexpr unsigned int descriptorPauseMicroseconds = 1000;
static constexpr unsigned int descriptorsPerPause = 200;
static constexpr unsigned int descriptorsPauseMicroseconds = 400;

static constexpr unsigned int ttyMajor = 5;
static constexpr unsigned int ptmxMinor = 2;
static constexpr unsigned int firstPtsMajor = 136;

// Number of descriptors that all snapshots have examined since the module was loaded. Used for pacing only.
static std::atomic<unsigned int> descriptorsSeen{0};

static void PaceDescriptor() {
    Pause(descriptorPauseMicroseconds);
    const unsigned int seen = descriptorsSeen.fetch_add(1, std::memory_order_relaxed) + 1;
    if (seen % descriptorsPerPause == 0) {
        Pause(descriptorsPauseMicroseconds);
    }
}

// fdinfo has the mode in which the descriptor was opened (proc(5)); stat of a pipe does not.
static void AddPipe(const std::string& process, const std::string& name, unsigned long inode, ProcInfo& info) {
    const std::string flags = DetectShellUtil::ParseFromFile(process + "/fdinfo/" + name, "flags:", "%*s%s");
    if (flags.empty()) {
        return;
    }
    const unsigned long mode = strtoul(flags.c_str(), nullptr, 8) & O_ACCMODE;
    if (mode == O_RDONLY || mode == O_RDWR) {
        info.readPipes.insert(inode);
    }
    if (mode == O_WRONLY || mode == O_RDWR) {
        info.writePipes.insert(inode);
    }
}

// Takes the low 8 bits of a device number as the minor and the rest as the major. This is exact for the numbers
// compared here. A pty slave with a number of 256 or above does not count as a pty.
static void NoteTerminal(dev_t device, ProcInfo& info) {
    const unsigned long long minor = device & 0xFF;
    const unsigned long long major = static_cast<unsigned long long>(device) >> 8;
    if (major == ttyMajor && minor == ptmxMinor) {
        info.hasPtmx = true;
    } else if (major == firstPtsMajor) {
        info.hasPts = true;
    }
}

static void AddDescriptor(const std::string& process, const std::string& name, const struct stat& file,
                          ProcInfo& info) {
    const unsigned long inode = static_cast<unsigned long>(file.st_ino);
    if (S_ISSOCK(file.st_mode)) {
        info.sockets.insert(inode);
    } else if (S_ISFIFO(file.st_mode)) {
        AddPipe(process, name, inode, info);
    } else if (S_ISCHR(file.st_mode)) {
        NoteTerminal(file.st_rdev, info);
    }
}

int GetProcInfo(int pid, ProcInfo& info) {
    const std::string path = DetectShellUtil::GetProcExe(pid);
    if (path.empty()) {
        return 0;
    }
    Pause(snapshotPauseMicroseconds);
    const int ppid = DetectShellUtil::GetProcPpid(pid);
    if (ppid < 1) {
        return 0;
    }
    std::string cmdline = DetectShellUtil::GetProcCmdline(pid);
    info.cmdline = std::move(cmdline);
    info.pid = pid;
    info.path = path;
    info.ppid = ppid;
    Pause(snapshotPauseMicroseconds);
    info.hasPtmx = false;
    info.hasPts = false;
    const std::string process = "/proc/" + std::to_string(pid);
    std::vector<std::string> names;
    ScanDir((process + "/fd").c_str(), CollectDirEntry, names, true);
    for (const std::string& name : names) {
        if (NeedStop()) {
            break;
        }
        struct stat file {};
        if (stat((process + "/fd/" + name).c_str(), &file) != 0) {
            continue;
        }
        PaceDescriptor();
        AddDescriptor(process, name, file, info);
    }
    return 1;
}
