// The format of a bounds-checked scan, directive by directive.
#pragma once

#include <bitset>

namespace Host {

// Character tests of our own: those of the C library follow the locale, and are undefined for a negative char.
bool IsSpace(char c);

// 0 to 15 for a digit in any base up to 16, 16 for anything else.
unsigned int DigitValue(char c);

enum class Length { none, l, ll };

struct Directive {
    bool suppressed = false;
    Length length = Length::none;
    char conversion = '\0';  // d u x s [
    std::bitset<256> set;    // of '['
};

// Reads one directive, p being behind its '%', and leaves p behind it. False if it is not one of those that
// agent/bounds_checked.h lists. Any thread.
bool ReadDirective(const char*& p, Directive& directive);

}  // namespace Host
