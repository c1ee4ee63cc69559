// The results of the demonstration, as a table and as JSON.
#pragma once

#include <string>

#include "demo/scoreboard.h"

namespace Host {

// Escape sequences of a terminal; all empty for output without colours.
struct Colours {
    std::string good;
    std::string bad;
    std::string dim;
    std::string strong;
    std::string plain;
};

Colours TerminalColours();

// For example "4.1".
std::string SecondsText(double seconds);

// The columns scenario, expected, found and seconds: one line per expectation, each with a newline.
std::string ReportTable(const Scoreboard& scoreboard, const Colours& colours);

// One line with the number of scenarios with the expected result, without a newline.
std::string ReportSummary(const Scoreboard& scoreboard, double seconds);

// All results as one JSON text, with a newline.
std::string ReportJson(const Scoreboard& scoreboard, double seconds, bool complete);

// The name, title and expected result of each scenario, one line each.
std::string ListText();

}  // namespace Host
