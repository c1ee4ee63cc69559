// A temporary file system whose files have flags.
#pragma once

#include <string>

#include "tests/support/temporary_directory.h"

// True if this process may mount and the host has loop devices. If false, tests that need a volume skip and say why.
bool MayMakeVolume();

// A small ext4 volume in a file, mounted in a private mount namespace for the lifetime of the object. The kernel frees
// the loop device on unmount. The constructor throws on failure.
class Ext4Volume {
public:
    Ext4Volume();
    ~Ext4Volume();
    Ext4Volume(const Ext4Volume&) = delete;
    Ext4Volume& operator=(const Ext4Volume&) = delete;

    // Writes a file and returns its path.
    std::string Write(const std::string& name, const std::string& text) const;

    std::string Path(const std::string& name) const;

private:
    TemporaryDirectory folder_;
};
