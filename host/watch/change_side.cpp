#include "host/watch/change_side.h"

#include <set>
#include <utility>

namespace Host {

namespace {

// Names that lead through a link rank after the file's own name, and names by the rule of a directory after both.
constexpr int linkedRank = 1;
constexpr int otherNameRank = 2;
constexpr int directoryRank = 4;

Spelling Spell(const WatchedRule& rule, int rank, std::string path) {
    return {rule.rule.listenerId, rule.handle, rank, rule.rule.operations, std::move(path)};
}

}  // namespace

ChangeSide SideOfName(const WatchedRules& rules, const WatchTable& watches, const Place& place) {
    ChangeSide side;
    if (const std::string directory = watches.PathOf(place.watch); !directory.empty()) {
        side.plainPath = JoinPath(directory, place.name);
    }
    for (const auto& [handle, rule] : rules) {
        if (rule.HasName(place)) {
            side.spellings.push_back(Spell(rule, rule.names.front() == place ? 0 : linkedRank, rule.rule.path));
        } else if (rule.isDirectory && rule.file == place.watch) {
            side.spellings.push_back(Spell(rule, directoryRank, JoinPath(rule.rule.path, place.name)));
        }
    }
    return side;
}

ChangeSide SideOfFile(const WatchedRules& rules, int file, const std::optional<Place>& place) {
    ChangeSide side;
    std::set<Place> places;
    if (place) {
        places.insert(*place);
    }
    for (const auto& [handle, rule] : rules) {
        if (file >= 0 && rule.file == file) {
            const bool isOther = place && !rule.HasName(*place);
            const int rank = (rule.names.size() > 1 ? linkedRank : 0) + (isOther ? otherNameRank : 0);
            side.spellings.push_back(Spell(rule, rank, rule.rule.path));
            if (!rule.names.empty()) {
                places.insert(rule.names.back());
            }
        }
    }
    for (const Place& each : places) {
        for (const auto& [handle, rule] : rules) {
            if (rule.isDirectory && rule.file == each.watch) {
                side.spellings.push_back(Spell(rule, directoryRank, JoinPath(rule.rule.path, each.name)));
            }
        }
    }
    return side;
}

}  // namespace Host
