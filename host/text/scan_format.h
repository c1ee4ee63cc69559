// Parses the format of a bounds-checked scan.
#pragma once

#include <bitset>

namespace Host {

// The C library's character tests depend on the locale and are undefined for a negative char.
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

// Parses one directive. p points behind its '%' and is moved behind the directive. False if agent/bounds_checked.h does
// not list it. Any thread.
bool ReadDirective(const char*& p, Directive& directive);

}  // namespace Host
