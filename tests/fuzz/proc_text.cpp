// A file of /proc/<pid> such as status, io, fdinfo/<fd> or cmdline, for the readers that take a path.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>

#include "agent/strings.h"
#include "frame/run_state.h"
#include "inspect/detect_shell_utils.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/support/temporary_directory.h"

namespace {

constexpr size_t blockSize = 4096;
constexpr size_t longestLine = 1023;
constexpr char blanks[] = " \t\n\v\f\r";

// One file for the whole run, because creating a file takes longer than the test of an input.
class InputFile {
public:
    InputFile() : path_(directory_.Write("input", "")), file_(open(path_.c_str(), O_WRONLY | O_CLOEXEC)) {
        Require(file_ != -1, "the input's file opens");
    }
    ~InputFile() { close(file_); }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    const std::string& Path() const { return path_; }

    void Put(const std::string& text) const {
        Require(
            ftruncate(file_, 0) == 0 && pwrite(file_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
            "the input is written to its file");
    }

private:
    TemporaryDirectory directory_;
    std::string path_;
    int file_;
};

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return static_cast<char>(tolower(static_cast<unsigned char>(c))); });
    return text;
}

void CheckField(const std::string& path, const std::string& text, const char* key) {
    const std::string value = DetectShellUtil::ParseFromFile(path, key, "%*s%s");
    Require(value == DetectShellUtil::ParseFromFile(path, key, "%*s%s"), "reading a field twice gives the same value");
    if (value.empty()) {
        return;
    }
    Require(value.find_first_of(blanks) == std::string::npos, "a field contains no white space");
    Require(value.size() < longestLine, "a field is shorter than a line");
    Require(text.find(value) != std::string::npos, "a field is part of the file");
    Require(LowerCase(text).find(LowerCase(key)) != std::string::npos, "a field has its key");
}

void CheckContent(const std::string& path, const std::string& text) {
    moduleRunning = 1;
    const std::string content = DetectShellUtil::ReadFileContent(path);
    Require(content.size() <= text.size(), "the content is not longer than the file");
    Require(content.find('\0') == std::string::npos, "the content contains no zero byte");
    Require(content.empty() || (std::string_view(blanks).find(content.front()) == std::string_view::npos &&
                                std::string_view(blanks).find(content.back()) == std::string_view::npos),
            "the content has no white space at its ends");
    if (text.size() < blockSize) {
        std::string expected = text;
        std::replace(expected.begin(), expected.end(), '\0', ' ');
        Require(content == TavUtils::StringProcess::StrTrim(expected), "the arguments are joined by spaces");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const InputFile file;
    const std::string text = TextOf(data, size);
    file.Put(text);
    for (const char* key : {"PPid:", "wchar:", "flags:"}) {
        CheckField(file.Path(), text, key);
    }
    CheckContent(file.Path(), text);
    return 0;
}
