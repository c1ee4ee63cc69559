// What is known of one watched file, and what a new look at it tells.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "host/watch/file_state.h"
#include "host/watch/write_burst.h"

namespace Host {

struct KnownFile {
    using Time = std::chrono::steady_clock::time_point;

    FileState state;
    WriteBurst burst;
    std::optional<Time> arrivalTold;  // when it was told that the file has come to its name
    std::optional<Time> linksDue;     // when a lower link count, seen and not told yet, is to be looked at again
};

// Why a file is looked at.
enum class Occasion {
    changed,  // the kernel says that it has changed
    closed,   // a writer has closed it
    linksDue,
    loss,  // events were lost
};

struct Finding {
    bool isModified = false;
    std::string attributes;  // AttributeDetail of what is to be told
};

// How long a lower link count waits. The name that has gone may be a watched one: its end comes right after and is a
// change of its own.
constexpr std::chrono::milliseconds linksPatience{30};

// Compares the file with what is known of it, and knows the new state from then on.
Finding Observe(KnownFile& known, const FileState& now, Occasion occasion, Moment moment);

}  // namespace Host
