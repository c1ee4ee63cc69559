#include "demo/demo.h"

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <future>
#include <optional>

#include "demo/event_intake.h"
#include "demo/network.h"
#include "demo/progress_view.h"
#include "demo/report.h"
#include "demo/schedule.h"
#include "demo/scoreboard.h"
#include "demo/stage.h"
#include "demo/stage_folder.h"
#include "demo/worker.h"
#include "host/base/descriptor.h"
#include "host/events/agent_library.h"
#include "module/published.h"

namespace Host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds drainPatience{10};
constexpr double lastSeconds = 45;
constexpr double settleSeconds = 1;  // for events that are still queued

std::vector<const Scenario*> ScenariosOf(const DemoOptions& options) {
    std::vector<const Scenario*> scenarios;
    for (const Scenario& scenario : AllScenarios()) {
        bool wanted = options.only.empty();
        for (const std::string& name : options.only) {
            wanted = wanted || name == scenario.name;
        }
        if (wanted) {
            scenarios.push_back(&scenario);
        }
    }
    return scenarios;
}

ViewStyle StyleOf(const DemoOptions& options) {
    if (options.json) {
        return ViewStyle::silent;
    }
    return ::isatty(STDOUT_FILENO) == 1 ? ViewStyle::terminal : ViewStyle::plain;
}

class Demonstration {
public:
    Demonstration(const DemoOptions& options, const DemoDetector& detector)
        : options_(options),
          detector_(detector),
          scenarios_(ScenariosOf(options)),
          intake_(began_),
          scoreboard_(scenarios_),
          view_(StyleOf(options)) {}

    ~Demonstration() { StopModule(); }
    Demonstration(const Demonstration&) = delete;
    Demonstration& operator=(const Demonstration&) = delete;

    DemoEnd Run(std::string& error) {
        if (!EnterNewNetwork(error)) {
            return DemoEnd::impossible;
        }
        StageFolder folder(scenarios_);
        Stage stage(folder.Path());
        if (!stage.Join(error) || !StartModule(folder.Path(), error)) {
            return DemoEnd::impossible;
        }
        PutAll(stage);
        Watch();
        view_.Move("");
        StopModule();
        TakeFindings();
        if (!stage.Clear()) {
            error = "some processes of the demonstration do not end";
            return DemoEnd::impossible;
        }
        return Report();
    }

private:
    double Seconds() const { return std::chrono::duration<double>(Clock::now() - began_).count(); }

    bool StartModule(const std::string& directory, std::string& error) {
        AgentLibrary::Get().startEvents([this](std::string_view event) { intake_.Take(event); }, {});
        queueRuns_ = true;
        if (!worker_.Do([&] { return detector_.start(directory); }).get()) {
            error = "the module does not start, see the lines above for the reason";
            return false;
        }
        moduleRuns_ = true;
        moduleStarted_ = Seconds();
        return true;
    }

    // The module first: it finishes its scans, which may push events. Then the queue delivers them.
    void StopModule() {
        if (moduleRuns_) {
            moduleRuns_ = false;
            worker_
                .Do([this] {
                    detector_.stop();
                    return true;
                })
                .wait();
        }
        if (queueRuns_) {
            queueRuns_ = false;
            AgentLibrary::Get().stopEvents(drainPatience);
        }
    }

    void PutAll(Stage& stage) {
        view_.Print("Two hosts in separate network namespaces: " + std::string(hostAddress) +
                    ", which the module watches, and the attacker's " + attackerAddress + ".\n");
        for (const Scenario* scenario : scenarios_) {
            if (EndWanted(std::chrono::milliseconds(0))) {
                return;
            }
            StagedScenario staged = stage.Put(*scenario);
            staged.parts.seconds = Seconds();
            scoreboard_.Staged(scenario->name, staged.parts);
            if (!staged.failure.empty()) {
                scoreboard_.NotStaged(scenario->name, staged.failure);
            } else if (!staged.skipped.empty()) {
                scoreboard_.Skipped(scenario->name, staged.skipped);
            }
            for (const ScenarioResult& result : scoreboard_.Results()) {
                if (result.scenario == scenario) {
                    view_.ShowStaged(Seconds(), result);
                }
            }
        }
        stage.Open();
    }

