// What the fuzz targets share. Each is one program around one parser of foreign bytes: the fuzzer's, or the one of
// replay_main.cpp, which hands it the seed corpus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Judges one input. Always 0; whatever must not be ends the program.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Says what was broken and ends the program in the way in which the fuzzer keeps the input, unless it holds.
void Require(bool holds, const char* rule);

// The input, with any bytes.
std::string TextOf(const uint8_t* data, size_t size);

// The input up to its first zero byte, for parsers of terminated text.
std::string TerminatedTextOf(const uint8_t* data, size_t size);
