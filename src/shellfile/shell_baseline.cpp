#include "shellfile/shell_baseline.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <utility>

#include "agent/files.h"
#include "agent/sha256.h"
#include "frame/log.h"
#include "inspect/detect_shell_utils.h"
#include "inspect/file_handle.h"

static constexpr char logSource[] = "detect_shell_event";

// Sizes stand before digests: a file of another length is dismissed without being read.
static std::set<unsigned long> shellSizes;
static std::map<std::string, std::string> shellHashes;  // resolved path by digest

// Digest of the file's content; empty on failure.
static std::string Digest(const std::string& path) {
    char digest[65] = {};
    return TavUtils::Sha256::GetFileSha256(path, digest, nullptr) ? digest : "";
}

static void TakeSizes() {
    shellSizes.clear();
    for (const std::string& path : shellFiles) {
        struct stat info {};
        if (stat(path.c_str(), &info) == 0) {
            shellSizes.insert(static_cast<unsigned long>(info.st_size));
        }
    }
}

static void TakeDigests() {
    shellHashes.clear();
    for (const std::string& path : shellFiles) {
        const std::string resolved = TavUtils::FileAttribute::GetRealPath(path);
        if (resolved.empty()) {
            continue;
        }
        const std::string digest = Digest(resolved);
        if (digest.empty()) {
            continue;
        }
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "[file=%s hash=%s]", path.c_str(), digest.c_str());
        shellHashes[digest] = resolved;
    }
}

void InitShellsHashSize(std::set<std::string> shells) {
    shellFiles = std::move(shells);
    TakeSizes();
    TakeDigests();
}

bool IsShellByHash(std::string path) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0 || !shellSizes.contains(static_cast<unsigned long>(info.st_size))) {
        return false;
    }
    const std::string digest = Digest(path);
    return !digest.empty() && shellHashes.contains(digest);
}

bool IsShellFile(const std::string& path) {
    return shellFiles.contains(path);
}

int GetFileExt2Flags(const std::string& path) {
    const FileDescriptor file(DetectShellUtil::OpenFileFd(path));
    if (file.Get() == -1) {
        return -1;
    }
    // The request's number carries the size of a long; what the kernel writes is 32 bits (ioctl_iflags(2)).
    int flags = 0;
    return ioctl(file.Get(), FS_IOC_GETFLAGS, &flags) == -1 ? -1 : flags;
}

std::string GetAttrValue(const std::map<std::string, std::string>& values, const std::string& key) {
    const auto value = values.find(key);
    return value == values.end() ? std::string() : value->second;
}
