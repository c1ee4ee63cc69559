#include "inspect/stackless_wait.h"

#include <fcntl.h>
#include <unistd.h>

#include "frame/file_handle.h"
#include "frame/pacing.h"
#include "inspect/socket_queue.h"
#include "inspect/socket_table.h"
#include "inspect/wait_channel.h"

static constexpr size_t longestText = 512;
static constexpr unsigned int filePauseMicroseconds = 500;
static constexpr unsigned int stagePauseMicroseconds = 5000;

static constexpr char pipeRead[] = "pipe_read";
static constexpr char inetRead[] = "inet_recvmsg";
static constexpr char unixStreamRead[] = "unix_stream_recvmsg";
static constexpr char selectCall[] = "do_select";

// Empty if the file cannot be read.
static std::string ReadFileOfProcess(long pid, const char* name) {
    const FileDescriptor file(open(("/proc/" + std::to_string(pid) + name).c_str(), O_RDONLY | O_CLOEXEC));
    if (file.Get() == -1) {
        return {};
    }
    char text[longestText];
    const ssize_t length = read(file.Get(), text, sizeof(text));
    Pause(filePauseMicroseconds);
    return length == -1 ? std::string() : std::string(text, static_cast<size_t>(length));
}

std::optional<unsigned int> DescriptorOfWait(const std::string& function, const BlockedCall& call, Machine machine,
                                             bool numbersAreRight) {
    if (function == selectCall) {
        // The first argument of select(2) is the number of descriptors it watches.
        const bool isSelect = !numbersAreRight || IsSelectCall(machine, call.number);
        return isSelect && call.firstArgument == 1 ? std::optional<unsigned int>(0) : std::nullopt;
    }
    // The names in wchan of pipes are those of reads alone.
    const bool isRead = function == pipeRead || !numbersAreRight || IsReadingCall(machine, call.number);
    return isRead ? std::optional<unsigned int>(call.firstArgument) : std::nullopt;
}

static bool IsInInternetTable(unsigned long inode) {
    SocketInfo known;
    if (FindSocketByInode(inode, known)) {
        return true;
    }
    Pause(stagePauseMicroseconds);
    return FindSocketQueues(inode).has_value();
}

// A right number says that the call reads, so the queues need not: a reader may leave bytes unread (SO_RCVLOWAT), and
// its own last output may not be acknowledged yet.
static bool IsReadOfInternetSocket(unsigned long inode, bool numbersAreRight) {
    if (numbersAreRight) {
        return IsInInternetTable(inode);
    }
    // Without the number, a write to a full socket, whose bytes wait for the peer, looks like a read.
    Pause(stagePauseMicroseconds);
    const std::optional<SocketQueues> queues = FindSocketQueues(inode);
    return queues && queues->unread == 0 && queues->unsent == 0;
}

static bool IsKindOfFile(const std::string& function, const struct stat& file, bool numbersAreRight) {
    const unsigned long inode = static_cast<unsigned long>(file.st_ino);
    if (function == pipeRead) {
        return S_ISFIFO(file.st_mode);
    }
    if (function == inetRead) {
        return S_ISSOCK(file.st_mode) && IsReadOfInternetSocket(inode, numbersAreRight);
    }
    if (function == unixStreamRead) {
        return S_ISSOCK(file.st_mode) && !IsInInternetTable(inode);
    }
    return true;
}

bool GetBlockedFdStatWithoutStack(long pid, const std::string& function, bool numbersAreRight, struct stat* out) {
    if (!IsChannelOfWait(function, ReadFileOfProcess(pid, "/wchan"))) {
        return false;
    }
    Pause(stagePauseMicroseconds);
    const std::optional<BlockedCall> call = ParseBlockedCall(ReadFileOfProcess(pid, "/syscall"));
    const std::optional<unsigned int> fd =
        call ? DescriptorOfWait(function, *call, thisMachine, numbersAreRight) : std::nullopt;
    if (!fd) {
        return false;
    }
    struct stat file {};
    const std::string path = "/proc/" + std::to_string(pid) + "/fd/" + std::to_string(*fd);
    if (stat(path.c_str(), &file) != 0 || !IsKindOfFile(function, file, numbersAreRight)) {
        return false;
    }
    *out = file;
    return true;
}
