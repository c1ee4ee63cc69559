// Real FIFOs, sockets and terminals for the descriptors of a fake /proc.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

#include "tests/support/temporary_directory.h"

struct KernelObject {
    std::string path;
    unsigned long inode = 0;
};

inline unsigned long InodeOf(const std::string& path) {
    struct stat file {};
    if (stat(path.c_str(), &file) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return static_cast<unsigned long>(file.st_ino);
}

// Makes objects with different inodes in a temporary directory.
class KernelObjects {
public:
    KernelObject Pipe() { return Make(S_IFIFO); }
    KernelObject Socket() { return Make(S_IFSOCK); }

private:
    KernelObject Make(mode_t type) {
        const std::string path = folder_.Path(std::to_string(++made_));
        if (mknod(path.c_str(), type | 0600, 0) != 0) {
            throw std::system_error(errno, std::generic_category(), "mknod");
        }
        return {path, InodeOf(path)};
    }

    TemporaryDirectory folder_;
    int made_ = 0;
};

// A pseudo-terminal, open for the lifetime of the object.
class PseudoTerminal {
public:
    PseudoTerminal() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        char name[64] = {};
        if (master_ == -1 || grantpt(master_) != 0 || unlockpt(master_) != 0 ||
            ptsname_r(master_, name, sizeof(name)) != 0) {
            throw std::system_error(errno, std::generic_category(), "pseudo-terminal");
        }
        slave_ = name;
    }
    ~PseudoTerminal() { close(master_); }
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;

    static std::string Multiplexer() { return "/dev/ptmx"; }
    std::string Slave() const { return slave_; }

private:
    int master_;
    std::string slave_;
};
