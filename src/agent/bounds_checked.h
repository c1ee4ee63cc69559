// Bounds-checked functions by their names in ISO/IEC 9899:2011 Annex K, where the C library has none. They never write
// past a buffer, and they report a violated constraint by their result alone. Any thread.
#pragma once

#include <cstddef>

// Sets count bytes of dest, which has destMax, to ch. 0 on success; otherwise a constraint was violated (dest null,
// destMax above half the address space, count above destMax) and, where dest and destMax are sound, all of dest is set.
int memset_s(void* dest, size_t destMax, int ch, size_t count);

// Formats into dest, which has destMax bytes with the terminator. The number of bytes written without the terminator;
// -1 when the text does not fit or a constraint was violated (dest or format null, destMax 0, %n used), and then dest,
// where it is sound, is the empty string.
[[gnu::format(printf, 3, 4)]] int sprintf_s(char* dest, size_t destMax, const char* format, ...);

// Scans text. The format may hold blanks, literal characters except "%", and these conversions, each with "*" for one
// that is not stored: %d, %u and %x, also with "l" or "ll", %s and %[. The target of %s and %[ is followed by its size
// as a size_t; a field that does not fit with its terminator is a matching failure, and its target, if it has room, is
// the empty string. Returns the number of stored conversions, or -1 if the text ends before the first conversion or a
// constraint was violated (a null argument, another conversion, a size above half the address space).
//
// A number too long for its target keeps its low-order digits in %x, as many as the target holds, and the value 1 where
// those digits are all 0 but the number is not; in %d and %u it is held at the target's limit.
int sscanf_s(const char* text, const char* format, ...);
