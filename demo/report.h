// The end of the demonstration, as a table and as JSON.
#pragma once

#include <string>

#include "demo/scoreboard.h"

namespace Host {

// Escape sequences of a terminal; all empty where none are wanted.
struct Colours {
    std::string good;
    std::string bad;
    std::string dim;
    std::string strong;
    std::string plain;
};

Colours TerminalColours();

// Such as "4.1".
std::string SecondsText(double seconds);

// wiring, expected, found, seconds, one line for each expectation, each ended by a newline.
std::string ReportTable(const Scoreboard& scoreboard, const Colours& colours);

// One sentence on how it went, without a newline.
std::string ReportSummary(const Scoreboard& scoreboard, double seconds);

// All of it as one JSON text, ended by a newline.
std::string ReportJson(const Scoreboard& scoreboard, double seconds, bool complete);

// The names and titles of all wirings and what is expected of them, a line each.
std::string ListText();

}  // namespace Host
