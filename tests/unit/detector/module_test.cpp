#include "host/detector/module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/temporary_directory.h"

namespace Host {
namespace {

using testing::HasSubstr;

constexpr const char* fileName = "liborlim_detect-shell.so";

TEST(FindModule, ReturnsTheFirstMatch) {
    const TemporaryDirectory directory;
    for (const char* place : {"a", "b", "c"}) {
        std::filesystem::create_directory(directory.Path(place));
    }
    WriteFile(directory.Path("b/") + fileName, "");
    WriteFile(directory.Path("c/") + fileName, "");
    std::string error;
    EXPECT_EQ(FindModule(std::nullopt, {directory.Path("a"), directory.Path("a/../b"), directory.Path("c")}, error),
              std::filesystem::canonical(directory.Path("b")).string() + "/" + fileName);
}

TEST(FindModule, ErrorListsThePlacesTried) {
    std::string error;
    EXPECT_EQ(FindModule(std::nullopt, {"/nowhere", "/elsewhere"}, error), "");
    EXPECT_EQ(error,
              "cannot find the module; tried /nowhere/liborlim_detect-shell.so, "
              "/elsewhere/liborlim_detect-shell.so. Install it in one of these places, or name it with --module FILE.");
}

TEST(FindModule, ConsidersOnlyTheNamedFile) {
    const TemporaryDirectory directory;
    WriteFile(directory.Path("x.so"), "");
    std::string error;
    EXPECT_EQ(FindModule(directory.Path("x.so"), {}, error), std::filesystem::canonical(directory.Path("x.so")));
    EXPECT_EQ(FindModule("libc.so.6", {}, error), "") << "a bare name must not be looked up by the loader";
    EXPECT_THAT(error, HasSubstr("cannot find the module libc.so.6: No such file or directory"));
}

TEST(FindModule, SearchesFirstBesideTheProgram) {
    const std::vector<std::string> places = ModulePlaces();
    ASSERT_EQ(places.size(), 4U);
    const std::string own = std::filesystem::canonical("/proc/self/exe").parent_path().string();
    EXPECT_EQ(places[0], own);
    EXPECT_EQ(places[1], own + "/../lib");
    EXPECT_EQ(places[2].substr(0, own.size() + 4), own + "/../");
    EXPECT_EQ(places[3].front(), '/');
}

TEST(LoadModule, RefusesAFileThatIsNoLibrary) {
    const TemporaryDirectory directory;
    WriteFile(directory.Path("x.so"), "not a library");
    std::string error;
    EXPECT_FALSE(Module::Load(directory.Path("x.so"), error));
    EXPECT_THAT(error, HasSubstr("cannot load the module " + directory.Path("x.so") + ": "));
}

TEST(LoadModule, NamesMissingEntries) {
    std::string error;
    EXPECT_FALSE(Module::Load("libm.so.6", error));
    EXPECT_THAT(error, HasSubstr("lacks the entries InitModule, StartModule, StopModule, DeinitModule"));
}

}  // namespace
}  // namespace Host
