// Records pauses instead of sleeping, and advances a virtual clock by them.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <vector>

// The code under test may pause on any thread. The functions below are called on one thread while no other pauses.
namespace TimeRecorder {

// Clears all pauses, faults and the hook, and sets the virtual clock, which time(2) reads, to 1,000,000 seconds.
void Reset();

// Advances the virtual clock without a pause; a negative length sets it back.
void Advance(std::chrono::seconds length);

// Until the next Reset, pauses really sleep, but are still recorded, and time(2) is the host's.
void UseRealTime();

// Until the next Reset, calls hook on the pausing thread at the start of each pause, after the pause is recorded. The
// number counts these calls from 1.
void AtEachPause(std::function<void(size_t number)> hook);

// The requested length of each sleep since Reset, including the continuations of interrupted sleeps.
const std::vector<std::chrono::nanoseconds>& Pauses();

// The total time slept. For interrupted sleeps, less than requested.
std::chrono::nanoseconds Slept();

// Interrupts the next nanosleep by a signal (EINTR) with left remaining. Several calls apply to consecutive sleeps.
void InterruptNext(std::chrono::nanoseconds left);

// Makes the next nanosleep fail at once with this errno.
void FailNext(int error);

}  // namespace TimeRecorder
