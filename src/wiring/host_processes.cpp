#include "wiring/host_processes.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <utility>

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
    const unsigned int number = minor(file.st_rdev);
    if (type == ttyMajor && number == ptmxMinor) {
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
        if (line.starts_with(key)) {
            return static_cast<unsigned int>(strtoul(line.c_str() + key.size(), nullptr, 10));
        }
    }
    return std::nullopt;
}

// The directory's entries that are named by a number, in ascending order. Nothing if it cannot be read.
std::optional<std::vector<int>> NumbersIn(const std::string& path) {
    std::error_code failure;
    std::filesystem::directory_iterator entry(path, failure);
    if (failure) {
        return std::nullopt;
    }
    std::vector<int> numbers;
    for (; entry != std::filesystem::directory_iterator(); entry.increment(failure)) {
        const std::string name = entry->path().filename().string();
        const char* const last = name.data() + name.size();
        int number{};
        const auto [end, error] = std::from_chars(name.data(), last, number);
        if (error == std::errc() && end == last) {
            numbers.push_back(number);
        }
    }
    std::ranges::sort(numbers);
    return numbers;
}

std::optional<std::vector<HeldDescriptor>> ReadDescriptors(const std::string& process) {
    const std::optional<std::vector<int>> numbers = NumbersIn(process + "/fd");
    if (!numbers) {
        return std::nullopt;
    }
    std::vector<HeldDescriptor> descriptors;
    for (const int number : *numbers) {
        const std::string name = std::to_string(number);
        const std::string path = process + "/fd/" + name;
        struct stat file {};
        if (stat(path.c_str(), &file) != 0) {
            continue;
        }
        const DescriptorKind kind = KindOf(file);
        descriptors.push_back({.number = number,
                               .kind = kind,
                               .object = {file.st_dev, file.st_ino},
                               .link = TavUtils::FileAttribute::GetRealLink(path),
                               .terminal = TerminalNumber(kind, file, process + "/fdinfo/" + name)});
    }
    return descriptors;
}

}  // namespace

std::optional<HostProcess> ReadHostProcess(int pid) {
    std::string program;
    ProcessUtils::ProcStatus status{};
    if (!ProcessUtils::GetExePath(pid, program) ||
        ProcessUtils::GetProcStatus(pid, ProcessUtils::PROC_STATUS, status) == 0) {
        return std::nullopt;
    }
    std::string cmdline = ProcessUtils::GetProcessCmdline(pid);
    std::optional<std::vector<HeldDescriptor>> descriptors = ReadDescriptors("/proc/" + std::to_string(pid));
    if (!descriptors) {
        return std::nullopt;
    }
    return HostProcess{.pid = pid,
                       .ppid = status.ppid,
                       .name = TavUtils::FileAttribute::GetBasename(program),
                       .cmdline = std::move(cmdline),
                       .descriptors = std::move(*descriptors)};
}

std::map<int, HostProcess> ReadHostProcesses() {
    std::map<int, HostProcess> processes;
    for (const int pid : NumbersIn("/proc").value_or(std::vector<int>())) {
        if (std::optional<HostProcess> process = ReadHostProcess(pid)) {
            processes.emplace(pid, std::move(*process));
        }
    }
    return processes;
}

}  // namespace Host
