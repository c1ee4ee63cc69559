#include "inspect/blocked_call.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <iterator>
#include <set>
#include <string>

namespace {

TEST(BlockedCall, HasItsNumberAndTheLowBitsOfItsFirstArgument) {
    const struct {
        const char* text;
        long number;
        unsigned int firstArgument;
    } cases[] = {
        {"0 0x3 0x7ffd57dc8878 0x1 0x0 0x0 0x0 0x7ffd57dc8878 0x7fb0c9d162ad\n", 0, 3},
        {"3 0x0 0xbe9c3b6f 0x1 0x0 0x0 0x0 0xbe9c3b30 0xb6e70e4c\n", 3, 0},
        {"270 0x1", 270, 1},
        {"45 0xffffffffffffffff 0x0\n", 45, 0xFFFFFFFF},
        {"45 0xdeadbeef00000003 0x0\n", 45, 3},
    };
    for (const auto& row : cases) {
        const std::optional<BlockedCall> call = ParseBlockedCall(row.text);
        ASSERT_TRUE(call) << row.text;
        EXPECT_EQ(call->number, row.number) << row.text;
        EXPECT_EQ(call->firstArgument, row.firstArgument) << row.text;
    }
}

TEST(BlockedCall, IsMissingInOtherTexts) {
    for (const char* text : {"", "\n", "running\n", "0", "0 ", "0 3", "0 0x", "0 0xg", "x 0x3", " 0 0x3", "+0 0x3",
                             "-1 0x7ffd57dc8878 0x7fb0c9d162ad\n", "-0 0x3", "0x3 0x3", "0  0x3",
                             "0 0x10000000000000000", "0f3 0x4", "99999999999999999999 0x3"}) {
        EXPECT_FALSE(ParseBlockedCall(text)) << text;
    }
}

TEST(CallNumbers, AreThoseOfBothWidthsOfAMachine) {
    const struct {
        Machine machine;
        long number;
        bool reads;
        bool selects;
    } cases[] = {
        {Machine::arm, 3, true, false},     {Machine::arm, 145, true, false},    {Machine::arm, 291, true, false},
        {Machine::arm, 292, true, false},   {Machine::arm, 297, true, false},    {Machine::arm, 63, true, false},
        {Machine::arm, 82, false, true},    {Machine::arm, 142, false, true},    {Machine::arm, 335, false, true},
        {Machine::arm, 413, false, true},   {Machine::arm, 72, false, true},     {Machine::arm, 0, false, false},
        {Machine::arm, 4, false, false},    {Machine::arm, 146, false, false},   {Machine::arm, 168, false, false},
        {Machine::arm, 289, false, false},  {Machine::arm, 290, false, false},   {Machine::arm, 336, false, false},
        {Machine::arm64, 63, true, false},  {Machine::arm64, 65, true, false},   {Machine::arm64, 207, true, false},
        {Machine::arm64, 212, true, false}, {Machine::arm64, 72, false, true},   {Machine::arm64, 3, true, false},
        {Machine::arm64, 64, false, false}, {Machine::arm64, 206, false, false}, {Machine::arm64, 73, false, false},
        {Machine::x86, 0, true, false},     {Machine::x86, 19, true, false},     {Machine::x86, 45, true, false},
        {Machine::x86, 47, true, false},    {Machine::x86, 3, true, false},      {Machine::x86, 371, true, false},
        {Machine::x86, 23, false, true},    {Machine::x86, 270, false, true},    {Machine::x86, 308, false, true},
        {Machine::x86, 1, false, false},    {Machine::x86, 7, false, false},     {Machine::x86, 44, false, false},
        {Machine::x86, 271, false, false},  {Machine::x86, 232, false, false},   {Machine::x86, 42, false, false},
        {Machine::other, 0, false, false},  {Machine::other, 3, false, false},   {Machine::other, 270, false, false},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(IsReadingCall(row.machine, row.number), row.reads) << row.number;
        EXPECT_EQ(IsSelectCall(row.machine, row.number), row.selects) << row.number;
    }
}

// From the tables of the kernel's architectures, in both widths.
TEST(CallNumbers, AreNoOthers) {
    const std::set<long> armReads{3, 145, 291, 292, 297, 365, 392, 417, 63, 65, 207, 212, 243, 286};
    const std::set<long> armSelects{82, 142, 335, 413, 72};
    const std::set<long> x86Reads{0, 19, 45, 47, 299, 327, 3, 145, 337, 371, 372, 378, 417};
    const std::set<long> x86Selects{23, 270, 82, 142, 308, 413};
    for (long number = -1; number < 600; ++number) {
        EXPECT_EQ(IsReadingCall(Machine::arm, number), armReads.contains(number)) << number;
        EXPECT_EQ(IsSelectCall(Machine::arm, number), armSelects.contains(number)) << number;
        EXPECT_EQ(IsReadingCall(Machine::x86, number), x86Reads.contains(number)) << number;
        EXPECT_EQ(IsSelectCall(Machine::x86, number), x86Selects.contains(number)) << number;
    }
}

TEST(CallNumbers, AgreeWithTheHeadersOfThisMachine) {
    for (const long number : {SYS_read, SYS_readv, SYS_recvfrom, SYS_recvmsg, SYS_recvmmsg, SYS_preadv2}) {
        EXPECT_TRUE(IsReadingCall(thisMachine, number)) << number;
        EXPECT_FALSE(IsSelectCall(thisMachine, number)) << number;
    }
    EXPECT_TRUE(IsSelectCall(thisMachine, SYS_pselect6));
    for (const long number : {SYS_write, SYS_writev, SYS_sendto, SYS_sendmsg, SYS_ppoll, SYS_connect, SYS_accept4}) {
        EXPECT_FALSE(IsReadingCall(thisMachine, number)) << number;
        EXPECT_FALSE(IsSelectCall(thisMachine, number)) << number;
    }
}

TEST(CallNumbers, AreRightExceptOnOldArm) {
    const struct {
        Machine machine;
        const char* release;
        bool right;
    } cases[] = {
        {Machine::arm, "5.10.0-32-armmp", false},
        {Machine::arm, "5.14.21", false},
        {Machine::arm, "4.19.0", false},
        {Machine::arm, "5.15.0", true},
        {Machine::arm, "5.15", true},
        {Machine::arm, "5.100.1", true},
        {Machine::arm, "6.1.0-50-armmp", true},
        {Machine::arm, "6.12.107", true},
        {Machine::arm, "7.2-rc1", true},
        {Machine::arm, "9.1.0", true},
        {Machine::arm, "5a.20", false},
        {Machine::arm, "", false},
        {Machine::arm, "6", false},
        {Machine::arm, "six.1", false},
        {Machine::arm64, "5.10.0", true},
        {Machine::x86, "5.10.0", true},
        {Machine::x86, "", true},
        {Machine::other, "6.1.0", false},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(AreCallNumbersRight(row.machine, row.release), row.right) << row.release;
    }
}

}  // namespace
