// The format of a bounds-checked scan, directive by directive.
#pragma once

#include <bitset>
#include <cstddef>
#include <limits>

namespace Host {

// Half the address space: no object is larger.
inline constexpr size_t maxObjectBytes = std::numeric_limits<size_t>::max() / 2;

// Own character tests: those of the C library follow the locale, and are undefined for a negative char.
bool IsSpace(char c);
bool IsDigit(char c);

// 0 to 15 for a digit in any base up to 16, 16 for anything else.
unsigned int DigitValue(char c);

enum class Length { none, hh, h, l, ll, z, j };

struct Directive {
    bool suppressed = false;
    size_t width = 0;  // 0 for none
    Length length = Length::none;
    char conversion = '\0';
    std::bitset<256> set;  // of '['
};

// Reads one directive, p being behind its '%', and leaves p behind it. False if it is not one that is offered. Any
// thread.
bool ReadDirective(const char*& p, Directive& directive);

}  // namespace Host
