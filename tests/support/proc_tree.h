// A built tree in place of /proc, so that the code under test reads its real paths.
#pragma once

#include <filesystem>
#include <string>

#include "tests/support/temporary_directory.h"

// True if this process may mount; tests that need a ProcTree skip themselves otherwise, naming the right.
bool MayMount();

// Moves this process into a mount namespace of its own, once. What is mounted there is gone with the process.
void EnterOwnMountNamespace();

struct ProcEntry {
    int pid;
    int ppid;
    std::string exe;           // text of the link; empty for a process without one, like a kernel thread
    std::string cmdline = {};  // as the kernel gives it, with zero bytes
    bool hasStatus = true;
    bool hasDescriptors = true;
};

// Builds processes in a folder and mounts it over /proc for the lifetime of the object, in a mount namespace of the
// test's own that the first tree makes.
class ProcTree {
public:
    ProcTree();
    ~ProcTree();

    void Add(const ProcEntry& entry);

    // A link of the process besides exe, such as "cwd", with this text.
    void AddLink(int pid, const std::string& name, const std::string& link);

    // Gives pid the descriptor fd with this link text, which may name a real object or be that of a pipe or socket.
    void AddDescriptor(int pid, int fd, const std::string& link);

    // An entry of fd/ by any name, whether or not it is a number.
    void AddDescriptorEntry(int pid, const std::string& name, const std::string& link);

    // A file of the process, such as "stack" or "fdinfo/3", or with no pid one of the host, such as "net/tcp". One that
    // is there already is replaced.
    void AddFile(int pid, const std::string& name, const std::string& text);
    void AddFile(const std::string& name, const std::string& text);

    std::filesystem::path Folder() const { return folder_.Path(); }

private:
    TemporaryDirectory folder_;
};

// Mounts a file with this content over an existing one for the lifetime of the object, in the test's own mount
// namespace.
class FileOverlay {
public:
    FileOverlay(const std::string& target, const std::string& content);
    ~FileOverlay();
    FileOverlay(const FileOverlay&) = delete;
    FileOverlay& operator=(const FileOverlay&) = delete;

private:
    TemporaryDirectory folder_;
    std::string target_;
};
