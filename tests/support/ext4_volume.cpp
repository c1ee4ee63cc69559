#include "tests/support/ext4_volume.h"

#include <sys/mount.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "tests/support/proc_tree.h"

bool MayMakeVolume() {
    return MayMount() && access("/dev/loop-control", R_OK | W_OK) == 0;
}

static void Run(const std::string& command) {
    if (std::system(("PATH=$PATH:/usr/sbin:/sbin " + command).c_str()) != 0) {
        throw std::runtime_error("failed: " + command);
    }
}

Ext4Volume::Ext4Volume() {
    EnterOwnMountNamespace();
    const std::string image = folder_.Write("image", "");
    std::filesystem::resize_file(image, 1024 * 1024);
    std::filesystem::create_directories(folder_.Path("volume"));
    Run("mkfs.ext4 -q -O ^has_journal '" + image + "'");
    Run("mount -o loop '" + image + "' '" + folder_.Path("volume") + "'");
}

Ext4Volume::~Ext4Volume() {
    umount2(folder_.Path("volume").c_str(), MNT_DETACH);
}

std::string Ext4Volume::Write(const std::string& name, const std::string& text) const {
    return folder_.Write("volume/" + name, text);
}

std::string Ext4Volume::Path(const std::string& name) const {
    return folder_.Path("volume/" + name);
}
