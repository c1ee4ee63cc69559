// What one detection makes of a process, and for which reasons.
#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace Host {

enum class Mark {
    ok,    // passed: this speaks for a report
    no,    // failed: this alone keeps a report away
    note,  // what cannot be told from here
};

struct Reason {
    Mark mark = Mark::note;
    std::string text;  // any bytes
};

// For one thread.
struct Judgement {
    std::string detection;
    bool reported = false;
    std::string verdict;  // behind "would report it" or "would not report it"; may be empty, any bytes
    std::vector<Reason> reasons;

    // Adds the reason unless it has been given already.
    void Add(Reason reason) {
        const auto given = [&reason](const Reason& each) { return each.text == reason.text; };
        if (std::none_of(reasons.begin(), reasons.end(), given)) {
            reasons.push_back(std::move(reason));
        }
    }

    bool IsRefused() const {
        return std::any_of(reasons.begin(), reasons.end(),
                           [](const Reason& reason) { return reason.mark == Mark::no; });
    }
};

}  // namespace Host
