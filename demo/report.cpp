#include "demo/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "host/base/printable.h"

namespace Host {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t longestReason = 100;
constexpr size_t nameWidth = 20;
constexpr size_t wordsWidth = 34;

struct Row {
    std::string name;
    std::string expected;
    std::string found;
    std::string seconds;
    bool passed = true;
};

std::string Padded(const std::string& text, size_t width) {
    return text + std::string(std::max<size_t>(width, text.size() + 1) - text.size(), ' ');
}

std::string Reason(const std::string& text) {
    std::string printable;
    AppendPrintable(printable, text, longestReason);
    return printable;
}

// The text of a missed expectation: another finding about the scenario, or "nothing".
std::string InsteadText(const ScenarioResult& result) {
    if (result.findings.empty()) {
        return "nothing";
    }
    const Finding& first = result.findings.front();
    return "only " + ExpectationText({first.detection, first.operation});
}

std::vector<Row> HarmlessRows(const ScenarioResult& result) {
    if (result.findings.empty()) {
        return {{result.scenario->name, "nothing", "nothing", "", true}};
    }
    std::vector<Row> rows;
    for (const Finding& finding : result.findings) {
        rows.push_back({result.scenario->name, "nothing", ExpectationText({finding.detection, finding.operation}),
                        SecondsText(finding.seconds - result.parts.seconds), false});
    }
    return rows;
}

std::vector<Row> RowsOf(const ScenarioResult& result) {
    if (result.scenario->Harmless() && result.failure.empty()) {
        return HarmlessRows(result);
    }
    std::vector<Row> rows;
    const size_t count = std::max<size_t>(result.scenario->expected.size(), 1);
    for (size_t i = 0; i < count; ++i) {
        Row row{result.scenario->name, "nothing", "", "", result.Passed()};
        if (i < result.scenario->expected.size()) {
            row.expected = ExpectationText(result.scenario->expected[i]);
        }
        if (!result.failure.empty()) {
            row.found = "not staged: " + Reason(result.failure);
        } else if (!result.skipped.empty()) {
            row.found = "skipped: " + Reason(result.skipped);
        } else if (result.after[i]) {
            row.found = row.expected;
            row.seconds = SecondsText(*result.after[i]);
            row.passed = true;
        } else {
            row.found = InsteadText(result);
            row.passed = false;
        }
        rows.push_back(row);
    }
    return rows;
}

std::string Line(const Row& row) {
    return Padded(row.name, nameWidth) + Padded(row.expected, wordsWidth) + Padded(row.found, wordsWidth) + row.seconds;
}

std::string Trimmed(const std::string& text) {
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

double Rounded(double seconds) {
    return std::round(seconds * 10) / 10;
}

Json FindingJson(const Finding& finding, double since) {
    Json json;
    json["detection"] = DetectionName(finding.detection);
    json["seconds"] = Rounded(finding.seconds - since);
    json["event"] = Json::parse(finding.event, nullptr, false);
    json["wiring"] = finding.tree;
    return json;
}

Json ScenarioJson(const ScenarioResult& result) {
    Json json;
    json["name"] = result.scenario->name;
    json["title"] = result.scenario->title;
    json["verdict"] = VerdictName(result.Judged());
    json["passed"] = result.Passed();
    const std::string& reason = result.failure.empty() ? result.skipped : result.failure;
    if (!reason.empty()) {
        json["reason"] = reason;
    }
    json["expected"] = Json::array();
    for (size_t i = 0; i < result.scenario->expected.size(); ++i) {
        const Expectation& expectation = result.scenario->expected[i];
        Json entry{{"detection", DetectionName(expectation.detection)}};
        if (!expectation.operation.empty()) {
            entry["operationType"] = expectation.operation;
        }
        entry["seconds"] = result.after[i] ? Json(Rounded(*result.after[i])) : Json(nullptr);
        json["expected"].push_back(entry);
    }
    json["findings"] = Json::array();
    for (const Finding& finding : result.findings) {
        json["findings"].push_back(FindingJson(finding, result.parts.seconds));
    }
    return json;
}

}  // namespace

Colours TerminalColours() {
    return {.good = "\033[32m", .bad = "\033[31;1m", .dim = "\033[2m", .strong = "\033[1m", .plain = "\033[0m"};
}

std::string SecondsText(double seconds) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f", std::fmax(seconds, 0));
    return text;
}

std::string ReportTable(const Scoreboard& scoreboard, const Colours& colours) {
    std::string text = colours.strong + Line({"scenario", "expected", "found", "seconds"}) + colours.plain + "\n";
    for (const ScenarioResult& result : scoreboard.Results()) {
        for (const Row& row : RowsOf(result)) {
            text += (row.passed ? colours.good + "ok    " : colours.bad + "FAIL  ") + colours.plain +
                    Trimmed(Line(row)) + "\n";
        }
    }
    const size_t titleStart = colours.strong.size();
    return text.insert(titleStart, "      ");
}

std::string ReportSummary(const Scoreboard& scoreboard, double seconds) {
    const auto& results = scoreboard.Results();
    const auto passed = std::count_if(results.begin(), results.end(), [](const auto& each) { return each.Passed(); });
    const auto skipped = std::count_if(results.begin(), results.end(),
                                       [](const auto& each) { return each.Judged() == Verdict::skipped; });
    std::string text =
        std::to_string(passed - skipped) + " of " + std::to_string(results.size()) + " scenarios as expected";
    if (skipped != 0) {
        text += ", " + std::to_string(skipped) + " skipped";
    }
    if (!scoreboard.Others().empty()) {
        text += "; " + std::to_string(scoreboard.Others().size()) +
                (scoreboard.Others().size() == 1 ? " finding" : " findings") +
                " about other processes of this host, see above";
    }
    return text + "; took " + SecondsText(seconds) + " s";
}

std::string ReportJson(const Scoreboard& scoreboard, double seconds, bool complete) {
    Json json;
    json["passed"] = complete && scoreboard.Passed();
    json["complete"] = complete;
    json["seconds"] = Rounded(seconds);
    json["scenarios"] = Json::array();
    for (const ScenarioResult& result : scoreboard.Results()) {
        json["scenarios"].push_back(ScenarioJson(result));
    }
    json["otherFindings"] = Json::array();
    for (const Finding& finding : scoreboard.Others()) {
        json["otherFindings"].push_back(FindingJson(finding, 0));
    }
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string ListText() {
    std::string text;
    for (const Scenario& scenario : AllScenarios()) {
        std::string expected;
        for (const Expectation& expectation : scenario.expected) {
            expected += (expected.empty() ? "" : ", ") + ExpectationText(expectation);
        }
        text += Padded(scenario.name, nameWidth) + Padded(scenario.title, 62) +
                (expected.empty() ? "nothing" : expected) + "\n";
    }
    return text;
}

}  // namespace Host
