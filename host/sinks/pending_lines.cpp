#include "host/sinks/pending_lines.h"

#include <utility>

namespace Host {

void PendingLines::Push(std::string line) {
    bytes_ += line.size();
    lines_.push_back(std::move(line));
}

void PendingLines::Pop() {
    bytes_ -= lines_.front().size();
    lines_.pop_front();
}

void PendingLines::Clear() {
    lines_.clear();
    bytes_ = 0;
}

uint64_t PendingLines::Trim(bool keepFront) {
    const size_t firstToGo = keepFront ? 1 : 0;
    uint64_t dropped = 0;
    while ((lines_.size() > maxLines || bytes_ > maxBytes) && lines_.size() > firstToGo) {
        const auto victim = lines_.begin() + static_cast<std::ptrdiff_t>(firstToGo);
        bytes_ -= victim->size();
        lines_.erase(victim);
        ++dropped;
    }
    return dropped;
}

}  // namespace Host
