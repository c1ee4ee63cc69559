// The files of the stage.
#pragma once

#include <string>
#include <vector>

#include "demo/scenarios.h"

namespace Host {

// A directory of the demonstration's own, removed with all that is in it at the end.
class StageFolder {
public:
    // Makes it, in the directory for temporary files, with a list of shells that names one throw-away shell for each of
    // the plans that changes one. Throws std::system_error if that fails.
    explicit StageFolder(const std::vector<const WiringPlan*>& plans);
    ~StageFolder();
    StageFolder(const StageFolder&) = delete;
    StageFolder& operator=(const StageFolder&) = delete;

    const std::string& Path() const { return path_; }

private:
    void Fill(const std::vector<const WiringPlan*>& plans) const;
    void Remove() const;

    std::string path_;
};

}  // namespace Host
