#include "host/check/confinement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Host {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(CheckConfinement, ReadsHidepidFromTheLastMountOfProc) {
    const struct {
        const char* mounts;
        const char* option;
    } rows[] = {
        {"proc /proc proc rw,nosuid 0 0\n", ""},
        {"proc /proc proc rw,hidepid=2,gid=4 0 0\n", "2"},
        {"proc /proc proc rw,hidepid=invisible 0 0\n", "invisible"},
        {"proc /jail/proc proc rw,hidepid=2 0 0\n", ""},
        {"proc /proc proc rw,hidepid=2 0 0\nproc /proc proc rw 0 0\n", ""},
        {"", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(HidepidOption(row.mounts), row.option) << row.mounts;
    }
}

TEST(CheckConfinement, RecognisesNamespacesOtherThanTheInitialOne) {
    const struct {
        const char* target;
        bool later;
    } rows[] = {
        {"pid:[4026531836]", false}, {"user:[4026531837]", false}, {"", false},
        {"pid:[4026532255]", true},  {"user:[4026532254]", true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(IsLaterNamespace(row.target), row.later) << row.target;
    }
}

TEST(CheckConfinement, YamaHidesWaitsFromScopeThreeOn) {
    const struct {
        const char* scope;
        bool lacking;
        const char* line;
    } rows[] = {
        {"", false, "OK      Yama: not in this kernel\n"},
        {"0\n", false, "OK      Yama: kernel.yama.ptrace_scope is 0\n"},
        {"1\n", false, "OK      Yama: kernel.yama.ptrace_scope is 1, which CAP_SYS_PTRACE overrides\n"},
        {"2\n", false, "OK      Yama: kernel.yama.ptrace_scope is 2, which CAP_SYS_PTRACE overrides\n"},
        {"3\n", true, "LIMITED Yama: kernel.yama.ptrace_scope is 3, which makes /proc/<pid>/stack"},
    };
    for (const auto& row : rows) {
        CheckReport report;
        ReportYama(row.scope, report);
        EXPECT_THAT(report.Text(), StartsWith(row.line));
        EXPECT_EQ(report.IsLacking(Facility::kernelWaits), row.lacking) << row.scope;
    }
}

TEST(CheckConfinement, ReportsLockdownButNoLack) {
    const struct {
        const char* modes;
        const char* line;
    } rows[] = {
        {"", "lockdown: not in this kernel"},
        {"none integrity", "lockdown: not in this kernel"},
        {"[none] integrity confidentiality\n", "lockdown: mode none, which restricts nothing"},
        {"none integrity [confidentiality]\n", "lockdown: mode confidentiality, which restricts nothing"},
    };
    for (const auto& row : rows) {
        CheckReport report;
        ReportLockdown(row.modes, report);
        EXPECT_THAT(report.Text(), HasSubstr(row.line));
        EXPECT_TRUE(report.Lacking().empty()) << row.modes;
    }
}

}  // namespace
}  // namespace Host
