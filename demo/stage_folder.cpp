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
        throw std::system_error(errno, std::generic_category(), "cannot write " + path);
    }
}

}  // namespace

StageFolder::StageFolder(const std::vector<const Scenario*>& scenarios) {
    std::string name = (std::filesystem::temp_directory_path() / "orlim-demo-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "cannot create " + name);
    }
    path_ = name;
    try {
        Fill(scenarios);
    } catch (...) {
        Remove();
        throw;
    }
}

StageFolder::~StageFolder() {
    Remove();
}

void StageFolder::Fill(const std::vector<const Scenario*>& scenarios) const {
    constexpr mode_t shellMode = 0755;
    std::string list;
    for (const Scenario* scenario : scenarios) {
        if (scenario->changesShellFile) {
            const std::string shell = ShellFileOf(path_, scenario->name);
            WriteText(shell, "#!/bin/sh\n# Plays a shell of the host in scenario " + scenario->name + "\n");
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
