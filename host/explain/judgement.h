// The verdict of one detection on a process, with its reasons.
#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace Host {

enum class Mark {
    ok,    // passed: supports a report
    no,    // failed: prevents a report
    note,  // a condition that cannot be tested here
};

struct Reason {
    Mark mark = Mark::note;
    std::string text;  // any bytes
};

// For one thread.
struct Judgement {
    std::string detection;
    bool reported = false;
    std::string verdict;  // follows "would report it" or "would not report it"; may be empty, any bytes
    std::vector<Reason> reasons;

    // Adds the reason unless its text is already there.
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
