// Shows the progress of the demonstration.
#pragma once

#include <string>

#include "demo/report.h"
#include "demo/scoreboard.h"

namespace Host {

enum class ViewStyle {
    silent,    // no output
    plain,     // lines
    terminal,  // lines with colours, and a status line
};

// Writes to standard output. For one thread.
class ProgressView {
public:
    explicit ProgressView(ViewStyle style);
    ~ProgressView();
    ProgressView(const ProgressView&) = delete;
    ProgressView& operator=(const ProgressView&) = delete;

    // Prints whole lines, each with its newline.
    void Print(const std::string& lines);

    // Replaces the status line; line has no newline. Only with ViewStyle::terminal.
    void Move(const std::string& line);

    void ShowStaged(double seconds, const ScenarioResult& result);

    // owner is null for a finding about a process that is not part of the demonstration.
    void ShowFinding(const Finding& finding, const ScenarioResult* owner);

    const Colours& Palette() const { return colours_; }

private:
    const ViewStyle style_;
    Colours colours_;
    bool moving_ = false;
};

}  // namespace Host
