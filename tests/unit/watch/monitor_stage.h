// A directory in which tests of the file monitor change paths.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/unit/watch/monitor_support.h"

namespace TestSupport {

// A directory with its own listener. Reports omit the directory's path.
class Stage {
public:
    std::string Path(const std::string& name) const { return dir_.Path(name); }
    std::string Write(const std::string& name, const std::string& text = "content") const {
        return dir_.Write(name, text);
    }
    void Link(const std::string& target, const std::string& name) const {
        ASSERT_EQ(symlink(target.c_str(), Path(name).c_str()), 0) << name;
    }
    void Move(const std::string& from, const std::string& to) const {
        ASSERT_EQ(rename(Path(from).c_str(), Path(to).c_str()), 0) << from << " " << to;
    }
    void Remove(const std::string& name) const { std::filesystem::remove_all(Path(name)); }
    void MakeDirectory(const std::string& name) const { std::filesystem::create_directories(Path(name)); }
    bool Watch(const std::string& name) { return listener_.Watch(Path(name)); }

    // All reports since the last call.
    std::vector<std::string> Reported() {
        EXPECT_TRUE(fence_.Pass());
        std::vector<std::string> reported = listener_.Take();
        for (std::string& line : reported) {
            for (size_t at = line.find(dir_.Path()); at != std::string::npos; at = line.find(dir_.Path())) {
                line.erase(at, dir_.Path().size() + 1);
            }
        }
        return reported;
    }

private:
    TemporaryDirectory dir_;
    Fence fence_;
    Listener listener_;
};

}  // namespace TestSupport
