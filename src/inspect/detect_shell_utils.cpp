#include "inspect/detect_shell_utils.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <memory>
#include <new>

#include "agent/bounds_checked.h"
#include "agent/files.h"
#include "agent/strings.h"
#include "frame/file_handle.h"
#include "frame/log.h"
#include "frame/pacing.h"
#include "frame/run_state.h"

static constexpr char logSource[] = "detect_shell_utils";

static constexpr size_t blockSize = 4096;
static constexpr size_t bufferSize = 4097;  // a block and its end
static constexpr size_t lineSize = 1024;
static constexpr unsigned int blockPauseMicroseconds = 1000;
static constexpr unsigned int bytePauseMicroseconds = 500;
static constexpr unsigned int linePauseMicroseconds = 500;

// With narrower types stat(2) would fail for a file larger than 2 GiB or dated after 2038, which would hide it.
static_assert(sizeof(off_t) == 8 && sizeof(ino_t) == 8 && sizeof(time_t) == 8);

static std::string ProcPath(int pid, const char* suffix) {
    return "/proc/" + std::to_string(pid) + suffix;
}

// A link in /proc leads to its file even after the file was deleted. Resolved by name, a deleted file does not exist.
static std::string RealPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&free)> resolved(realpath(path.c_str(), nullptr), &free);
    return resolved == nullptr ? std::string() : std::string(resolved.get());
}

// Reads up to the first line that begins with key, in any case.
static bool FindLine(FILE* file, const std::string& key, char (&line)[lineSize]) {
    while (fgets(line, sizeof(line), file) != nullptr) {
        Pause(linePauseMicroseconds);
        if (strncasecmp(line, key.c_str(), key.size()) == 0) {
            return true;
        }
    }
    return false;
}

// Makes a block of a file a text that ends at its first zero byte.
static void BlockToText(char* block, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        const bool last = i + 1 == length;
        if (!last && block[i] == '\0') {
            block[i] = ' ';
        } else if (last && block[i] == '\n') {
            block[i] = '\0';
        }
        Pause(bytePauseMicroseconds);
    }
}

int DetectShellUtil::OpenFileFd(std::string path) {
    // If the path does not resolve, it is empty here, which open refuses. A FIFO in place of the file must not block
    // the thread until somebody writes to it.
    return open(RealPath(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

FILE* DetectShellUtil::OpenFile(std::string path) {
    const int fd = OpenFileFd(std::move(path));
    // Null also for -1, which close ignores.
    FILE* stream = fdopen(fd, "r");
    if (stream == nullptr) {
        close(fd);
    }
    return stream;
}

std::string DetectShellUtil::ReadFileContent(const std::string& path) {
    const FileDescriptor file(OpenFileFd(path));
    if (file.Get() == -1) {
        return "";
    }
    const std::unique_ptr<char[]> block(new (std::nothrow) char[bufferSize]);
    if (block == nullptr) {
        MODULE_LOG(normalLog, LOG_LEVEL_ERROR, "Alloc buf memory failed.");
        return "";
    }
    std::string text;
    for (ssize_t count{}; (count = read(file.Get(), block.get(), blockSize)) > 0;) {
        const size_t length = static_cast<size_t>(count);
        block[length] = '\0';
        Pause(blockPauseMicroseconds);
        BlockToText(block.get(), length);
        text += block.get();
        // A process can give itself a command line that takes hours to read at this pace (PR_SET_MM_MAP of prctl(2)). A
        // stop must not wait for its end.
        if (StopHasBegun()) {
            break;
        }
    }
    return TavUtils::StringProcess::StrTrim(text);
}

std::string DetectShellUtil::ParseFromFile(std::string path, const std::string& key, const std::string& format) {
    if (key.empty() || format.empty()) {
        return "";
    }
    const FileStream file(OpenFile(std::move(path)));
    char line[lineSize];
    if (file == nullptr || !FindLine(file.get(), key, line)) {
        return "";
    }
    char value[lineSize] = {};
    if (sscanf_s(line, format.c_str(), value, sizeof(value)) == -1) {
        return "";
    }
    return value;
}

std::string DetectShellUtil::GetProcCmdline(int pid) {
    return ReadFileContent(ProcPath(pid, "/cmdline"));
}

std::string DetectShellUtil::GetProcExe(int pid) {
    return TavUtils::FileAttribute::GetRealLink(ProcPath(pid, "/exe"));
}

std::string DetectShellUtil::GetProcCwd(int pid) {
    return TavUtils::FileAttribute::GetRealLink(ProcPath(pid, "/cwd"));
}

std::string DetectShellUtil::GetScriptFilePath(int pid) {
    const std::string path = TavUtils::FileAttribute::GetRealLink(ProcPath(pid, "/fd/255"));
    return IsRegularFile(path) ? path : "";
}

bool DetectShellUtil::IsRegularFile(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

bool DetectShellUtil::IsProcExist(int pid) {
    struct stat info {};
    return stat(ProcPath(pid, "").c_str(), &info) == 0;
}

int DetectShellUtil::GetProcPpid(int pid) {
    const std::string ppid = ParseFromFile(ProcPath(pid, "/status"), "PPid:", "%*s%s");
    return ppid.empty() ? -1 : static_cast<int>(strtoll(ppid.c_str(), nullptr, 10));
}

int DetectShellUtil::ParseWriteCharsNum(int pid) {
    const std::string written = ParseFromFile(ProcPath(pid, "/io"), "wchar:", "%*s%s");
    // Where long has 32 bits, strtol already applies these limits.
    return static_cast<int>(std::clamp<long>(strtol(written.c_str(), nullptr, 10), INT_MIN, INT_MAX));
}

unsigned long long DetectShellUtil::GetProcStartJiff(int pid) {
    const std::unique_ptr<char[]> stat(new (std::nothrow) char[bufferSize]);
    if (stat == nullptr) {
        MODULE_LOG(normalLog, LOG_LEVEL_ERROR, "Alloc buf memory failed.");
        return 0;
    }
    memset_s(stat.get(), bufferSize, 0, bufferSize);
    FileStream file(OpenFile(ProcPath(pid, "/stat")));
    if (file == nullptr) {
        return 0;
    }
    if (fgets(stat.get(), blockSize, file.get()) == nullptr) {
        MODULE_LOG(normalLog, LOG_LEVEL_ERROR, "read stat failed\n");
        return 0;
    }
    return StartJiffOfStat(stat.get());
}

unsigned long long DetectShellUtil::StartJiffOfStat(const char* stat) {
    // Stays 0 if the text has too few fields.
    unsigned long long ticks = 0;
    sscanf_s(stat, "%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%llu", &ticks);
    return ticks;
}

unsigned long long DetectShellUtil::TicksToMilliseconds(unsigned long long ticks, long hz) {
    static constexpr unsigned long long largestFactor = ULLONG_MAX / 1000;
    if (hz <= 0) {
        return 0;
    }
    const unsigned long long ticksPerSecond = static_cast<unsigned long long>(hz);
    if (ticks <= largestFactor) {
        return ticks * 1000 / ticksPerSecond;
    }
    const unsigned long long seconds = ticks / ticksPerSecond;
    return seconds <= largestFactor ? seconds * 1000 : 0;
}

unsigned long long DetectShellUtil::GetProcUpMs(int pid) {
    const unsigned long long ticks = GetProcStartJiff(pid);
    return TicksToMilliseconds(ticks, sysconf(_SC_CLK_TCK));
}
