#include "alarm/alarm_history.h"

#include <mutex>
#include <utility>
#include <vector>

#include "frame/pacing.h"

static constexpr time_t periodSeconds = 3600;
static constexpr size_t entriesPerPause = 20;
static constexpr unsigned int walkPauseMicroseconds = 100;
static constexpr unsigned int repeatPauseMicroseconds = 1000;

// Held for a whole call, pauses included, and never together with another lock. Of two threads that report the same key
// at once, only one may pass.
static std::mutex historyLock;

// Oldest first. Entries are removed by age only; there is no size limit.
static std::vector<MSG_KEY> alarmHistory;

static void PaceWalk(size_t index) {
    if (index % entriesPerPause == 0) {
        Pause(walkPauseMicroseconds);
    }
}

static void DropOldEntries(time_t now) {
    std::vector<MSG_KEY> kept;
    for (size_t i = 0; i < alarmHistory.size(); ++i) {
        if (now - alarmHistory[i].time < periodSeconds) {
            kept.push_back(alarmHistory[i]);
        }
        PaceWalk(i);
    }
    alarmHistory = std::move(kept);
}

static bool IsInHistory(const std::string& key) {
    for (size_t i = 0; i < alarmHistory.size(); ++i) {
        PaceWalk(i);
        if (alarmHistory[i].key == key) {
            return true;
        }
    }
    return false;
}

bool IsRepeatedAlarm(const std::string& key) {
    if (key.empty()) {
        return false;
    }
    const std::lock_guard guard(historyLock);
    MSG_KEY entry{key, time(nullptr)};
    Pause(walkPauseMicroseconds);
    const time_t now = time(nullptr);
    Pause(walkPauseMicroseconds);
    DropOldEntries(now);
    Pause(walkPauseMicroseconds);
    if (IsInHistory(key)) {
        Pause(repeatPauseMicroseconds);
        return true;
    }
    alarmHistory.push_back(std::move(entry));
    return false;
}
