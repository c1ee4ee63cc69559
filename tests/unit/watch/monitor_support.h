// Helpers for tests of the file monitor.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "agent/monitor.h"
#include "tests/support/temporary_directory.h"
#include "tests/unit/watch/moved_time.h"

namespace TestSupport {

using TavUtils::Monitor::AddMonitor;
using TavUtils::Monitor::FileWatchCallback;
using TavUtils::Monitor::FileWatchRule;
using TavUtils::Monitor::MONITOR_FILE;
using TavUtils::Monitor::RemoveMonitor;

// A callback and its reports, as "operation path [-> other path] [detail]". Any thread.
class Listener {
public:
    Listener() : callback_(std::make_shared<FileWatchCallback>(Callback())) {}
    ~Listener() {
        for (const FileWatchRule& rule : rules_) {
            RemoveMonitor(rule, MONITOR_FILE);
        }
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // A rule that asks for all operations and follows its path.
    FileWatchRule Rule(const std::string& path) const {
        FileWatchRule rule;
        rule.path = path;
        rule.onAttribute = rule.onModify = rule.onDelete = true;
        rule.onMove = rule.onMovedFrom = rule.onMovedTo = rule.onReplace = true;
        rule.callback = callback_;
        return rule;
    }

    // False if the path cannot be watched. The rule ends with this object.
    bool Watch(FileWatchRule rule) {
        rule.handle = AddMonitor(rule, MONITOR_FILE);
        if (rule.handle != 0) {
            rules_.push_back(rule);
        }
        return rule.handle != 0;
    }
    bool Watch(const std::string& path) { return Watch(Rule(path)); }

    std::vector<FileWatchRule>& Rules() { return rules_; }

    // The reports since the last call.
    std::vector<std::string> Take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(reported_, {});
    }

    size_t Count() const {
        const std::lock_guard lock(mutex_);
        return reported_.size();
    }

    bool AwaitCount(size_t count) const {
        return AwaitInMovedTime([&] { return Count() >= count; });
    }

private:
    FileWatchCallback Callback() {
        return [this](int, const char* path, const char* other, bool, int operation, const std::string& detail) {
            std::string line = std::to_string(operation) + " " + (path == nullptr ? "null" : path);
            line += other == nullptr ? "" : std::string(" -> ") + other;
            line += detail.empty() ? "" : " " + detail;
            const std::lock_guard lock(mutex_);
            reported_.push_back(line);
        };
    }

    mutable std::mutex mutex_;
    std::vector<std::string> reported_;
    std::shared_ptr<FileWatchCallback> callback_;
    std::vector<FileWatchRule> rules_;
};

// A change that is reported after all earlier changes: a file moved to an unwatched place, for which the monitor waits
// longest.
class Fence {
public:
    Fence() { listener_.Watch(inside_.Write("fence", "")); }

    // Returns once all earlier changes have been reported.
    bool Pass() {
        std::rename(inside_.Path("fence").c_str(), outside_.Path("fence").c_str());
        const bool passed = listener_.AwaitCount(1);
        std::rename(outside_.Path("fence").c_str(), inside_.Path("fence").c_str());
        const bool returned = listener_.AwaitCount(2);
        listener_.Take();
        return passed && returned;
    }

private:
    TemporaryDirectory inside_;
    TemporaryDirectory outside_;
    Listener listener_;
};

// A rule whose callback blocks: the monitor then finds all changes made meanwhile at once.
class Cork {
public:
    Cork() : file_(dir_.Write("cork", "")) {
        rule_.path = file_;
        rule_.onModify = true;
        rule_.callback =
            std::make_shared<FileWatchCallback>([this](int, const char*, const char*, bool, int, const std::string&) {
                isIn_ = true;
                isIn_.notify_all();
                isOpen_.wait(false);
            });
        rule_.handle = AddMonitor(rule_, MONITOR_FILE);
        WriteFile(file_, "x");
        isIn_.wait(false);
    }
    ~Cork() {
        Pull();
        RemoveMonitor(rule_, MONITOR_FILE);
    }
    Cork(const Cork&) = delete;
    Cork& operator=(const Cork&) = delete;

    void Pull() {
        isOpen_ = true;
        isOpen_.notify_all();
    }

private:
    TemporaryDirectory dir_;
    std::string file_;
    FileWatchRule rule_;
    std::atomic<bool> isIn_ = false;
    std::atomic<bool> isOpen_ = false;
};

}  // namespace TestSupport
