// What has been reported within the last hour.
#pragma once

#include <ctime>
#include <string>

// One reported key.
struct MSG_KEY {
    std::string key;
    time_t time = 0;  // seconds, when the key was first accepted
};

// True if this key was accepted less than 3600 seconds ago; otherwise false, and the key is accepted now. Repeats do
// not extend the period. An empty key is always false and is not kept. Costs pauses of 0.1 ms, two more for each 20
// keys kept, and 1 ms on a repeat. Any thread; callers wait for each other.
bool IsRepeatedAlarm(const std::string& key);
