#include "alarm/command_attribution.h"

#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "agent/files.h"
#include "agent/strings.h"
#include "alarm/command_paths.h"
#include "frame/file_handle.h"
#include "frame/log.h"
#include "frame/pacing.h"
#include "inspect/detect_shell_utils.h"

static constexpr char logSource[] = "detect_shell";

static constexpr size_t blockSize = 4096;
static constexpr unsigned int bytePauseMicroseconds = 1000;
static constexpr unsigned int blockPauseMicroseconds = 1000;
static constexpr unsigned int wordPauseMicroseconds = 500;

bool IsExecTmpCommand(const std::string& word) {
    return word == "-c" || word == "-x";
}

std::string ResolveArgumentPath(std::string path, std::string cwd) {
    if (path.empty()) {
        return "";
    }
    if (path.front() != '/' && !cwd.empty()) {
        path = cwd + "/" + path;
    }
    return TavUtils::FileAttribute::GetRealPath(path);
}

// Appends the argument in word, split at its blanks, and clears it.
static void EndArgument(std::string& word, std::vector<std::string>& words) {
    for (std::string& piece : TavUtils::StringProcess::StrSplit(word, " ", false)) {
        words.push_back(std::move(piece));
    }
    word.clear();
}

// Returns the words of a process's command line, none if it cannot be read.
static std::vector<std::string> ReadWords(long pid) {
    const FileDescriptor file(DetectShellUtil::OpenFileFd("/proc/" + std::to_string(pid) + "/cmdline"));
    if (file.Get() == -1) {
        return {};
    }
    const std::unique_ptr<char[]> block(new (std::nothrow) char[blockSize]);
    if (block == nullptr) {
        MODULE_LOG(normalLog, LOG_LEVEL_ERROR, "Alloc buf memory failed.");
        return {};
    }
    std::vector<std::string> words;
    std::string word;
    ssize_t count = 0;
    while ((count = read(file.Get(), block.get(), blockSize)) > 0) {
        for (ssize_t i = 0; i < count; ++i) {
            if (block[static_cast<size_t>(i)] != '\0') {
                word += block[static_cast<size_t>(i)];
            } else {
                EndArgument(word, words);
            }
            Pause(bytePauseMicroseconds);
        }
        Pause(blockPauseMicroseconds);
    }
    // A process may overwrite its arguments and leave the last one without a terminator. That one is not split.
    if (!word.empty()) {
        words.push_back(std::move(word));
    }
    return words;
}

static std::optional<std::string> FirstFile(const std::vector<std::string>& words, const std::string& cwd) {
    for (size_t i = 1; i < words.size(); ++i) {
        std::string path = ResolveArgumentPath(words[i], cwd);
        if (DetectShellUtil::IsRegularFile(path)) {
            return path;
        }
        Pause(wordPauseMicroseconds);
    }
    return std::nullopt;
}

bool FindScriptArgument(RshellAlarmInfo& record, long pid) {
    const std::vector<std::string> words = ReadWords(pid);
    const std::optional<std::string> candidate = FirstFile(words, DetectShellUtil::GetProcCwd(static_cast<int>(pid)));
    struct stat info {};
    if (!candidate || stat(candidate->c_str(), &info) != 0 || IsCommonCommand(candidate->c_str())) {
        return false;
    }
    record.sourcePath = *candidate;
    return true;
}

bool ProduceByBusinessFile(const ProcInfo& proc) {
    if (!DetectShellUtil::GetScriptFilePath(proc.pid).empty()) {
        return true;
    }
    const std::vector<std::string> words = TavUtils::StringProcess::StrSplit(proc.cmdline, " ", false);
    if (words.size() < 2) {
        return false;
    }
    if (IsExecTmpCommand(words[1])) {
        return true;
    }
    const std::string path = ResolveArgumentPath(words[1], DetectShellUtil::GetProcCwd(proc.pid));
    return DetectShellUtil::IsRegularFile(path);
}
