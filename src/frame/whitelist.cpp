#include "frame/whitelist.h"

#include <cstring>
#include <mutex>
#include <utility>

#include "frame/pacing.h"

static std::mutex whitelistLock;
static std::shared_ptr<const std::set<std::string>> currentWhitelist = std::make_shared<std::set<std::string>>();

std::shared_ptr<const std::set<std::string>> CurrentWhitelist() {
    const std::lock_guard<std::mutex> guard(whitelistLock);
    return currentWhitelist;
}

void ReplaceWhitelist(std::set<std::string> whitelist) {
    auto next = std::make_shared<const std::set<std::string>>(std::move(whitelist));
    const std::lock_guard<std::mutex> guard(whitelistLock);
    currentWhitelist.swap(next);
}

bool IsCmdInIgnoreList(const std::string& cmdline) {
    Pause(10000);
    const auto whitelist = CurrentWhitelist();
    for (const std::string& entry : *whitelist) {
        if (strncmp(cmdline.c_str(), entry.c_str(), entry.size()) == 0) {
            return true;
        }
        Pause(500);
    }
    return false;
}
