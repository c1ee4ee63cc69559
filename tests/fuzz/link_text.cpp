// The text of a link in /proc/<pid>/fd.

#include <climits>
#include <memory>
#include <string>

#include "graph/reverse_shell_detector.h"
#include "tests/fuzz/fuzz_target.h"

namespace {

constexpr int descriptor = 1;
constexpr size_t longestIgnoredLink = 10;
constexpr size_t mostDigits = 31;

// The number of a text of exactly the kernel's form, prefix, digits and "]"; nothing for any other.
bool KernelsNumber(const std::string& link, const std::string& prefix, unsigned long long& number) {
    if (link.rfind(prefix, 0) != 0 || link.back() != ']') {
        return false;
    }
    const std::string digits = link.substr(prefix.size(), link.size() - prefix.size() - 1);
    if (digits.empty() || digits.size() > mostDigits || digits.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    number = 0;
    for (const char c : digits) {
        const auto digit = static_cast<unsigned long long>(c - '0');
        number = number > (ULLONG_MAX - digit) / 10 ? ULLONG_MAX : number * 10 + digit;
    }
    return true;
}

void CheckHeld(const std::string& link, const ReverseShellDetector::ProcInfomation& process, int type,
               const char* prefix) {
    unsigned long long number = 0;
    if (link.size() <= longestIgnoredLink || !KernelsNumber(link, prefix, number)) {
        return;
    }
    Require(process.fds.size() == 1, "a link in the kernel's form is entered");
    Require(process.fds.at(descriptor).type == type, "a link is of the kind that it names");
    Require(process.fds.at(descriptor).inode == number, "a link has the number that it names");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string link = TerminatedTextOf(data, size);
    if (link.find('/') != std::string::npos) {
        return 0;  // names something of this machine
    }
    ReverseShellDetector detector;
    const auto process = std::make_shared<ReverseShellDetector::ProcInfomation>();
    detector.AddIPCInode(link.c_str(), static_cast<unsigned int>(link.size()), descriptor, process);

    Require(process->fds.size() == detector.ipcInodes.size() && process->fds.size() <= 1, "one entry on both sides");
    for (const auto& [fd, held] : process->fds) {
        Require(fd == descriptor, "an entry is the descriptor's own");
        Require(held.type == ReverseShellDetector::INODE_PIPE || held.type == ReverseShellDetector::INODE_SOCKET,
                "an entry is a pipe or a socket");
        Require(detector.ipcInodes[held.inode].procs.contains(process), "an entry leads back to its process");
    }
    CheckHeld(link, *process, ReverseShellDetector::INODE_SOCKET, "socket:[");
    CheckHeld(link, *process, ReverseShellDetector::INODE_PIPE, "pipe:[");
    return 0;
}
