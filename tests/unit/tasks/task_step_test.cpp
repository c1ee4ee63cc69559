#include "host/tasks/task_step.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using namespace std::chrono_literals;
using Host::NextTick;
using Host::TaskAction;
using Host::TaskState;
using Host::TaskStep;
using Host::Clock::Time;

constexpr Time now(1h);

TEST(TaskStep, ReturnsTheFirstPermittedStep) {
    const struct {
        const char* what;
        TaskState state;
        TaskStep step;
    } rows[] = {
        {"a run that is due", {.due = now}, {TaskAction::runOnSchedule}},
        {"a run that is late", {.due = now - 1h}, {TaskAction::runOnSchedule}},
        {"a run to come", {.due = now + 1ns}, {TaskAction::wait, now + 1ns}},
        {"no run left", {}, {TaskAction::wait}},
        {"a run that is asked for", {.isAsked = true}, {TaskAction::runAsAsked}},
        {"asked for before it is due", {.due = now + 1ns, .isAsked = true}, {TaskAction::runAsAsked}},
        {"due and asked for", {.due = now, .isAsked = true}, {TaskAction::runOnSchedule}},
        {"paused", {.due = now, .isAsked = true, .isPaused = true}, {TaskAction::wait}},
        {"paused, with a run to come", {.due = now + 1ns, .isPaused = true}, {TaskAction::wait}},
        {"ended", {.due = now, .isAsked = true, .isEnded = true}, {TaskAction::end}},
        {"paused and ended", {.isPaused = true, .isEnded = true}, {TaskAction::end}},
    };
    for (const auto& row : rows) {
        const TaskStep step = NextStep(row.state, now);
        EXPECT_EQ(step.action, row.step.action) << row.what;
        EXPECT_EQ(step.until, row.step.until) << row.what;
    }
}

TEST(TaskStep, TheNextTickStaysOnTheGrid) {
    const struct {
        std::chrono::nanoseconds afterDue;
        std::chrono::nanoseconds next;
    } rows[] = {
        {-1ns, 0ns}, {0ns, 100ms}, {99ms, 100ms}, {100ms - 1ns, 100ms}, {100ms, 200ms}, {350ms, 400ms},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(NextTick(now, 100ms, now + row.afterDue) - now, row.next) << row.afterDue.count();
    }
}

}  // namespace
