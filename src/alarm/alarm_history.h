// Remembers for an hour which alarms have been raised.
#pragma once

#include <ctime>
#include <string>

// One reported key.
struct MSG_KEY {
    std::string key;
    time_t time;  // seconds, when the key was first accepted
};

// True if this key was accepted less than 3600 seconds ago. Otherwise accepts it now and returns false. Repeats do not
// extend the period. An empty key returns false and is not stored. Pauses for 0.1 ms three times and twice more per 20
// stored keys, and for 1 ms on a repeat. Any thread; callers wait for each other.
bool IsRepeatedAlarm(const std::string& key);
