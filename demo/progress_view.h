// What the demonstration shows while it runs.
#pragma once

#include <string>

#include "demo/report.h"
#include "demo/scoreboard.h"

namespace Host {

enum class ViewStyle {
    silent,    // nothing at all
    plain,     // lines
    terminal,  // colours, and a line that moves
};

// Writes to standard output. For one thread.
class ProgressView {
public:
    explicit ProgressView(ViewStyle style);
    ~ProgressView();
    ProgressView(const ProgressView&) = delete;
    ProgressView& operator=(const ProgressView&) = delete;

    // Whole lines, each ended by a newline.
    void Print(const std::string& lines);

    // The line that moves, without a newline; on a terminal alone.
    void Move(const std::string& line);

    void ShowStaged(double seconds, const WiringResult& result);

    // owner is null for a finding about a process that is not the demonstration's.
    void ShowFinding(const Finding& finding, const WiringResult* owner);

    const Colours& Palette() const { return colours_; }

private:
    const ViewStyle style_;
    Colours colours_;
    bool moving_ = false;
};

}  // namespace Host
