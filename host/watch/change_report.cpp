#include "host/watch/change_report.h"

#include <algorithm>
#include <set>

namespace Host {

namespace {

using Listener = const TavUtils::Monitor::FileWatchCallback*;

constexpr unsigned Bit(FileOperation operation) {
    return 1U << operation;
}
constexpr unsigned anyOperation = ~0U;

// Names that lead to a file through a link come after its own, and names by way of a directory's rule after both.
constexpr int linkedRank = 1;
constexpr int otherNameRank = 2;
constexpr int directoryRank = 4;

Spelling Spell(const WatchedRule& rule, int rank, std::string path) {
    const TavUtils::Monitor::FileWatchRule& wishes = rule.rule;
    const unsigned operations =
        (wishes.onAttribute ? Bit(FILE_ATTRIBUTE) : 0) | (wishes.onModify ? Bit(FILE_MODIFIED) : 0) |
        (wishes.onDelete ? Bit(FILE_DELETED) : 0) | (wishes.onMove ? Bit(FILE_MOVED) : 0) |
        (wishes.onMovedFrom ? Bit(FILE_MOVED_FROM) : 0) | (wishes.onMovedTo ? Bit(FILE_MOVED_TO) : 0);
    return {wishes.callback.get(), rule.handle, rank, operations, std::move(path)};
}

// The closest spelling of a listener that asks for one of the operations; null if there is none.
const Spelling* Closest(const ChangeSide& side, Listener listener, unsigned operations) {
    const Spelling* best = nullptr;
    for (const Spelling& each : side.spellings) {
        const bool isOne = each.listener == listener && (each.operations & operations) != 0;
        if (isOne && (best == nullptr || each.rank < best->rank)) {
            best = &each;
        }
    }
    return best;
}

// Each listener once, the one of the oldest rule first.
std::vector<Listener> Listeners(const ChangeSide& side) {
    std::vector<Listener> listeners;
    for (const Spelling& each : side.spellings) {
        if (std::find(listeners.begin(), listeners.end(), each.listener) == listeners.end()) {
            listeners.push_back(each.listener);
        }
    }
    return listeners;
}

std::optional<std::string> NameFor(const ChangeSide& side, Listener listener) {
    if (const Spelling* const own = Closest(side, listener, anyOperation)) {
        return own->path;
    }
    return side.plainPath.empty() ? std::nullopt : std::optional(side.plainPath);
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

void AppendReports(const ChangeSide& side, FileOperation operation, const std::string& detail,
                   std::vector<ChangeReport>& reports) {
    for (const Listener listener : Listeners(side)) {
        if (const Spelling* const best = Closest(side, listener, Bit(operation))) {
            reports.push_back({best->handle, operation, best->path, std::nullopt, detail});
        }
    }
}

void AppendMove(const ChangeSide& from, const ChangeSide& to, std::vector<ChangeReport>& reports) {
    ChangeSide both = from;
    both.spellings.insert(both.spellings.end(), to.spellings.begin(), to.spellings.end());
    for (const Listener listener : Listeners(both)) {
        if (const Spelling* const asker = Closest(both, listener, Bit(FILE_MOVED))) {
            reports.push_back({asker->handle, FILE_MOVED, NameFor(from, listener), NameFor(to, listener), {}});
        } else if (const Spelling* const left = Closest(from, listener, Bit(FILE_MOVED_FROM))) {
            reports.push_back({left->handle, FILE_MOVED_FROM, left->path, NameFor(to, listener), {}});
        } else if (const Spelling* const came = Closest(to, listener, Bit(FILE_MOVED_TO))) {
            reports.push_back({came->handle, FILE_MOVED_TO, came->path, NameFor(from, listener), {}});
        }
    }
}

void AppendHalfMove(const ChangeSide& side, FileOperation operation, std::vector<ChangeReport>& reports) {
    for (const Listener listener : Listeners(side)) {
        if (const Spelling* const asker = Closest(side, listener, Bit(operation))) {
            reports.push_back({asker->handle, operation, asker->path, std::nullopt, {}});
        } else if (const Spelling* const mover = Closest(side, listener, Bit(FILE_MOVED))) {
            reports.push_back({mover->handle, FILE_MOVED, mover->path, std::nullopt, {}});
        }
    }
}

}  // namespace Host
