#include "host/text/scan_format.h"

namespace Host {

bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

unsigned int DigitValue(char c) {
    if (IsDigit(c)) {
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

// The members of a scan set, p being behind its '['. False if the set has no end.
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
    switch (*p) {
        case 'h':
        case 'l': {
            const bool isLong = *p == 'l';
            const bool isTwice = p[1] == p[0];
            p += isTwice ? 2 : 1;
            if (isLong) {
                return isTwice ? Length::ll : Length::l;
            }
            return isTwice ? Length::hh : Length::h;
        }
        case 'z':
            ++p;
            return Length::z;
        case 'j':
            ++p;
            return Length::j;
        default:
            return Length::none;
    }
}

}  // namespace

bool ReadDirective(const char*& p, Directive& directive) {
    if (*p == '*') {
        directive.suppressed = true;
        ++p;
    }
    if (IsDigit(*p)) {
        for (; IsDigit(*p); ++p) {
            if (directive.width > maxObjectBytes / 10 - 1) {
                return false;
            }
            directive.width = directive.width * 10 + DigitValue(*p);
        }
        if (directive.width == 0) {
            return false;
        }
    }
    directive.length = ReadLength(p);
    directive.conversion = *p;
    if (directive.conversion == '\0') {
        return false;
    }
    ++p;
    switch (directive.conversion) {
        case 'd':
        case 'i':
        case 'u':
        case 'o':
        case 'x':
        case 'X':
            return true;
        case 'n':
            return directive.width == 0 && directive.length == Length::none;
        case 's':
        case 'c':
            return directive.length == Length::none;
        case '[':
            return directive.length == Length::none && ReadSet(p, directive.set);
        default:
            return false;
    }
}

}  // namespace Host