    // Returns when every result is known, the time is up, or a signal has arrived.
    void Watch() {
        while (!interrupted_ && Seconds() - moduleStarted_ < lastSeconds && !AllKnown()) {
            TakeFindings();
            BeginPass();
            view_.Move("  " + SecondsText(Seconds()) + " s  " + CountdownText(Seconds() - moduleStarted_));
            EndWanted(std::chrono::milliseconds(100));
        }
    }

    // Runs one complete pass of the period scan once the first one is due. After it, a harmless scenario without a
    // finding is known to be silent.
    void BeginPass() {
        if (!pass_ && Seconds() - moduleStarted_ >= periodScanSeconds) {
            pass_ = worker_.Do([] { return AgentLibrary::Get().runTaskNow(Published::periodScanTask); });
        }
        if (pass_ && !passEnded_ && pass_->wait_for(std::chrono::seconds(0)) == std::future_status::ready) {
            passEnded_ = Seconds();
        }
    }

    bool AllKnown() const {
        const bool passOver = passEnded_ && Seconds() - *passEnded_ >= settleSeconds;
        return scoreboard_.AllFound() && (passOver || !scoreboard_.AnyHarmless());
    }

    void TakeFindings() {
        for (Finding& finding : intake_.Fetch()) {
            const ScenarioResult* owner = scoreboard_.OwnerOf(finding);
            if (owner != nullptr && finding.tree.empty() && !owner->parts.shells.empty()) {
                finding.tree = WiringTreeOf(*owner->parts.shells.begin(), 0);
            }
            scoreboard_.Add(finding);
            view_.ShowFinding(finding, owner);
        }
    }

    // Waits up to patience for SIGINT, SIGTERM or SIGHUP. True from the first such signal on.
    bool EndWanted(std::chrono::milliseconds patience) {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        sigaddset(&signals, SIGHUP);
        const timespec limit{.tv_sec = 0, .tv_nsec = static_cast<long>(patience.count()) * 1000000L};
        interrupted_ = interrupted_ || ::sigtimedwait(&signals, nullptr, &limit) > 0;
        return interrupted_;
    }

    DemoEnd Report() {
        if (options_.json) {
            WriteAll(STDOUT_FILENO, ReportJson(scoreboard_, Seconds(), !interrupted_));
        } else if (interrupted_) {
            view_.Print("Interrupted; nothing is left behind.\n");
        } else {
            view_.Print("\n" + ReportTable(scoreboard_, view_.Palette()) + "\n" +
                        ReportSummary(scoreboard_, Seconds()) + "\n");
        }
        if (interrupted_) {
            return DemoEnd::interrupted;
        }
        return scoreboard_.Passed() ? DemoEnd::passed : DemoEnd::failed;
    }

    const DemoOptions& options_;
    const DemoDetector& detector_;
    const Clock::time_point began_ = Clock::now();
    const std::vector<const Scenario*> scenarios_;
    EventIntake intake_;
    Scoreboard scoreboard_;
    ProgressView view_;
    Worker worker_;  // started before the main thread leaves the initial network namespace, so it stays there
    std::optional<std::future<bool>> pass_;
    std::optional<double> passEnded_;
    double moduleStarted_ = 0;
    bool moduleRuns_ = false;
    bool queueRuns_ = false;
    bool interrupted_ = false;
};

}  // namespace

DemoEnd RunDemo(const DemoOptions& options, const DemoDetector& detector, std::string& error) {
    return Demonstration(options, detector).Run(error);
}

}  // namespace Host
