// Lines that are waiting to be written, oldest first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

namespace Host {

// For one thread at a time.
class PendingLines {
public:
    static constexpr size_t maxLines = 10000;
    static constexpr size_t maxBytes = size_t{16} * 1024 * 1024;

    bool Empty() const { return lines_.empty(); }
    size_t Size() const { return lines_.size(); }
    const std::string& Front() const { return lines_.front(); }
    void Push(std::string line);
    void Pop();
    void Clear();

    // Drops the oldest lines until both limits hold and returns the number dropped. With keepFront the first line is
    // kept whatever its size, because part of it is already written.
    uint64_t Trim(bool keepFront);

private:
    std::deque<std::string> lines_;
    size_t bytes_ = 0;
};

}  // namespace Host
