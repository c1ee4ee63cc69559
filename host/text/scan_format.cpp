#include "host/text/scan_format.h"

namespace Host {

bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

unsigned int DigitValue(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned int>(c - '0');
    }
    if (c >= 'a' && c <= 'f') {
        return static_cast<unsigned int>(c - 'a') + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return static_cast<unsigned int>(c - 'A') + 10;
    }
    return 16;
}

namespace {

// Parses a scan set. p points behind its '['. False if the set has no closing bracket.
bool ReadSet(const char*& p, std::bitset<256>& set) {
    const bool negated = *p == '^';
    if (negated) {
        ++p;
    }
    const char* first = p;
    for (; *p != ']' || p == first; ++p) {
        if (*p == '\0') {
            return false;
        }
        const auto low = static_cast<unsigned char>(*p);
        auto high = low;
        if (p[1] == '-' && p[2] != ']' && p[2] != '\0' && static_cast<unsigned char>(p[2]) >= low) {
            high = static_cast<unsigned char>(p[2]);
            p += 2;
        }
        for (unsigned int member = low; member <= high; ++member) {
            set.set(member);
        }
    }
    ++p;
    if (negated) {
        set.flip();
    }
    return true;
}

Length ReadLength(const char*& p) {
    if (*p != 'l') {
        return Length::none;
    }
    const bool isTwice = p[1] == 'l';
    p += isTwice ? 2 : 1;
    return isTwice ? Length::ll : Length::l;
}

}  // namespace

bool ReadDirective(const char*& p, Directive& directive) {
    if (*p == '*') {
        directive.suppressed = true;
        ++p;
    }
    directive.length = ReadLength(p);
    directive.conversion = *p;
    if (directive.conversion == '\0') {
        return false;
    }
    ++p;
    switch (directive.conversion) {
        case 'd':
        case 'u':
        case 'x':
            return true;
        case 's':
            return directive.length == Length::none;
        case '[':
            return directive.length == Length::none && ReadSet(p, directive.set);
        default:
            return false;
    }
}

}  // namespace Host
