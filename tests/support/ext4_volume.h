// A file system of the test's own whose files have flags.
#pragma once

#include <string>

#include "tests/support/temporary_directory.h"

// True if this process may mount and the host has loop devices; tests that need a volume skip themselves otherwise,
// naming what is missing.
bool MayMakeVolume();

// A small ext4 volume in a file, mounted for the lifetime of the object in the test's own mount namespace; the loop
// device goes with the mount. Throws if the host makes no such volume.
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
