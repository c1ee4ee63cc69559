#include "inspect/socket_table_reader.h"

#include <ctime>
#include <mutex>
#include <optional>
#include <tuple>

#include "frame/file_handle.h"
#include "frame/log.h"
#include "frame/module_lock.h"
#include "frame/pacing.h"
#include "frame/run_state.h"
#include "inspect/detect_shell_utils.h"
#include "inspect/socket_table_line.h"

static constexpr char logSource[] = "detect_shell";

static constexpr size_t lineSize = 1024;
static constexpr size_t largestTable = 50000;
static constexpr unsigned int linePauseMicroseconds = 5000;
static constexpr unsigned int tablePauseMicroseconds = 1000;
static constexpr unsigned int entryPauseMicroseconds = 200;

using SocketMap = std::map<unsigned long, SocketInfo>;

static void LogNewSocket(const SocketInfo& info) {
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "[newSocketinode=%lu localPort=%d remotePort=%d]", info.inode,
               info.localPort, info.remotePort);
}

// A socket that changes in one of these counts as new.
static auto ConnectionOf(const SocketInfo& info) {
    return std::tie(info.state, info.remotePort, info.remoteIp, info.localIp);
}

static void AddSocket(const SocketInfo& info, const SocketMap& known, SocketMap& fresh) {
    if (known.contains(info.inode) && ConnectionOf(known.at(info.inode)) == ConnectionOf(info)) {
        fresh[info.inode] = known.at(info.inode);
        return;
    }
    fresh[info.inode] = info;
    LogNewSocket(info);
}

static void ReadTable(FILE* file, int type, const SocketMap& known, SocketMap& fresh) {
    char line[lineSize];
    while (fgets(line, sizeof(line), file) != nullptr) {
        if (NeedStop()) {
            return;
        }
        Pause(linePauseMicroseconds);
        const std::optional<SocketInfo> info = ParseSocketLine(line, type);
        if (!info) {
            continue;
        }
        AddSocket(*info, known, fresh);
        if (fresh.size() > largestTable) {
            return;
        }
    }
}

// All new sockets of a read get the time at the end of the read.
static void StampNewSockets(SocketMap& fresh) {
    const long now = static_cast<long>(time(nullptr));
    for (auto& [inode, info] : fresh) {
        if (info.firstSeen == 0) {
            info.firstSeen = now;
            LogNewSocket(info);
        }
        Pause(entryPauseMicroseconds);
    }
}

void ReadSocketTables(const SocketMap& known) {
    SocketMap fresh;
    int type = 0;
    for (const char* const table : socketTableFiles) {
        ++type;
        FileStream file(DetectShellUtil::OpenFile(table));
        if (file == nullptr) {
            continue;
        }
        ReadTable(file.get(), type, known, fresh);
        file.reset();
        Pause(tablePauseMicroseconds);
    }
    if (fresh.size() > largestTable) {
        MODULE_LOG(normalLog, LOG_LEVEL_LIFECYCLE, "Socket tables exceed.[maxSocketNum=%zu]", largestTable);
    }
    StampNewSockets(fresh);
    // The old contents are freed with fresh, after the lock is released.
    const std::lock_guard guard(socketTableLock);
    socketTable.swap(fresh);
}
