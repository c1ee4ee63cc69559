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
constexpr double settleSeconds = 1;  // for events that are on their way

std::vector<const WiringPlan*> PlansOf(const DemoOptions& options) {
    std::vector<const WiringPlan*> plans;
    for (const WiringPlan& plan : AllWirings()) {
        bool wanted = options.only.empty();
        for (const std::string& name : options.only) {
            wanted = wanted || name == plan.name;
        }
        if (wanted) {
            plans.push_back(&plan);
        }
    }
    return plans;
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
          plans_(PlansOf(options)),
          intake_(began_),
          scoreboard_(plans_),
          view_(StyleOf(options)) {}

    ~Demonstration() { StopModule(); }
    Demonstration(const Demonstration&) = delete;
    Demonstration& operator=(const Demonstration&) = delete;

    DemoEnd Run(std::string& error) {
        if (!EnterNewNetwork(error)) {
            return DemoEnd::impossible;
        }
        StageFolder folder(plans_);
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
            error = "some of the demonstration's processes do not end";
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
            error = "the module does not start; the lines before say why";
            return false;
        }
        moduleRuns_ = true;
        moduleStarted_ = Seconds();
        return true;
    }

    // In the order of which what is under way is finished: scans, then events.
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
        view_.Print("Two hosts in network namespaces of their own: " + std::string(hostAddress) +
                    ", where the module watches, and the attacker's " + attackerAddress + ".\n");
        for (const WiringPlan* plan : plans_) {
            if (EndWanted(std::chrono::milliseconds(0))) {
                return;
            }
            StagedWiring staged = stage.Put(*plan);
            staged.parts.seconds = Seconds();
            scoreboard_.Staged(plan->name, staged.parts);
            if (!staged.failure.empty()) {
                scoreboard_.NotStaged(plan->name, staged.failure);
            } else if (!staged.skipped.empty()) {
                scoreboard_.Skipped(plan->name, staged.skipped);
            }
            for (const WiringResult& result : scoreboard_.Results()) {
                if (result.plan == plan) {
                    view_.ShowStaged(Seconds(), result);
                }
            }
        }
        stage.Open();
    }

    // Until all is known that can be known, the time is over, or the end is asked for.
    void Watch() {
        while (!interrupted_ && Seconds() - moduleStarted_ < lastSeconds && !AllKnown()) {
            TakeFindings();
            BeginPass();
            view_.Move("  " + SecondsText(Seconds()) + " s  " + CountdownText(Seconds() - moduleStarted_));
            EndWanted(std::chrono::milliseconds(100));
        }
    }

    // One complete pass of the period scan, once the first one is due: afterwards whoever is silent has been looked at.
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
            const WiringResult* owner = scoreboard_.OwnerOf(finding);
            if (owner != nullptr && finding.tree.empty() && !owner->parts.shells.empty()) {
                finding.tree = WiringTreeOf(*owner->parts.shells.begin(), 0);
            }
            scoreboard_.Add(finding);
            view_.ShowFinding(finding, owner);
        }
    }

    // Waits that long for a signal that asks for the end. True once there was one.
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
    const std::vector<const WiringPlan*> plans_;
    EventIntake intake_;
    Scoreboard scoreboard_;
    ProgressView view_;
    Worker worker_;  // begun before the main thread leaves the network namespace that the program began in
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
