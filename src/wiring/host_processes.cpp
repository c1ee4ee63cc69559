#include "wiring/host_processes.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

#include "agent/files.h"
#include "agent/process_utils.h"

namespace Host {
namespace {

// Device numbers of terminals (Documentation/admin-guide/devices.txt of the kernel).
constexpr unsigned int consoleMajor = 4;
constexpr unsigned int ttyMajor = 5;
constexpr unsigned int ptmxMinor = 2;
constexpr unsigned int firstPtsMajor = 136;
constexpr unsigned int lastPtsMajor = 143;

std::optional<int> NumberOf(const std::string& name) {
    int number = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    return error == std::errc() && end == name.data() + name.size() ? std::optional(number) : std::nullopt;
}

DescriptorKind KindOf(const struct stat& file) {
    if (S_ISFIFO(file.st_mode)) {
        return DescriptorKind::pipe;
    }
    if (S_ISSOCK(file.st_mode)) {
        return DescriptorKind::socket;
    }
    if (!S_ISCHR(file.st_mode)) {
        return DescriptorKind::other;
    }
    const unsigned int type = major(file.st_rdev);
    if (type == ttyMajor && minor(file.st_rdev) == ptmxMinor) {
        return DescriptorKind::terminalMultiplexer;
    }
    return (type >= firstPtsMajor && type <= lastPtsMajor) || type == consoleMajor || type == ttyMajor
               ? DescriptorKind::terminal
               : DescriptorKind::other;
}

// A slave's number follows from its device number, with 256 slaves per major. A master's is in fdinfo (proc(5)).
std::optional<unsigned int> TerminalNumber(DescriptorKind kind, const struct stat& file, const std::string& info) {
    if (kind == DescriptorKind::terminal && major(file.st_rdev) >= firstPtsMajor) {
        return (major(file.st_rdev) - firstPtsMajor) * 256 + minor(file.st_rdev);
    }
    if (kind != DescriptorKind::terminalMultiplexer) {
        return std::nullopt;
    }
    const std::string key = "tty-index:";
    std::ifstream lines(info);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(key, 0) == 0) {
            return static_cast<unsigned int>(strtoul(line.c_str() + key.size(), nullptr, 10));
        }
    }
    return std::nullopt;
}

// Names of a directory's entries. If it cannot be read, returns none and sets readable to false.
std::vector<std::string> EntriesOf(const std::string& path, bool& readable) {
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::directory_iterator entry(path, error);
    readable = !error;
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        names.push_back(entry->path().filename().string());
    }
    return names;
}

bool ReadDescriptors(const std::string& process, std::vector<HeldDescriptor>& descriptors) {
    bool readable = false;
    const std::string directory = process + "/fd";
    for (const std::string& name : EntriesOf(directory, readable)) {
        const std::optional<int> number = NumberOf(name);
        struct stat file {};
        if (!number || stat((directory + "/" + name).c_str(), &file) != 0) {
            continue;
        }
        const DescriptorKind kind = KindOf(file);
        descriptors.push_back({.number = *number,
                               .kind = kind,
                               .object = {file.st_dev, file.st_ino},
                               .link = TavUtils::FileAttribute::GetRealLink(directory + "/" + name),
                               .terminal = TerminalNumber(kind, file, process + "/fdinfo/" + name)});
    }
    std::sort(descriptors.begin(), descriptors.end(),
              [](const HeldDescriptor& one, const HeldDescriptor& other) { return one.number < other.number; });
    return readable;
}

}  // namespace

bool ReadHostProcess(int pid, HostProcess& process) {
    std::string program;
    ProcessUtils::ProcStatus status{};
    if (!ProcessUtils::GetExePath(pid, program) ||
        ProcessUtils::GetProcStatus(pid, ProcessUtils::PROC_STATUS, status) == 0) {
        return false;
    }
    process = HostProcess{};
    process.pid = pid;
    process.ppid = status.ppid;
    process.name = TavUtils::FileAttribute::GetBasename(program);
    process.cmdline = ProcessUtils::GetProcessCmdline(pid);
    return ReadDescriptors("/proc/" + std::to_string(pid), process.descriptors);
}

std::map<int, HostProcess> ReadHostProcesses() {
    std::map<int, HostProcess> processes;
    bool readable = false;
    for (const std::string& name : EntriesOf("/proc", readable)) {
        const std::optional<int> pid = NumberOf(name);
        HostProcess process;
        if (pid && ReadHostProcess(*pid, process)) {
            processes.emplace(*pid, std::move(process));
        }
    }
    return processes;
}

}  // namespace Host
