#include "tests/fuzz/fuzz_target.h"

#include <cstdio>
#include <cstdlib>

#include "frame/pacing.h"

// Replaces the module's pauses, which would only slow the fuzzer down.
void Pause(unsigned int) {}

void Require(bool holds, const char* rule) {
    if (!holds) {
        fprintf(stderr, "broken: %s\n", rule);
        abort();
    }
}

std::string TextOf(const uint8_t* data, size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

std::string TerminatedTextOf(const uint8_t* data, size_t size) {
    return TextOf(data, size).c_str();
}
