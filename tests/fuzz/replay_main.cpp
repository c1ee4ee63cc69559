// Runs the fuzz target of this program on every file of a seed corpus.
//
// Usage: <target>_fuzz FILE-OR-FOLDER...

#include <cstdio>
#include <exception>
#include <filesystem>
#include <vector>

#include "tests/fuzz/fuzz_target.h"
#include "tests/support/temporary_directory.h"

namespace {

std::vector<std::filesystem::path> FilesBelow(const std::filesystem::path& path) {
    if (!std::filesystem::is_directory(path)) {
        return {path};
    }
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
        if (entry.is_regular_file()) {
            files.push_back(entry.path());
        }
    }
    return files;
}

void Replay(const std::filesystem::path& file) {
    // Printed first, because a target that fails aborts.
    fprintf(stderr, "%s\n", file.c_str());
    const std::string text = FileText(file.string());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

}  // namespace

int main(int count, char** arguments) {
    size_t replayed = 0;
    try {
        for (int i = 1; i < count; ++i) {
            for (const std::filesystem::path& file : FilesBelow(arguments[i])) {
                Replay(file);
                ++replayed;
            }
        }
    } catch (const std::exception& error) {
        fprintf(stderr, "replay: %s\n", error.what());
        return 1;
    }
    // A missing corpus must not count as a success.
    if (replayed == 0) {
        fprintf(stderr, "replay: found no input files\n");
        return 1;
    }
    return 0;
}
