// A watched directory and another beside it, for tests of the file monitor.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/unit/watch/monitor_support.h"

namespace TestSupport {

class MonitorFixture : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "owners are changed and file systems mounted: root";
        }
        std::filesystem::create_directory(In(""));
        std::filesystem::create_directory(dir_.Path("out"));
        Make(In("shell"), "content");
    }

    // A path in the watched directory, and one in the other.
    std::string In(const std::string& name) const { return dir_.Path("in") + (name.empty() ? "" : "/" + name); }
    std::string Out(const std::string& name) const { return dir_.Path("out/" + name); }

    static void Make(const std::string& path, const std::string& text) {
        WriteFile(path, text);
        chmod(path.c_str(), 0755);
    }

    static void Append(const std::string& path, const std::string& text) {
        std::ofstream(path, std::ios::binary | std::ios::app) << text;
    }

    static void Move(const std::string& from, const std::string& to) {
        ASSERT_EQ(rename(from.c_str(), to.c_str()), 0) << from << " " << to;
    }

    static void Link(const std::string& from, const std::string& to) {
        ASSERT_EQ(link(from.c_str(), to.c_str()), 0) << from << " " << to;
    }

    static void Remove(const std::string& path) { ASSERT_EQ(unlink(path.c_str()), 0) << path; }

    // All reports since the last call, without the path of the test's directory.
    std::vector<std::string> Reported() { return Reported(listener_); }
    std::vector<std::string> Reported(Listener& listener) {
        EXPECT_TRUE(fence_.Pass());
        std::vector<std::string> reported = listener.Take();
        for (std::string& line : reported) {
            for (size_t at = line.find(dir_.Path()); at != std::string::npos; at = line.find(dir_.Path())) {
                line.erase(at, dir_.Path().size() + 1);
            }
        }
        return reported;
    }

    TemporaryDirectory dir_;
    Fence fence_;
    Listener listener_;
};

}  // namespace TestSupport
