#include "classifier/tmp_command_list.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

class TmpCommandList : public testing::Test {
protected:
    void SetUp() override {
        tmpProcLock.Init();
        ClearTmpProcs();
    }

    void TearDown() override {
        ClearTmpProcs();
        tmpProcLock.Destroy();
    }

    static TPROC_INFO Command(int pid, const std::string& path, unsigned long long timestamp) {
        return {.pid = pid, .path = path, .cmdline = path, .timestamp = timestamp, .suspended = 0};
    }
};

TEST_F(TmpCommandList, CreatesAnEntryForTheFirstCommand) {
    RecordTmpCommand(500, Command(601, "ls", 1));
    ASSERT_EQ(tmpProcMap.size(), 1U);
    EXPECT_FALSE(tmpProcMap[500].judged);
    EXPECT_FALSE(tmpProcMap[500].isRshell);
    EXPECT_EQ(tmpProcMap[500].procList.size(), 1U);
}

TEST_F(TmpCommandList, ReplacesTheCommandWithTheSamePidInPlace) {
    for (const int pid : {601, 602, 603}) {
        RecordTmpCommand(500, Command(pid, "ls", static_cast<unsigned long long>(pid)));
    }
    RecordTmpCommand(500, Command(602, "cat", 700));
    ASSERT_EQ(tmpProcMap[500].procList.size(), 3U);
    EXPECT_EQ(tmpProcMap[500].procList[1].path, "cat");
    EXPECT_EQ(tmpProcMap[500].procList[1].timestamp, 700U);
    EXPECT_EQ(tmpProcMap[500].procList[2].path, "ls");
}

TEST_F(TmpCommandList, KeepsTheSamePidUnderTwoParents) {
    RecordTmpCommand(500, Command(601, "ls", 1));
    RecordTmpCommand(501, Command(601, "cat", 2));
    EXPECT_EQ(tmpProcMap[500].procList.at(0).path, "ls");
    EXPECT_EQ(tmpProcMap[501].procList.at(0).path, "cat");
}

TEST_F(TmpCommandList, WriteBackReplacesTheWholeEntry) {
    RecordTmpCommand(500, Command(601, "ls", 1));
    TmpProcListInfo info = CopyTmpProcMap().at(500);
    info.judged = true;
    info.isRshell = true;
    RecordTmpCommand(500, Command(602, "cat", 2));
    WriteBackTmpProcs(500, info);
    EXPECT_TRUE(tmpProcMap[500].judged);
    EXPECT_TRUE(tmpProcMap[500].isRshell);
    EXPECT_EQ(tmpProcMap[500].procList.size(), 1U);
}

TEST_F(TmpCommandList, WriteBackCreatesNoEntry) {
    WriteBackTmpProcs(500, {.judged = true, .isRshell = true, .procList = {}});
    EXPECT_TRUE(tmpProcMap.empty());
}

TEST_F(TmpCommandList, ErasesOnlyTheGivenParents) {
    for (const int ppid : {500, 501, 502}) {
        RecordTmpCommand(ppid, Command(601, "ls", 1));
    }
    EraseTmpProcs({499, 500, 502});
    ASSERT_EQ(tmpProcMap.size(), 1U);
    EXPECT_TRUE(tmpProcMap.contains(501));
    EraseTmpProcs({});
    EXPECT_EQ(tmpProcMap.size(), 1U);
}

}  // namespace
