// The bounds-checked scan with the formats that the module uses. The first byte sets the size of the text targets.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "agent/bounds_checked.h"
#include "tests/fuzz/fuzz_target.h"

namespace {

constexpr char filler = '\x5A';

// Allocates exactly size bytes, so that the address sanitizer detects a write past the end.
class Target {
public:
    explicit Target(size_t size) : size_(size), bytes_(new char[size]) { memset(bytes_.get(), filler, size); }

    char* Bytes() const { return bytes_.get(); }
    size_t Size() const { return size_; }

    // The text up to its terminator, which must be in the target.
    std::string Text() const {
        Require(memchr(bytes_.get(), '\0', size_) != nullptr, "a text is terminated");
        return bytes_.get();
    }

private:
    size_t size_;
    std::unique_ptr<char[]> bytes_;
};

void CheckText(const std::string& text, size_t room, const char* format) {
    const Target target(room);
    const int assigned = sscanf_s(text.c_str(), format, target.Bytes(), target.Size());
    Require(assigned >= -1 && assigned <= 1, "one conversion is assigned at most");
    if (assigned == 1) {
        const std::string value = target.Text();
        Require(!value.empty() && text.find(value) != std::string::npos, "the assigned value is part of the text");
    } else {
        Require(target.Bytes()[0] == filler || target.Bytes()[0] == '\0', "a value that does not fit is not copied");
    }
}

// True if a number may be too long for its target. Otherwise the C library must read the same.
bool HasLongWord(const std::string& text) {
    constexpr size_t fits = 8;
    size_t length = 0;
    return std::any_of(text.begin(), text.end(), [&length](char c) {
        length = c == ' ' ? 0 : length + 1;
        return length > fits;
    });
}

struct Connection {
    unsigned long localIp = 0;
    unsigned int localPort = 0;
    unsigned long remoteIp = 0;
    unsigned int remotePort = 0;
    unsigned int state = 0;
    unsigned long inode = 0;

    bool operator==(const Connection&) const = default;
};

void CheckNumbers(const std::string& text) {
    constexpr char format[] = "%*s%lx:%x%lx:%x%x%*s%*s%*x%*x%*x%lu";
    Connection ours;
    const int assigned = sscanf_s(text.c_str(), format, &ours.localIp, &ours.localPort, &ours.remoteIp,
                                  &ours.remotePort, &ours.state, &ours.inode);
    Require(assigned >= -1 && assigned <= 6, "six conversions are assigned at most");
    if (HasLongWord(text)) {
        return;
    }
    Connection theirs;
    const int expected = sscanf(text.c_str(), format, &theirs.localIp, &theirs.localPort, &theirs.remoteIp,
                                &theirs.remotePort, &theirs.state, &theirs.inode);
    // If the text ends after a suppressed conversion, sscanf_s succeeds and glibc's sscanf fails.
    Require(std::max(assigned, 0) == std::max(expected, 0) && ours == theirs,
            "short numbers are read as the C library reads them");
}

void CheckAssociation(const std::string& text, size_t room) {
    unsigned long inode = 0;
    int localPort = 0;
    int remotePort = 0;
    const Target local(room);
    const Target remote(room);
    const int assigned = sscanf_s(text.c_str(), "%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%lu%d%d%s%*[^*]*%s", &inode, &localPort,
                                  &remotePort, local.Bytes(), local.Size(), remote.Bytes(), remote.Size());
    Require(assigned >= -1 && assigned <= 5, "five conversions are assigned at most");
    if (assigned >= 4) {
        local.Text();
    }
    if (assigned == 5) {
        remote.Text();
    }
}

void CheckRest(const std::string& text) {
    unsigned long descriptor = 0;
    Require(sscanf_s(text.c_str(), "%*d%lx", &descriptor) <= 1, "one number is assigned at most");
    unsigned long long ticks = 0;
    Require(sscanf_s(text.c_str(), "%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%*s%llu", &ticks) <= 1,
            "one number is assigned at most");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const size_t room = size_t{1} + data[0];
    const std::string text = TerminatedTextOf(data + 1, size - 1);
    CheckText(text, room, "%*s%s");
    CheckText(text, room, "%s");
    CheckText(text, room, "%[0-9]");
    CheckNumbers(text);
    CheckAssociation(text, room);
    CheckRest(text);
    return 0;
}
