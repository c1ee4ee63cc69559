// Bounds-checked functions of ISO/IEC 9899:2011 Annex K, which the C library does not have. They never write past a
// buffer and report a violated constraint by their result only. Any thread.
#pragma once

#include <cstddef>

// Sets count bytes of dest to ch; dest has destMax bytes. Returns 0 on success and another value if a constraint is
// violated: dest is null, destMax is above half the address space, or count is above destMax. In the last case all of
// dest is set.
int memset_s(void* dest, size_t destMax, int ch, size_t count);

// Formats into dest, which has destMax bytes including the terminator. Returns the number of bytes written without the
// terminator, or -1 if the text does not fit or a constraint is violated (dest or format is null, destMax is 0, %n is
// used). After a failure dest is the empty string if it is not null and has room.
[[gnu::format(printf, 3, 4)]] int sprintf_s(char* dest, size_t destMax, const char* format, ...);

// Scans text. The format may contain blanks, literal characters except "%", and these conversions: %d, %u and %x, each
// also with "l" or "ll", %s and %[. A "*" suppresses the assignment. The target of %s and %[ is followed by its size as
// a size_t. A field that does not fit with its terminator is a matching failure; its target becomes the empty string if
// it has room. Returns the number of assigned conversions, or -1 if the text ends before the first conversion or a
// constraint is violated (a null argument, another conversion, a size above half the address space).
//
// A number that is too long for its target: %x keeps as many low-order digits as the target holds, or stores 1 if these
// digits are all 0 and the number is not; %d and %u store the target's limit.
int sscanf_s(const char* text, const char* format, ...);
