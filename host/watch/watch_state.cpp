#include "host/watch/watch_state.h"

#include <algorithm>

#include "host/base/descriptor.h"

namespace Host {

int WatchState::FileAt(const Place& place) const {
    for (const auto& [handle, rule] : rules) {
        if (rule.file >= 0 && !rule.names.empty() && rule.names.back() == place) {
            return rule.file;
        }
    }
    return -1;
}

bool WatchState::IsRuleName(const Place& place) const {
    return std::any_of(rules.begin(), rules.end(), [&](const auto& each) { return each.second.HasName(place); });
}

bool WatchState::IsInUse(int file) const {
    return std::any_of(rules.begin(), rules.end(), [&](const auto& each) { return each.second.file == file; });
}

std::optional<std::string> WatchState::DirectoryPath(int directory) const {
    for (const auto& [handle, rule] : rules) {
        if (rule.isDirectory && rule.file == directory) {
            return rule.rule.path;
        }
    }
    return std::nullopt;
}

void WatchState::LearnEntry(const Place& place) {
    if (const auto path = DirectoryPath(place.watch)) {
        known.LearnEntry(place, *path);
    }
}

bool WatchState::ReadState(int file, FileState& state) {
    for (const auto& [handle, rule] : rules) {
        if (rule.file == file) {
            // The path may already lead to another file, whose events are still to come.
            const Descriptor found = OpenRulePath(rule);
            if (found.IsOpen() && watches.IsBehind(found.Get(), file) && ReadFileState(found.Get(), state)) {
                return true;
            }
        }
    }
    return false;
}

ChangeSide WatchState::SideOfRule(const WatchedRule& rule) const {
    return rule.names.empty() ? SideOfFile(rules, rule.file, std::nullopt)
                              : SideOfName(rules, watches, rule.names.front());
}

}  // namespace Host
