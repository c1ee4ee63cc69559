// Temporary directories and small files.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

inline std::string FileText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

// Removed with its contents at the end.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "orlim-test-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
        path_ = name;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    // The directory, or the path of a name in it, whether it exists or not.
    std::string Path(const std::string& name = "") const { return name.empty() ? path_ : path_ + "/" + name; }

    // Writes a file, with its parent directories, and returns its path.
    std::string Write(const std::string& name, const std::string& text) const {
        std::filesystem::create_directories(std::filesystem::path(Path(name)).parent_path());
        WriteFile(Path(name), text);
        return Path(name);
    }

private:
    std::string path_;
};
