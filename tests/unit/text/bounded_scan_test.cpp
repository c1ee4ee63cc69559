#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "agent/bounds_checked.h"

namespace {

constexpr size_t longDigits = sizeof(long) * 2;

// A number one digit too long: "f", zeros, then the low digits.
std::string Overlong(const std::string& low) {
    return "f" + std::string(longDigits - low.size(), '0') + low;
}

TEST(SscanfS, ReadsIntegersInEachBase) {
    struct Case {
        const char* text;
        const char* format;
        int result;
        int value;
    };
    const Case cases[] = {
        {"42", "%d", 1, 42},     {" \t\n\v\f\r42", "%d", 1, 42},
        {"-42", "%d", 1, -42},   {"+42x", "%d", 1, 42},
        {"007", "%d", 1, 7},     {"0x1f", "%d", 1, 0},
        {"0x17", "%x", 1, 0x17}, {"0X17", "%x", 1, 0x17},
        {"-1f", "%x", 1, -0x1f}, {"+1f", "%x", 1, 0x1f},
        {"0xg", "%x", 1, 0},     {"0", "%x", 1, 0},
        {"-", "%d", 0, 77},      {"+-1", "%d", 0, 77},
        {"x", "%d", 0, 77},      {"g", "%x", 0, 77},
        {"\xff", "%d", 0, 77},   {"", "%d", -1, 77},
        {"  ", "%d", -1, 77},
    };
    for (const Case& c : cases) {
        int value = 77;
        EXPECT_EQ(sscanf_s(c.text, c.format, &value), c.result) << c.text << " " << c.format;
        EXPECT_EQ(value, c.value) << c.text << " " << c.format;
    }
}

TEST(SscanfS, ClampsDecimalNumbersToTheRange) {
    const char* huge = "99999999999999999999999999999999999999999";
    const char* hugeNegative = "-99999999999999999999999999999999999999999";
    int i = 0;
    EXPECT_EQ(sscanf_s("2147483647", "%d", &i), 1);
    EXPECT_EQ(i, INT_MAX);
    EXPECT_EQ(sscanf_s("2147483648", "%d", &i), 1);
    EXPECT_EQ(i, INT_MAX);
    EXPECT_EQ(sscanf_s("-2147483648", "%d", &i), 1);
    EXPECT_EQ(i, INT_MIN);
    EXPECT_EQ(sscanf_s("-2147483649", "%d", &i), 1);
    EXPECT_EQ(i, INT_MIN);

    long l = 0;
    EXPECT_EQ(sscanf_s(huge, "%ld", &l), 1);
    EXPECT_EQ(l, LONG_MAX);
    EXPECT_EQ(sscanf_s(hugeNegative, "%ld", &l), 1);
    EXPECT_EQ(l, LONG_MIN);

    unsigned long long ull = 0;
    EXPECT_EQ(sscanf_s("18446744073709551615", "%llu", &ull), 1);
    EXPECT_EQ(ull, ULLONG_MAX);
    EXPECT_EQ(sscanf_s("18446744073709551616", "%llu", &ull), 1);
    EXPECT_EQ(ull, ULLONG_MAX);
    EXPECT_EQ(sscanf_s("-18446744073709551615", "%llu", &ull), 1);
    EXPECT_EQ(ull, 1U);
    EXPECT_EQ(sscanf_s(hugeNegative, "%llu", &ull), 1);
    EXPECT_EQ(ull, ULLONG_MAX);

    unsigned int u = 0;
    EXPECT_EQ(sscanf_s("4294967295", "%u", &u), 1);
    EXPECT_EQ(u, UINT_MAX);
    EXPECT_EQ(sscanf_s("4294967296", "%u", &u), 1);
    EXPECT_EQ(u, UINT_MAX);
    EXPECT_EQ(sscanf_s("-1", "%u", &u), 1);
    EXPECT_EQ(u, UINT_MAX);
    EXPECT_EQ(sscanf_s("-2", "%u", &u), 1);
    EXPECT_EQ(u, UINT_MAX - 1);
}

TEST(SscanfS, WritesNoMoreThanTheTargetsSize) {
    struct {
        int value = 5;
        unsigned char behind[12] = {9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9};
    } number;
    for (const char* format : {"%d", "%u", "%x"}) {
        EXPECT_EQ(sscanf_s("99999999999999999999", format, &number.value), 1) << format;
        EXPECT_TRUE(std::all_of(std::begin(number.behind), std::end(number.behind), [](unsigned char c) {
            return c == 9;
        })) << format;
    }
}

TEST(SscanfS, KeepsTheLowDigitsOfALongHexadecimalNumber) {
    struct Case {
        std::string text;
        unsigned long value;
    };
    const Case cases[] = {
        {std::string(longDigits, 'f'), ULONG_MAX},
        {Overlong("1234abcd"), 0x1234abcdUL},
        {Overlong("1"), 1},
        {Overlong(""), 1},
        {std::string(32, '0'), 0},
        {std::string(longDigits, '0') + "12", 0x12},
        {"0000000000000000FFFF00000100007F", static_cast<unsigned long>(0xFFFF00000100007FULL)},
        {"B80D0120000000000000000001000000", 0x01000000},
        {"000080FE000000000000000000000000", 1},
        {"1" + std::string(1000, '0'), 1},
        {std::string(1000, '0') + "1", 1},
    };
    for (const Case& c : cases) {
        unsigned long value = 77;
        EXPECT_EQ(sscanf_s(c.text.c_str(), "%lx", &value), 1) << c.text;
        EXPECT_EQ(value, c.value) << c.text;
    }
    unsigned int word = 0;
    EXPECT_EQ(sscanf_s("123456789", "%x", &word), 1);
    EXPECT_EQ(word, 0x23456789U);
    EXPECT_EQ(sscanf_s("100000000", "%x", &word), 1);
    EXPECT_EQ(word, 1U);
    EXPECT_EQ(sscanf_s("-100000000", "%x", &word), 1);
    EXPECT_EQ(word, 1U);
}

TEST(SscanfS, ReadsText) {
    struct Case {
        const char* text;
        const char* format;
        size_t size;
        int result;
        const char* value;
    };
    const Case cases[] = {
        {"abc def", "%s", 8, 1, "abc"},
        {"  abc", "%s", 8, 1, "abc"},
        {"abcdefg", "%s", 8, 1, "abcdefg"},
        {"abcdefgh", "%s", 8, 0, ""},
        {"abc", "%s", 3, 0, ""},
        {"abc", "%s", 1, 0, ""},
        {"abc", "%s", 0, 0, "before"},
        {"\xff\xfe\x01", "%s", 8, 1, "\xff\xfe\x01"},
        {"", "%s", 8, -1, "before"},
        {"   ", "%s", 8, -1, "before"},
        {"123abc", "%[0-9]", 8, 1, "123"},
        {"abc", "%[0-9]", 8, 0, "before"},
        {" 12", "%[0-9]", 8, 0, "before"},
        {"", "%[0-9]", 8, -1, "before"},
        {"12345678", "%[0-9]", 8, 0, ""},
        {"a]b", "%[]a]", 8, 1, "a]"},
        {"ab]c", "%[^]]", 8, 1, "ab"},
        {"a-b", "%[a-]", 8, 1, "a-"},
        {"-ab", "%[-a]", 8, 1, "-a"},
        {"a^b", "%[a^]", 8, 1, "a^"},
        {"az-y", "%[z-a]", 8, 1, "az-"},
        {"a%b", "%[^%]", 8, 1, "a"},
        {"ab\xc3\xa4z", "%[\xa0-\xff]", 8, 0, "before"},
        {"\xc3\xa4z", "%[\xa0-\xff]", 8, 1, "\xc3\xa4"},
        {"a b\nc", "%[^\n]", 8, 1, "a b"},
    };
    for (const Case& c : cases) {
        char value[16] = "before";
        EXPECT_EQ(sscanf_s(c.text, c.format, value, c.size), c.result) << c.text << " | " << c.format;
        EXPECT_STREQ(value, c.value) << c.text << " | " << c.format;
    }
}

TEST(SscanfS, WritesNoTextPastTheTarget) {
    for (const char* format : {"%s", "%[^\n]"}) {
        const std::string text(100, 'A');
        for (size_t size = 0; size <= 150; ++size) {
            std::string target(160, '#');
            EXPECT_EQ(sscanf_s(text.c_str(), format, target.data(), size), size > text.size() ? 1 : 0)
                << format << " " << size;
            EXPECT_TRUE(std::all_of(target.begin() + static_cast<std::ptrdiff_t>(size), target.end(),
                                    [](char c) { return c == '#'; }))
                << format << " " << size;
        }
    }
}

TEST(SscanfS, StopsAtTheFirstMismatch) {
    int a = -1;
    int b = -1;
    EXPECT_EQ(sscanf_s("1:2", "%d:%d", &a, &b), 2);
    EXPECT_EQ(sscanf_s("3;4", "%d:%d", &a, &b), 1);
    EXPECT_EQ(a, 3);
    EXPECT_EQ(b, 2);
    EXPECT_EQ(sscanf_s("5", "%d:%d", &a, &b), 1);
    EXPECT_EQ(sscanf_s("6:", "%d:%d", &a, &b), 1);
    EXPECT_EQ(b, 2);
}

TEST(SscanfS, MatchesLiteralsAndBlanksOfTheFormat) {
    int value = 0;
    EXPECT_EQ(sscanf_s("pid  :\n 7", "pid :%d", &value), 1);
    EXPECT_EQ(value, 7);
    EXPECT_EQ(sscanf_s("pid:8", "pid \t:%d", &value), 1);
    EXPECT_EQ(value, 8);
    EXPECT_EQ(sscanf_s(" pid:9", "pid:%d", &value), 0);
    EXPECT_EQ(sscanf_s("", "pid%d", &value), -1);
    EXPECT_EQ(sscanf_s("", " "), 0);
    EXPECT_EQ(sscanf_s("anything", ""), 0);
}

TEST(SscanfS, SuppressedConversionsTakeNoTargetAndNoSize) {
    int value = 0;
    char text[4];
    EXPECT_EQ(sscanf_s("abc 12 xyz 7", "%*s%*d%*[a-z ]%d", &value), 1);
    EXPECT_EQ(value, 7);
    EXPECT_EQ(sscanf_s("abcdefgh xy", "%*s%s", text, sizeof(text)), 1);
    EXPECT_STREQ(text, "xy");
    EXPECT_EQ(sscanf_s("abc", "%*s%d", &value), 0);
    EXPECT_EQ(sscanf_s("", "%*s%d", &value), -1);
}

TEST(SscanfS, RejectsInvalidArguments) {
    int value = 77;
    const char* none = nullptr;
    EXPECT_EQ(sscanf_s(none, "%d", &value), -1);
    EXPECT_EQ(sscanf_s("1", none, &value), -1);
    EXPECT_EQ(sscanf_s("1", "%d", static_cast<int*>(nullptr)), -1);
    EXPECT_EQ(sscanf_s("1", "%s", static_cast<char*>(nullptr), size_t{4}), -1);
    char text[4] = "abc";
    EXPECT_EQ(sscanf_s("1", "%s", text, std::numeric_limits<size_t>::max()), -1);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(value, 77);
}

TEST(SscanfS, RejectsUnsupportedFormats) {
    for (const char* format :
         {"%",    "%*",  "%l",   "%5d", "%0d", "%f", "%p", "%q", "%Ld", "%ls", "%hd", "%hhd", "%l[a]", "%[",   "%[]",
          "%[^]", "%[^", "%[a-", "%i",  "%o",  "%X", "%c", "%n", "%%",  "%zu", "%jd", "%ms",  "%3s",   "%llld"}) {
        char target[64] = "before";
        EXPECT_EQ(sscanf_s("12 ab", format, target, sizeof(target)), -1) << format;
        EXPECT_STREQ(target, "before") << format;
    }
}

TEST(SscanfS, ReadsALineOfAConnectionTable) {
    const char* const format = "%*s%lx:%x%lx:%x%x%*s%*s%*x%*x%*x%lu";
    unsigned long local = 0;
    unsigned long remote = 0;
    unsigned long inode = 0;
    unsigned int localPort = 0;
    unsigned int remotePort = 0;
    unsigned int state = 0;
    EXPECT_EQ(sscanf_s("   0: 0100007F:1F90 0200007F:D431 01 00000000:00000000 00:00000000 00000000  1000        0 "
                       "23456 1 0000000000000000 100 0 0 10 0",
                       format, &local, &localPort, &remote, &remotePort, &state, &inode),
              6);
    EXPECT_EQ(local, 0x0100007FUL);
    EXPECT_EQ(localPort, 8080U);
    EXPECT_EQ(remote, 0x0200007FUL);
    EXPECT_EQ(remotePort, 0xD431U);
    EXPECT_EQ(state, 1U);
    EXPECT_EQ(inode, 23456U);

    EXPECT_EQ(sscanf_s("  12: B80D0120000000000000000000000000:0016 00000000000000000000000000000000:0000 0A "
                       "00000000:00000000 00:00000000 00000000     0        0 99",
                       format, &local, &localPort, &remote, &remotePort, &state, &inode),
              6);
    EXPECT_EQ(local, 1U);
    EXPECT_EQ(remote, 0U);
    EXPECT_EQ(inode, 99U);

    EXPECT_EQ(sscanf_s("  sl  local_address rem_address   st tx_queue", format, &local, &localPort, &remote,
                       &remotePort, &state, &inode),
              0);
    EXPECT_EQ(sscanf_s("", format, &local, &localPort, &remote, &remotePort, &state, &inode), -1);
}

TEST(SscanfS, ReadsTheOtherFormsOfKernelTables) {
    unsigned long value = 0;
    EXPECT_EQ(sscanf_s("17 ffff8881", "%*d%lx", &value), 1);
    EXPECT_EQ(value, 0xffff8881UL);

    char digits[8];
    EXPECT_EQ(sscanf_s("4026531992]", "%[0-9]", digits, sizeof(digits)), 0);
    EXPECT_STREQ(digits, "");
    EXPECT_EQ(sscanf_s("40265]", "%[0-9]", digits, sizeof(digits)), 1);
    EXPECT_STREQ(digits, "40265");

    unsigned long long wide = 0;
    EXPECT_EQ(sscanf_s("btime: at 1714566896", "%*s%*s%llu", &wide), 1);
    EXPECT_EQ(wide, 1714566896U);

    int major = 0;
    int minor = 0;
    char name[16];
    char last[16];
    const char* const format = "%lu%d%d%s%*[^*]*%s";
    EXPECT_EQ(sscanf_s("7 8 -1 eth0 some text * rest more", format, &value, &major, &minor, name, sizeof(name), last,
                       sizeof(last)),
              5);
    EXPECT_EQ(value, 7U);
    EXPECT_EQ(major, 8);
    EXPECT_EQ(minor, -1);
    EXPECT_STREQ(name, "eth0");
    EXPECT_STREQ(last, "rest");
    EXPECT_EQ(sscanf_s("7 8 -1 eth0* rest", format, &value, &major, &minor, name, sizeof(name), last, sizeof(last)), 4);
    EXPECT_STREQ(name, "eth0*");
}

TEST(SscanfS, ScansLongTextToItsEnd) {
    const std::string text = std::string(2 * 1024 * 1024, 'x') + " 5";
    int value = 0;
    EXPECT_EQ(sscanf_s(text.c_str(), "%*s%d", &value), 1);
    EXPECT_EQ(value, 5);
}

// On texts too short to reach any limit, the results must equal those of the C library.
TEST(SscanfS, AgreesWithTheCLibraryOnShortTexts) {
    const char* const formats[] = {"%d%d%s",         "%d:%d %s",    "%x%x%s",          "%x:%x%[0-9a-f]",
                                   "%u%x%[^:]",      "%*d%d%d%s",   "%*s%x%d%s",       "%d -%d%s",
                                   "%d%*[a-f ]%d%s", "%d+%d%[]:x]", "%x%*x%u%[^a-fx0]"};
    std::minstd_rand random(20240501);
    const std::string alphabet = "0012378aAbfFxX+-:% \t]";
    for (int round = 0; round < 60000; ++round) {
        std::string text(random() % 9, ' ');
        for (char& c : text) {
            c = alphabet[random() % alphabet.size()];
        }
        const char* format = formats[static_cast<size_t>(round) % std::size(formats)];
        int own[2] = {77, 77};
        int measure[2] = {77, 77};
        char ownText[64] = "before";
        char measureText[64] = "before";
        const int result = sscanf_s(text.c_str(), format, &own[0], &own[1], ownText, sizeof(ownText));
        int expected = std::sscanf(text.c_str(), format, &measure[0], &measure[1], measureText);
        // The C library ignores a suppressed conversion when it decides whether the text ended before the first one.
        if (std::strncmp(format, "%*", 2) == 0 && result == 0 && expected == -1) {
            expected = 0;
        }
        ASSERT_EQ(result, expected) << "'" << text << "' " << format;
        ASSERT_EQ(own[0], measure[0]) << "'" << text << "' " << format;
        ASSERT_EQ(own[1], measure[1]) << "'" << text << "' " << format;
        ASSERT_STREQ(ownText, measureText) << "'" << text << "' " << format;
    }
}

}  // namespace
