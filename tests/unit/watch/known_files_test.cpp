#include "host/watch/known_files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/temporary_directory.h"

namespace {

using Host::KnownFiles;

constexpr int watch = 7;

std::string Name(size_t number) {
    return "f" + std::to_string(number);
}

TEST(KnownFiles, KnowAtMostTheirLimitOfADirectory) {
    const TemporaryDirectory dir;
    for (size_t i = 0; i < KnownFiles::mostEntries; ++i) {
        dir.Write(Name(i), "");
    }
    Host::WatchedRule rule;
    rule.rule.path = dir.Path();
    rule.file = watch;
    rule.isDirectory = true;
    KnownFiles known;
    ASSERT_TRUE(known.Learn(rule));
    const KnownFiles::Entries& entries = known.Directories().at(watch);
    EXPECT_EQ(entries.files.size(), KnownFiles::mostEntries);
    EXPECT_TRUE(entries.areAll);

    dir.Write("new", "");
    known.LearnEntry({watch, "new"}, dir.Path());
    EXPECT_FALSE(entries.files.contains("new"));
    EXPECT_FALSE(entries.areAll);

    std::filesystem::remove(dir.Path(Name(0)));
    known.LearnEntry({watch, Name(0)}, dir.Path());
    known.LearnEntry({watch, "new"}, dir.Path());
    EXPECT_TRUE(entries.files.contains("new"));
    EXPECT_EQ(entries.files.size(), KnownFiles::mostEntries);
    EXPECT_FALSE(entries.areAll);

    dir.Write(Name(0), "");
    KnownFiles later;
    ASSERT_TRUE(later.Learn(rule));
    EXPECT_EQ(later.Directories().at(watch).files.size(), KnownFiles::mostEntries);
    EXPECT_FALSE(later.Directories().at(watch).areAll);
}

}  // namespace
