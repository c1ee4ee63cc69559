#include "host/watch/rename_pairs.h"

#include <algorithm>
#include <utility>

namespace Host {

std::optional<ChangeSide> RenamePairs::Keep(uint32_t cookie, ChangeSide from, Clock::Time now) {
    std::optional<ChangeSide> oldest;
    if (halves_.size() >= capacity) {
        oldest = std::move(halves_.front().from);
        halves_.pop_front();
    }
    halves_.push_back({cookie, std::move(from), now + patience, batch_});
    return oldest;
}

std::optional<ChangeSide> RenamePairs::Take(uint32_t cookie) {
    const auto found =
        std::find_if(halves_.begin(), halves_.end(), [&](const Half& half) { return half.cookie == cookie; });
    if (found == halves_.end()) {
        return std::nullopt;
    }
    ChangeSide from = std::move(found->from);
    halves_.erase(found);
    return from;
}

std::vector<ChangeSide> RenamePairs::TakeOverdue(Clock::Time now, bool isQuiet) {
    std::vector<ChangeSide> overdue;
    while (!halves_.empty() && halves_.front().due <= now && (isQuiet || halves_.front().batch < batch_)) {
        overdue.push_back(std::move(halves_.front().from));
        halves_.pop_front();
    }
    return overdue;
}

std::optional<Clock::Time> RenamePairs::Due() const {
    return halves_.empty() ? std::nullopt : std::optional(halves_.front().due);
}

}  // namespace Host
