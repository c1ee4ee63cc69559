// SHA-256 digests as lower-case hexadecimal text.
#pragma once

#include <string>

namespace TavUtils::Sha256 {

// Stores the digest of a regular file's content: 64 characters and a terminator. stop may be null; reading ends once it
// is true. Returns false and leaves digest unchanged if the file is missing, not a regular file or unreadable, or if it
// was stopped. Any thread.
bool GetFileSha256(const std::string& path, char (&digest)[65], const bool* stop);

// Stores the digest of bytes bytes at data; data may be null only if bytes is 0. Returns false on null data or if the
// library fails. Any thread.
bool GetMemSha256(const void* data, unsigned int bytes, char (&digest)[65]);

}  // namespace TavUtils::Sha256
