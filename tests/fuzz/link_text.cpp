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

// Reads the number of a link in exactly the kernel's form: prefix, digits and "]". False for any other text.
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
    Require(process.fds.size() == 1, "a link in the kernel's form is recorded");
    Require(process.fds.at(descriptor).type == type, "the recorded kind is that of the link");
    Require(process.fds.at(descriptor).inode == number, "the recorded number is that of the link");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string link = TerminatedTextOf(data, size);
    if (link.find('/') != std::string::npos) {
        return 0;  // it might name a file of this machine
    }
    ReverseShellDetector detector;
    const auto process = std::make_shared<ReverseShellDetector::ProcInfomation>();
    detector.AddIPCInode(link.c_str(), static_cast<unsigned int>(link.size()), descriptor, process);

    Require(process->fds.size() == detector.ipcInodes.size() && process->fds.size() <= 1, "one entry on both sides");
    for (const auto& [fd, held] : process->fds) {
        Require(fd == descriptor, "an entry belongs to its descriptor");
        Require(held.type == ReverseShellDetector::INODE_PIPE || held.type == ReverseShellDetector::INODE_SOCKET,
                "an entry is a pipe or a socket");
        Require(detector.ipcInodes[held.inode].procs.contains(process), "an entry refers to its process");
    }
    CheckHeld(link, *process, ReverseShellDetector::INODE_SOCKET, "socket:[");
    CheckHeld(link, *process, ReverseShellDetector::INODE_PIPE, "pipe:[");
    return 0;
}
