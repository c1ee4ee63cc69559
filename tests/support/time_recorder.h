// Time under the test's control: pauses are recorded instead of slept and move a virtual clock.
#pragma once

#include <chrono>
#include <functional>
#include <vector>

// The calls under test may come from any thread, those of the test from one while no other pauses.
namespace TimeRecorder {

// Forgets all pauses, faults and the hook, and sets the virtual clock, which time(2) reads, to 1,000,000 seconds.
void Reset();

// Moves the virtual clock on without a pause; a negative length sets it back.
void Advance(std::chrono::seconds length);

// Until the next Reset, pauses are slept and time(2) is the host's. They are recorded all the same.
void UseRealTime();

// Called in the pausing thread at the start of each pause from now on, once it is recorded, until the next Reset.
void AtEachPause(std::function<void()> hook);

// Every sleep since Reset, by the length that was asked for, the continuations of interrupted ones included.
const std::vector<std::chrono::nanoseconds>& Pauses();

// Sum of the time that was slept, which for interrupted sleeps is less than what was asked for.
std::chrono::nanoseconds Slept();

// The next nanosleep is interrupted by a signal (EINTR) with left remaining. May be called several times.
void InterruptNext(std::chrono::nanoseconds left);

// The next nanosleep fails with this errno at once.
void FailNext(int error);

}  // namespace TimeRecorder
