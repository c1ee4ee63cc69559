// What one detection makes of a process, and by which of its tests.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace Host {

enum class Mark {
    ok,    // passed: this speaks for a report
    no,    // failed: this alone keeps a report away
    note,  // what cannot be told from here
};

struct Test {
    Mark mark = Mark::note;
    std::string text;  // any bytes
};

// For one thread.
struct Judgement {
    std::string detection;
    bool reported = false;
    std::string verdict;  // behind "would report it" or "would not report it"; may be empty, any bytes
    std::vector<Test> tests;

    // Adds the test with the text that fits its outcome, and returns the outcome.
    bool Check(bool passed, std::string text, std::string otherwise) {
        tests.push_back({passed ? Mark::ok : Mark::no, std::move(passed ? text : otherwise)});
        return passed;
    }
    void Note(std::string text) { tests.push_back({Mark::note, std::move(text)}); }
};

}  // namespace Host
