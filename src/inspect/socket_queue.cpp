#include "inspect/socket_queue.h"

#include <cstdio>
#include <cstring>

#include "agent/bounds_checked.h"
#include "frame/file_handle.h"
#include "frame/pacing.h"
#include "frame/run_state.h"
#include "inspect/socket_table_line.h"
#include "inspect/socket_table_reader.h"

static constexpr size_t lineSize = 1024;
static constexpr int mostLines = 50000;
static constexpr unsigned int tablePauseMicroseconds = 500;

std::optional<SocketQueues> ParseSocketQueues(const std::string& line, int type, unsigned long inode) {
    const std::optional<SocketInfo> info = ParseSocketLine(line, type);
    if (!info || info->inode != inode) {
        return std::nullopt;
    }
    SocketQueues queues;
    if (type != sctpTable && sscanf_s(line.c_str(), "%*s%*s%*s%*s%lx:%lx", &queues.unsent, &queues.unread) != 2) {
        return std::nullopt;
    }
    return queues;
}

static std::optional<SocketQueues> FindInTable(FILE* table, int type, unsigned long inode, int& linesLeft) {
    const std::string digits = std::to_string(inode);
    char line[lineSize];
    while (linesLeft > 0 && !StopHasBegun() && fgets(line, sizeof(line), table) != nullptr) {
        --linesLeft;
        // Most lines are those of other sockets, and a search is far cheaper than parsing.
        if (strstr(line, digits.c_str()) == nullptr) {
            continue;
        }
        const std::optional<SocketQueues> queues = ParseSocketQueues(line, type, inode);
        if (queues) {
            return queues;
        }
    }
    return std::nullopt;
}

std::optional<SocketQueues> FindSocketQueues(unsigned long inode) {
    int linesLeft = mostLines;
    int type = 0;
    for (const char* const name : socketTableFiles) {
        ++type;
        const FileStream table(fopen(name, "re"));
        if (table == nullptr) {
            continue;
        }
        const std::optional<SocketQueues> queues = FindInTable(table.get(), type, inode, linesLeft);
        Pause(tablePauseMicroseconds);
        if (queues) {
            return queues;
        }
    }
    return std::nullopt;
}
