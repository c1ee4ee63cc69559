// The directory with the files of the stage.
#pragma once

#include <string>
#include <vector>

#include "demo/scenarios.h"

namespace Host {

// A temporary directory. The destructor removes it with its contents.
class StageFolder {
public:
    // Creates the directory, one temporary shell for each scenario that changes one, and a list of these shells. Throws
    // std::system_error on failure.
    explicit StageFolder(const std::vector<const Scenario*>& scenarios);
    ~StageFolder();
    StageFolder(const StageFolder&) = delete;
    StageFolder& operator=(const StageFolder&) = delete;

    const std::string& Path() const { return path_; }

private:
    void Fill(const std::vector<const Scenario*>& scenarios) const;
    void Remove() const;

    std::string path_;
};

}  // namespace Host
