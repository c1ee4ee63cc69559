// SHA-256 digests as lower-case hexadecimal text.
#pragma once

#include <string>

namespace TavUtils::Sha256 {

// Digest of a regular file's content, read in blocks. digest receives 64 characters and a terminator and is left as it
// was on failure: no such file, not a regular file, unreadable, or stopped (stop may be null). Any thread.
bool GetFileSha256(const std::string& path, char (&digest)[65], const bool* stop);

// Digest of bytes bytes at data; data may be null when bytes is 0. False only if the library fails. Any thread.
bool GetMemSha256(const void* data, unsigned int bytes, char (&digest)[65]);

}  // namespace TavUtils::Sha256
