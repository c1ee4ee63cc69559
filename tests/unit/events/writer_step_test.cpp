#include "host/events/writer_step.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>

namespace {

using namespace std::chrono_literals;
using Host::WriterAction;
using Host::WriterState;
using Host::WriterStep;
using Host::Clock::Time;

constexpr Time now(1h);

TEST(WriterStep, ReturnsTheFirstStepThatIsDue) {
    const struct {
        const char* what;
        WriterState state;
        WriterStep step;
    } rows[] = {
        {"nothing to do", {}, {WriterAction::wait, {}}},
        {"an event", {.hasEvents = true}, {WriterAction::writeEvent, {}}},
        {"an event goes before the idle function",
         {.hasEvents = true, .idleDue = true},
         {WriterAction::writeEvent, {}}},
        {"an event goes before the end", {.hasEvents = true, .stopping = true}, {WriterAction::writeEvent, {}}},
        {"the idle function", {.idleDue = true}, {WriterAction::callIdle, {}}},
        {"the idle function goes before the end", {.idleDue = true, .stopping = true}, {WriterAction::callIdle, {}}},
        {"the idle function again", {.idleAt = now}, {WriterAction::callIdle, {}}},
        {"the idle function, later", {.idleAt = now + 1ns}, {WriterAction::wait, now + 1ns}},
        {"no later call at the end", {.stopping = true, .idleAt = now + 1ns}, {WriterAction::end, {}}},
        {"a report", {.reportAt = now}, {WriterAction::reportDrops, {}}},
        {"a report goes before events", {.hasEvents = true, .reportAt = now}, {WriterAction::reportDrops, {}}},
        {"a report, later", {.reportAt = now + 1ns}, {WriterAction::wait, now + 1ns}},
        {"events go before a later report", {.hasEvents = true, .reportAt = now + 1ns}, {WriterAction::writeEvent, {}}},
        {"a later report at the end", {.stopping = true, .reportAt = now + 1ns}, {WriterAction::reportDrops, {}}},
        {"the earlier of both: idle", {.idleAt = now + 1s, .reportAt = now + 2s}, {WriterAction::wait, now + 1s}},
        {"the earlier of both: report", {.idleAt = now + 2s, .reportAt = now + 1s}, {WriterAction::wait, now + 1s}},
        {"the end", {.stopping = true}, {WriterAction::end, {}}},
    };
    for (const auto& row : rows) {
        const WriterStep step = NextStep(row.state, now);
        EXPECT_EQ(step.action, row.step.action) << row.what;
        EXPECT_EQ(step.until, row.step.until) << row.what;
    }
}

}  // namespace
