// Time under the test's control: pauses are recorded instead of slept and move a virtual clock.
#pragma once

#include <chrono>
#include <vector>

namespace TimeRecorder {

// Forgets all pauses and faults and sets the virtual clock, which time(2) reads, to 1,000,000 seconds.
void Reset();

// Every sleep since Reset, by the length that was asked for, the continuations of interrupted ones included.
const std::vector<std::chrono::nanoseconds>& Pauses();

// Sum of the time that was slept, which for interrupted sleeps is less than what was asked for.
std::chrono::nanoseconds Slept();

// The next nanosleep is interrupted by a signal (EINTR) with left remaining. May be called several times.
void InterruptNext(std::chrono::nanoseconds left);

// The next nanosleep fails with this errno at once.
void FailNext(int error);

}  // namespace TimeRecorder
