#include "demo/stage_folder.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "module/published.h"

namespace Host {
namespace {

void WriteText(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    file.close();
    if (!file) {
        throw std::system_error(errno, std::generic_category(), path + " cannot be written");
    }
}

}  // namespace

StageFolder::StageFolder(const std::vector<const WiringPlan*>& plans) {
    std::string name = (std::filesystem::temp_directory_path() / "orlim-demo-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), name + " cannot be made");
    }
    path_ = name;
    try {
        Fill(plans);
    } catch (...) {
        Remove();
        throw;
    }
}

StageFolder::~StageFolder() {
    Remove();
}

void StageFolder::Fill(const std::vector<const WiringPlan*>& plans) const {
    constexpr mode_t shellMode = 0755;
    std::string list;
    for (const WiringPlan* plan : plans) {
        if (plan->changesShellFile) {
            const std::string shell = ShellFileOf(path_, plan->name);
            WriteText(shell, "#!/bin/sh\n# Stands in for a shell of the host: " + plan->name + "\n");
            ::chmod(shell.c_str(), shellMode);
            list += shell + "\n";
        }
    }
    WriteText(path_ + "/" + Published::shellListName, list);
}

void StageFolder::Remove() const {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace Host
