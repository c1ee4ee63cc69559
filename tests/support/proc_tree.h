// A fake /proc, mounted over the real one, so that the code under test reads its usual paths.
#pragma once

#include <filesystem>
#include <string>

#include "tests/support/temporary_directory.h"

// True if this process may mount. If false, tests that need a ProcTree skip and say why.
bool MayMount();

// Moves this process into a private mount namespace, once. Its mounts end with the process.
void EnterOwnMountNamespace();

struct ProcEntry {
    int pid;
    int ppid;
    std::string exe;           // target of the link; empty for no link, as for a kernel thread
    std::string cmdline = {};  // as in /proc, with zero bytes
    bool hasStatus = true;
    bool hasDescriptors = true;
};

// Mounts a temporary directory over /proc for the lifetime of the object, in a private mount namespace.
class ProcTree {
public:
    ProcTree();
    ~ProcTree();

    void Add(const ProcEntry& entry);

    // Adds another link than exe, such as "cwd", with this target.
    void AddLink(int pid, const std::string& name, const std::string& link);

    // Adds a descriptor with this link target: the path of a real object, or a text such as "pipe:[1]".
    void AddDescriptor(int pid, int fd, const std::string& link);

    // Adds an entry of fd/ whose name need not be a number.
    void AddDescriptorEntry(int pid, const std::string& name, const std::string& link);

    // Adds or replaces a file of the process, such as "stack" or "fdinfo/3", or without a pid, of the host, such as
    // "net/tcp".
    void AddFile(int pid, const std::string& name, const std::string& text);
    void AddFile(const std::string& name, const std::string& text);

    std::filesystem::path Folder() const { return folder_.Path(); }

private:
    TemporaryDirectory folder_;
};

// Mounts a file with this content over an existing one for the lifetime of the object, in a private mount namespace.
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
