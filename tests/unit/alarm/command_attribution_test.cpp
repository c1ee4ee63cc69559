#include "alarm/command_attribution.h"

#include <sys/stat.h>

#include "attribution_fixture.h"

namespace {

class BusinessFile : public AttributionTest {
protected:
    // Calls ProduceByBusinessFile for a process with this command line in its snapshot.
    bool Produces(const std::string& cmdline) {
        ProcInfo info;
        info.pid = AddProcess(Arguments({"sh"}));
        info.cmdline = cmdline;
        return ProduceByBusinessFile(info);
    }

    // Calls ProduceByBusinessFile for a shell without arguments and with this link text of fd/255.
    bool ProducesWithScript(const std::string& link) {
        ProcInfo info;
        info.pid = AddProcess(Arguments({"sh"}));
        info.cmdline = "sh";
        proc->AddDescriptor(info.pid, 255, link);
        return ProduceByBusinessFile(info);
    }
};

TEST(ExecWord, IsOnlyMinusCOrMinusX) {
    EXPECT_TRUE(IsExecTmpCommand("-c"));
    EXPECT_TRUE(IsExecTmpCommand("-x"));
    for (const std::string& word :
         {std::string(), std::string("-"), std::string("c"), std::string("-C"), std::string("-X"), std::string("--c"),
          std::string("-cx"), std::string("-xc"), std::string("-c "), std::string(" -c"), std::string("-i"),
          std::string("-c\0", 3)}) {
        EXPECT_FALSE(IsExecTmpCommand(word)) << testing::PrintToString(word);
    }
}

TEST(ArgumentPath, IsResolvedAgainstTheWorkingDirectory) {
    const TemporaryDirectory folder;
    const std::string file = folder.Write("one/file", "1");
    std::filesystem::create_symlink("one", folder.Path("two"));
    const struct {
        std::string path;
        std::string cwd;
        std::string resolved;
    } cases[] = {
        {"", folder.Path("one"), ""},
        {"file", folder.Path("one"), file},
        {"./file", folder.Path("one"), file},
        {"../one//file", folder.Path("one"), file},
        {"one/file", folder.Path(), file},
        {"file", folder.Path("two"), file},
        {"file", folder.Path(), ""},
        {"file", folder.Path("gone"), ""},
        {file, folder.Path("gone"), file},
        {file, "", file},
        {folder.Path("two/file"), "", file},
        {".", folder.Path("one"), folder.Path("one")},
        {std::string("file\0x", 6), folder.Path("one"), ""},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(ResolveArgumentPath(row.path, row.cwd), row.resolved) << row.path << " in " << row.cwd;
    }
}

TEST(ArgumentPath, StaysRelativeWithoutAWorkingDirectory) {
    const TemporaryDirectory folder;
    const std::string file = folder.Write("file", "1");
    const std::filesystem::path own = std::filesystem::current_path();
    std::filesystem::current_path(folder.Path());
    EXPECT_EQ(ResolveArgumentPath("file", ""), file);
    std::filesystem::current_path(own);
    EXPECT_EQ(ResolveArgumentPath("file", ""), "");
}

TEST_F(BusinessFile, IsAScriptOnDescriptor255) {
    const std::string script = AddFile("a.sh");
    EXPECT_TRUE(ProducesWithScript(script));
}

TEST_F(BusinessFile, IsNoOtherObjectOnDescriptor255) {
    ASSERT_EQ(mkfifo(folder.Path("home/fifo").c_str(), 0600), 0);
    for (const std::string& link :
         {std::string("/dev/null"), folder.Path("home"), folder.Path("home/fifo"), folder.Path("home/a.sh (deleted)"),
          std::string("socket:[7]"), std::string("pipe:[7]"), std::string("anon_inode:[eventpoll]")}) {
        EXPECT_FALSE(ProducesWithScript(link)) << link;
    }
}

TEST_F(BusinessFile, IsNoScriptOnAnotherDescriptor) {
    const std::string script = AddFile("a.sh");
    ProcInfo info;
    info.pid = AddProcess(Arguments({"sh"}));
    info.cmdline = "sh";
    for (const int fd : {0, 3, 25, 254, 256}) {
        proc->AddDescriptor(info.pid, fd, script);
    }
    EXPECT_FALSE(ProduceByBusinessFile(info));
}

TEST_F(BusinessFile, IsACommandAfterMinusCOrMinusX) {
    EXPECT_TRUE(Produces("sh -c id"));
    EXPECT_TRUE(Produces("sh -x"));
    EXPECT_TRUE(Produces("  sh   -c"));
}

TEST_F(BusinessFile, IsTheSecondWordIfItNamesAFile) {
    const std::string script = AddFile("a.sh");
    std::filesystem::create_symlink("a.sh", folder.Path("home/link"));
    for (const std::string& cmdline : {"sh " + script, std::string("sh a.sh"), std::string("sh ./a.sh -i"),
                                       std::string("sh link"), std::string("  sh    a.sh"), "sh " + tool}) {
        EXPECT_TRUE(Produces(cmdline)) << cmdline;
    }
}

TEST_F(BusinessFile, IsMissingWithoutSuchASecondWord) {
    const std::string script = AddFile("a.sh");
    std::filesystem::create_directories(folder.Path("home/directory"));
    std::filesystem::create_symlink("gone", folder.Path("home/dangling"));
    for (const std::string& cmdline :
         {std::string(), std::string(" "), std::string("sh"), std::string("sh "), script, std::string("sh -i"),
          "sh -i " + script, std::string("sh -i -c id"), std::string("sh -ic id"), std::string("sh directory"),
          std::string("sh dangling"), std::string("sh gone"), std::string("sh /dev/null"), std::string("sh\ta.sh"),
          std::string("-c sh")}) {
        EXPECT_FALSE(Produces(cmdline)) << cmdline;
    }
}

TEST_F(BusinessFile, MayHoldAnyByteButABlank) {
    for (const std::string& name : {std::string("a\nb"), std::string("\x01"), std::string("\x80\xff")}) {
        AddFile(name);
        EXPECT_TRUE(Produces("sh " + name)) << testing::PrintToString(name);
    }
    AddFile("a b");
    EXPECT_FALSE(Produces("sh a b"));
}

TEST_F(BusinessFile, IsFoundByItsAbsolutePathAfterTheProcessEnded) {
    ProcInfo info;
    info.pid = 499;
    info.cmdline = "sh " + AddFile("a.sh");
    EXPECT_TRUE(ProduceByBusinessFile(info));
    info.cmdline = "sh a.sh";
    EXPECT_FALSE(ProduceByBusinessFile(info));
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(BusinessFile, TakesNoPause) {
    AddFile("a.sh");
    Produces("sh a.sh");
    Produces("sh -i");
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

}  // namespace
