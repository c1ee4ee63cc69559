// Shared by the fuzz targets. Each target tests one parser of untrusted bytes. Its main function is libFuzzer's, or
// that of replay_main.cpp, which replays the seed corpus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Tests one input. Returns 0; aborts if a rule is broken.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Unless holds is true, prints the rule and aborts, so that the fuzzer saves the input.
void Require(bool holds, const char* rule);

// The whole input, any bytes.
std::string TextOf(const uint8_t* data, size_t size);

// The input up to its first zero byte, for parsers of terminated strings.
std::string TerminatedTextOf(const uint8_t* data, size_t size);
