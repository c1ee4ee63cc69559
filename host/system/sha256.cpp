#include "agent/sha256.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "host/base/descriptor.h"

namespace TavUtils::Sha256 {

namespace {

constexpr size_t blockBytes = 64 * 1024;

bool IsStopped(const bool* stop) {
    // Another thread sets the flag, so the compiler must not move the read out of the loop.
    return stop != nullptr && __atomic_load_n(stop, __ATOMIC_RELAXED);
}

void WriteHex(const unsigned char* bytes, unsigned int count, char (&digest)[65]) {
    constexpr const char* digits = "0123456789abcdef";
    for (unsigned int i = 0; i < count && i < 32; ++i) {
        digest[2 * i] = digits[bytes[i] >> 4];
        digest[2 * i + 1] = digits[bytes[i] & 0x0FU];
    }
    digest[64] = '\0';
}

// False if reading fails or is stopped.
bool UpdateWithContent(const Host::Descriptor& file, EVP_MD_CTX* context, const bool* stop) {
    // Callers may run on threads with small stacks.
    std::vector<char> block(blockBytes);
    while (!IsStopped(stop)) {
        const ssize_t count = file.Read(block.data(), block.size());
        if (count <= 0) {
            return count == 0;
        }
        if (EVP_DigestUpdate(context, block.data(), static_cast<size_t>(count)) != 1) {
            return false;
        }
    }
    return false;
}

}  // namespace

bool GetFileSha256(const std::string& path, char (&digest)[65], const bool* stop) {
    if (path.find('\0') != std::string::npos) {
        return false;
    }
    // Without O_NONBLOCK, a FIFO in place of the file would block the caller forever.
    const Host::Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file.IsOpen()) {
        return false;
    }
    struct stat attributes {};
    if (fstat(file.Get(), &attributes) != 0 || !S_ISREG(attributes.st_mode)) {
        return false;
    }
    const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) {
        return false;
    }
    if (!UpdateWithContent(file, context.get(), stop)) {
        return false;
    }
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (EVP_DigestFinal_ex(context.get(), bytes, &size) != 1) {
        return false;
    }
    WriteHex(bytes, size, digest);
    return true;
}

bool GetMemSha256(const void* data, unsigned int bytes, char (&digest)[65]) {
    if (data == nullptr && bytes != 0) {
        return false;
    }
    unsigned char hash[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (EVP_Digest(data == nullptr ? "" : data, bytes, hash, &size, EVP_sha256(), nullptr) != 1) {
        return false;
    }
    WriteHex(hash, size, digest);
    return true;
}

}  // namespace TavUtils::Sha256
