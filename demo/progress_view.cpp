#include "demo/progress_view.h"

#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <string_view>

#include "host/base/descriptor.h"
#include "host/base/printable.h"

namespace Host {
namespace {

constexpr const char* clearLine = "\r\033[K";
constexpr size_t longestDetail = 300;
constexpr size_t secondsWidth = 6;

bool WantsColours() {
    const char* terminal = std::getenv("TERM");
    return std::getenv("NO_COLOR") == nullptr && terminal != nullptr && std::string_view(terminal) != "dumb";
}

std::string Printable(const std::string& text) {
    std::string printable;
    AppendPrintable(printable, text, longestDetail);
    return printable;
}

std::string Stamp(double seconds) {
    const std::string text = SecondsText(seconds);
    return std::string(text.size() < secondsWidth ? secondsWidth - text.size() : 0, ' ') + text + " s  ";
}

std::string Indented(const std::string& lines, const std::string& indent) {
    std::istringstream stream(lines);
    std::string text;
    for (std::string line; std::getline(stream, line);) {
        text += indent + line + "\n";
    }
    return text;
}

}  // namespace

ProgressView::ProgressView(ViewStyle style) : style_(style) {
    if (style == ViewStyle::terminal && WantsColours()) {
        colours_ = TerminalColours();
    }
}

ProgressView::~ProgressView() {
    Move("");
}

void ProgressView::Print(const std::string& lines) {
    if (style_ != ViewStyle::silent) {
        Move("");
        WriteAll(STDOUT_FILENO, lines);
    }
}

void ProgressView::Move(const std::string& line) {
    if (style_ == ViewStyle::terminal && (moving_ || !line.empty())) {
        WriteAll(STDOUT_FILENO, clearLine + colours_.dim + line + colours_.plain);
        moving_ = !line.empty();
    }
}

void ProgressView::ShowStaged(double seconds, const ScenarioResult& result) {
    const std::string head = Stamp(seconds);
    if (!result.failure.empty()) {
        Print(head + colours_.bad + "failed  " + colours_.plain + result.scenario->name + ": " +
              Printable(result.failure) + "\n");
    } else if (!result.skipped.empty()) {
        Print(head + "skipped " + result.scenario->name + ": " + Printable(result.skipped) + "\n");
    } else {
        Print(head + "staged  " + result.scenario->name + colours_.dim + ": " + result.scenario->title +
              colours_.plain + "\n");
    }
}

void ProgressView::ShowFinding(const Finding& finding, const ScenarioResult* owner) {
    const std::string indent(secondsWidth + 4, ' ');
    std::string text = Stamp(finding.seconds);
    if (owner == nullptr) {
        text += colours_.strong + "OTHER   " + colours_.plain + "not part of the demonstration: ";
    } else {
        const std::string& colour = owner->scenario->Harmless() ? colours_.bad : colours_.good;
        text +=
            colour + "FOUND   " + colours_.plain + colours_.strong + owner->scenario->name + colours_.plain + " by ";
    }
    text += DetectionName(finding.detection);
    if (owner != nullptr) {
        text += ", " + SecondsText(finding.seconds - owner->parts.seconds) + " s after it was staged";
    }
    text += "\n" + indent + Printable(finding.detail) + "\n" + colours_.dim + Indented(finding.tree, indent) +
            colours_.plain;
    Print(text);
}

}  // namespace Host
