#include "inspect/kernel_wait.h"

#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include "agent/bounds_checked.h"
#include "agent/strings.h"
#include "frame/file_handle.h"
#include "frame/log.h"
#include "frame/pacing.h"
#include "inspect/kernel_wait_names.h"
#include "inspect/stackless_wait.h"

static constexpr char logSource[] = "detect_shell";

static constexpr size_t lineSize = 4096;
static constexpr unsigned int stackLinePauseMicroseconds = 500;
static constexpr unsigned int stagePauseMicroseconds = 5000;

static constexpr char pipeRead[] = "pipe_read";
static constexpr char inetRead[] = "inet_recvmsg";
static constexpr char unixStreamRead[] = "unix_stream_recvmsg";
static constexpr char selectCall[] = "do_select";

static std::unique_ptr<char[]> AllocateLine() {
    std::unique_ptr<char[]> line(new (std::nothrow) char[lineSize]);
    if (line == nullptr) {
        MODULE_LOG(normalLog, LOG_LEVEL_ERROR, "Alloc line memory failed.");
    }
    return line;
}

static FileStream OpenOfProcess(long pid, const char* name) {
    return FileStream(fopen(("/proc/" + std::to_string(pid) + name).c_str(), "re"));
}

// Reads one line into the cleared buffer and replaces its newline by a terminator. Returns false at the end of the file
// and for a line that does not fit. isEnded receives whether the line had a newline.
static bool ReadLine(FILE* stream, char* line, bool& isEnded) {
    memset_s(line, lineSize, 0, lineSize);
    if (fgets(line, lineSize, stream) == nullptr) {
        return false;
    }
    // Not strchr: the line may contain zero bytes.
    char* const newline = static_cast<char*>(memchr(line, '\n', lineSize));
    isEnded = newline != nullptr;
    if (isEnded) {
        *newline = '\0';
    }
    return isEnded || feof(stream) != 0;
}

bool IsStackFrameOf(const std::string& line, const std::string& function) {
    const std::vector<std::string> pieces = TavUtils::StringProcess::StrSplit(line, " ", false);
    if (pieces.size() != 2) {
        return false;
    }
    const std::string_view symbol = pieces[1];
    const size_t plus = symbol.find('+');
    return plus != std::string_view::npos && IsNameOfWait(function, symbol.substr(0, plus));
}

// True if the stream has nothing to read: the file is empty, or reading it is refused.
static bool IsAtEnd(FILE* stream) {
    const int next = fgetc(stream);
    return next == EOF || ungetc(next, stream) == EOF;
}

namespace {
enum class OnStack { yes, no, noStack };
}  // namespace

static OnStack IsOnKernelStack(long pid, const std::string& function) {
    const FileStream stack = OpenOfProcess(pid, "/stack");
    if (stack == nullptr || IsAtEnd(stack.get())) {
        return OnStack::noStack;
    }
    const std::unique_ptr<char[]> line = AllocateLine();
    if (line == nullptr) {
        return OnStack::no;
    }
    bool isEnded = false;
    while (ReadLine(stack.get(), line.get(), isEnded) && isEnded) {
        Pause(stackLinePauseMicroseconds);
        if (IsStackFrameOf(line.get(), function)) {
            return OnStack::yes;
        }
    }
    return OnStack::no;
}

std::optional<unsigned long> BlockedDescriptor(const char* line, const std::string& function) {
    unsigned long fd = 0;
    if (sscanf_s(line, "%*d%lx", &fd) == -1) {
        return std::nullopt;
    }
    // The file shows the whole register. The kernel uses its low 32 bits as descriptor or count, so a process must not
    // be able to hide by setting higher bits.
    fd &= 0xFFFFFFFFUL;
    if (function != selectCall) {
        return fd;
    }
    // The first argument of select(2) is the number of descriptors it watches.
    return fd == 1 ? std::optional<unsigned long>(0) : std::nullopt;
}

static std::optional<unsigned long> ReadBlockedDescriptor(long pid, const std::string& function) {
    const FileStream call = OpenOfProcess(pid, "/syscall");
    if (call == nullptr) {
        return std::nullopt;
    }
    const std::unique_ptr<char[]> line = AllocateLine();
    if (line == nullptr) {
        return std::nullopt;
    }
    bool isEnded = false;
    return ReadLine(call.get(), line.get(), isEnded) ? BlockedDescriptor(line.get(), function) : std::nullopt;
}

bool GetBlockedFdStat(long pid, std::string function, struct stat* out) {
    const OnStack place = IsOnKernelStack(pid, function);
    if (place == OnStack::noStack) {
        return GetBlockedFdStatWithoutStack(pid, function, AreCallNumbersRight(), out);
    }
    if (place == OnStack::no) {
        return false;
    }
    Pause(stagePauseMicroseconds);
    const std::optional<unsigned long> fd = ReadBlockedDescriptor(pid, function);
    if (!fd) {
        return false;
    }
    const std::string path = "/proc/" + std::to_string(pid) + "/fd/" + std::to_string(*fd);
    return stat(path.c_str(), out) == 0;
}

static bool BlockedOnType(long pid, const char* function, mode_t type, unsigned long& inode) {
    struct stat file {};
    if (!GetBlockedFdStat(pid, function, &file) || (file.st_mode & S_IFMT) != type) {
        return false;
    }
    inode = static_cast<unsigned long>(file.st_ino);
    return true;
}

bool GetBlockedSockStat(std::string function, long pid, unsigned long& inode) {
    return BlockedOnType(pid, function.c_str(), S_IFSOCK, inode);
}

bool ReadingFromPipe(long pid, unsigned long& inode) {
    return BlockedOnType(pid, pipeRead, S_IFIFO, inode);
}

bool ReadingFromPipe(long pid) {
    unsigned long ignored = 0;
    return ReadingFromPipe(pid, ignored);
}

bool SelectFromPipe(long pid, unsigned long& inode) {
    return BlockedOnType(pid, selectCall, S_IFIFO, inode);
}

bool SelectFromPipe(long pid) {
    unsigned long ignored = 0;
    return SelectFromPipe(pid, ignored);
}

bool ReadingFromSock(long pid, unsigned long& inode) {
    return GetBlockedSockStat(inetRead, pid, inode);
}

bool SelectFromSock(long pid, unsigned long& inode) {
    return GetBlockedSockStat(selectCall, pid, inode);
}

bool ReadingFromUnixSock(long pid, unsigned long& inode) {
    return GetBlockedSockStat(unixStreamRead, pid, inode);
}
