#include "host/system/status_board.h"

#include <mutex>

#include "agent/status.h"
#include "host/base/log.h"

namespace {

constexpr size_t maxFunctions = 256;

struct Board {
    std::mutex mutex;
    std::map<std::string, Host::FunctionStatus> functions;
};

// Never destroyed: a module's threads may report while the process exits.
Board& TheBoard() {
    static Board& board = *new Board;
    return board;
}

}  // namespace

void Plugs::StatusCollect::ReportDetectStatus(const std::string& name, bool running, const char* code) {
    const std::string codeText = code == nullptr ? "" : code;
    {
        Board& board = TheBoard();
        const std::lock_guard<std::mutex> guard(board.mutex);
        if (board.functions.size() < maxFunctions || board.functions.count(name) != 0) {
            board.functions[name] = Host::FunctionStatus{running, codeText};
        }
    }
    LogInfo("detection function %s is %s, code %s", name.c_str(), running ? "running" : "not running",
            codeText.empty() ? "(none)" : codeText.c_str());
}

std::map<std::string, Host::FunctionStatus> Host::DetectionStatus() {
    Board& board = TheBoard();
    const std::lock_guard<std::mutex> guard(board.mutex);
    return board.functions;
}
