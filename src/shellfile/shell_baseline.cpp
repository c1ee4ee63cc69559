#include "shellfile/shell_baseline.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <mutex>
#include <utility>

#include "agent/files.h"
#include "agent/sha256.h"
#include "frame/file_handle.h"
#include "frame/log.h"
#include "inspect/detect_shell_utils.h"

static constexpr char logSource[] = "detect_shell_event";

namespace {

struct Baseline {
    std::set<std::string> shellFiles;
    // Looked up before the digests, so that a file of any other size is not read.
    std::set<unsigned long> shellSizes;
    std::map<std::string, std::string> shellHashes;  // resolved path by digest
};

}  // namespace

// Guards baseline. Not held while a file is read, and never together with another lock.
static std::mutex baselineLock;
static Baseline baseline;

// Empty on failure.
static std::string Digest(const std::string& path) {
    char digest[65] = {};
    return TavUtils::Sha256::GetFileSha256(path, digest, nullptr) ? digest : "";
}

static std::set<unsigned long> SizesOf(const std::set<std::string>& shells) {
    std::set<unsigned long> sizes;
    for (const std::string& path : shells) {
        struct stat info {};
        if (stat(path.c_str(), &info) == 0) {
            sizes.insert(static_cast<unsigned long>(info.st_size));
        }
    }
    return sizes;
}

static std::map<std::string, std::string> DigestsOf(const std::set<std::string>& shells) {
    std::map<std::string, std::string> digests;
    for (const std::string& path : shells) {
        const std::string resolved = TavUtils::FileAttribute::GetRealPath(path);
        if (resolved.empty()) {
            continue;
        }
        const std::string digest = Digest(resolved);
        if (digest.empty()) {
            continue;
        }
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "[file=%s hash=%s]", path.c_str(), digest.c_str());
        digests[digest] = resolved;
    }
    return digests;
}

void InitShellsHashSize(std::set<std::string> shells) {
    Baseline fresh;
    fresh.shellSizes = SizesOf(shells);
    fresh.shellHashes = DigestsOf(shells);
    fresh.shellFiles = std::move(shells);
    const std::lock_guard guard(baselineLock);
    std::swap(baseline, fresh);
}

std::set<std::string> ShellFiles() {
    const std::lock_guard guard(baselineLock);
    return baseline.shellFiles;
}

bool IsShellByHash(std::string path) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0 || !IsShellSize(static_cast<unsigned long>(info.st_size))) {
        return false;
    }
    return !ShellWithDigest(Digest(path)).empty();
}

bool IsShellSize(unsigned long size) {
    const std::lock_guard guard(baselineLock);
    return baseline.shellSizes.contains(size);
}

std::string ShellWithDigest(const std::string& digest) {
    const std::lock_guard guard(baselineLock);
    return GetAttrValue(baseline.shellHashes, digest);
}

bool IsShellFile(const std::string& path) {
    const std::lock_guard guard(baselineLock);
    return baseline.shellFiles.contains(path);
}

int GetFileExt2Flags(const std::string& path) {
    const FileDescriptor file(DetectShellUtil::OpenFileFd(path));
    if (file.Get() == -1) {
        return -1;
    }
    // The request number encodes the size of a long, but the kernel writes 32 bits (ioctl_iflags(2)).
    int flags = 0;
    return ioctl(file.Get(), FS_IOC_GETFLAGS, &flags) == -1 ? -1 : flags;
}

std::string GetAttrValue(const std::map<std::string, std::string>& values, const std::string& key) {
    const auto value = values.find(key);
    return value == values.end() ? std::string() : value->second;
}
