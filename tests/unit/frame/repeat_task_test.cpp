#include "frame/repeat_task.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "tests/fakes/fake_agent.h"

namespace {

void* Entry(void*) {
    return nullptr;
}

uint64_t NowMs() {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count());
}

constexpr TaskTiming timing{.type = TavUtils::TASK_REPEAT, .delayMs = 20000, .periodMs = 90000};

TEST(RepeatTask, IsRegisteredWithThreeFieldsSetAndTheOthersZero) {
    Fake::ResetAgent();
    TavUtils::RepeatTask task;
    const uint64_t before = NowMs();
    EXPECT_TRUE(StartTask(task, timing, Entry, "some task"));
    const uint64_t after = NowMs();

    const Fake::Task* registered = Fake::TheAgent().FindTask("some task");
    ASSERT_NE(registered, nullptr);
    EXPECT_EQ(task.id, registered->id);
    EXPECT_EQ(registered->type, TavUtils::TASK_REPEAT);
    EXPECT_EQ(registered->entry, &Entry);
    EXPECT_EQ(registered->arg, nullptr);
    EXPECT_GE(registered->condition.firstRunMs, before + 20000);
    EXPECT_LE(registered->condition.firstRunMs, after + 20000);
    EXPECT_EQ(registered->condition.periodMs, 90000U);
    EXPECT_EQ(registered->condition.enabled, 1);
    const auto isZero = [](uint8_t byte) { return byte == 0; };
    EXPECT_TRUE(std::ranges::all_of(registered->condition.reserved, isZero));
    EXPECT_TRUE(std::ranges::all_of(registered->condition.padding, isZero));
}

TEST(RepeatTask, IsReplacedByARepeatedStart) {
    Fake::ResetAgent();
    TavUtils::RepeatTask task;
    StartTask(task, timing, Entry, "some task");
    StartTask(task, timing, Entry, "some task");
    EXPECT_EQ(Fake::TheAgent().journal, (std::vector<std::string>{"register some task", "pause some task",
                                                                  "unregister some task", "register some task"}));
    EXPECT_EQ(Fake::TheAgent().tasks.size(), 1U);
}

TEST(RepeatTask, IsPausedAndUnregisteredOnceByRepeatedStops) {
    Fake::ResetAgent();
    TavUtils::RepeatTask task;
    StartTask(task, timing, Entry, "some task");
    StopTask(task);
    StopTask(task);
    EXPECT_EQ(task.id, 0U);
    EXPECT_EQ(Fake::TheAgent().journal,
              (std::vector<std::string>{"register some task", "pause some task", "unregister some task"}));
}

TEST(RepeatTask, HasNoIdIfTheAgentRefusesIt) {
    Fake::ResetAgent();
    Fake::TheAgent().refusedTasks = {"some task"};
    TavUtils::RepeatTask task;
    EXPECT_FALSE(StartTask(task, timing, Entry, "some task"));
    EXPECT_EQ(task.id, 0U);
}

}  // namespace
