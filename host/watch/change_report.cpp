#include "host/watch/change_report.h"

#include <algorithm>
#include <optional>

namespace Host {

namespace {

constexpr unsigned anyOperation = ~0U;

// The closest spelling of a listener that asks for one of the operations; null if there is none.
const Spelling* Closest(const ChangeSide& side, const void* listener, unsigned operations) {
    const Spelling* best = nullptr;
    for (const Spelling& each : side.spellings) {
        const bool isOne = each.listenerId == listener && (each.operations & operations) != 0;
        if (isOne && (best == nullptr || each.rank < best->rank)) {
            best = &each;
        }
    }
    return best;
}

// Adds each listener once, in the order of the rules.
void AddListeners(const ChangeSide& side, std::vector<const void*>& listeners) {
    for (const Spelling& each : side.spellings) {
        if (std::find(listeners.begin(), listeners.end(), each.listenerId) == listeners.end()) {
            listeners.push_back(each.listenerId);
        }
    }
}

std::optional<std::string> NameFor(const ChangeSide& side, const void* listener) {
    if (const Spelling* const own = Closest(side, listener, anyOperation)) {
        return own->path;
    }
    return side.plainPath.empty() ? std::nullopt : std::optional(side.plainPath);
}

void AppendMove(const Change& move, const void* listener, std::vector<ChangeReport>& reports) {
    const Spelling* asker = Closest(move.side, listener, OperationBit(FILE_MOVED));
    const Spelling* const other = Closest(move.target, listener, OperationBit(FILE_MOVED));
    if (asker == nullptr || (other != nullptr && other->rank < asker->rank)) {
        asker = other;
    }
    if (asker != nullptr) {
        const auto from = NameFor(move.side, listener);
        reports.push_back({asker->handle, FILE_MOVED, from, NameFor(move.target, listener), {}});
    } else if (const Spelling* const left = Closest(move.side, listener, OperationBit(FILE_MOVED_FROM))) {
        reports.push_back({left->handle, FILE_MOVED_FROM, left->path, NameFor(move.target, listener), {}});
    } else if (const Spelling* const came = Closest(move.target, listener, OperationBit(FILE_MOVED_TO))) {
        reports.push_back({came->handle, FILE_MOVED_TO, came->path, NameFor(move.side, listener), {}});
    }
}

void AppendOneSided(const Change& change, const void* listener, std::vector<ChangeReport>& reports) {
    if (const Spelling* const asker = Closest(change.side, listener, OperationBit(change.operation))) {
        reports.push_back({asker->handle, change.operation, asker->path, std::nullopt, change.detail});
    } else if (const Spelling* const mover = Closest(change.side, listener, OperationBit(FILE_MOVED));
               mover != nullptr && change.isRename) {
        reports.push_back({mover->handle, FILE_MOVED, mover->path, std::nullopt, {}});
    }
}

}  // namespace

void AppendReports(const Change& change, std::vector<ChangeReport>& reports) {
    std::vector<const void*> listeners;
    AddListeners(change.side, listeners);
    AddListeners(change.target, listeners);
    for (const void* const listener : listeners) {
        if (change.operation == FILE_MOVED) {
            AppendMove(change, listener, reports);
        } else {
            AppendOneSided(change, listener, reports);
        }
    }
}

}  // namespace Host
