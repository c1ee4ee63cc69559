#include "tests/fakes/fake_agent.h"

#include <mutex>

#include "agent/config.h"

namespace Fake {

void Agent::Note(const std::string& call) {
    {
        static std::mutex journalLock;
        const std::lock_guard guard(journalLock);
        journal.push_back(call);
    }
    if (atEachCall) {
        atEachCall(call);
    }
}

std::vector<std::string> Agent::LogTexts(LogLevel level) const {
    std::vector<std::string> texts;
    for (const LogLine& line : log) {
        if (line.level == level) {
            texts.push_back(line.text);
        }
    }
    return texts;
}

const Task* Agent::FindTask(const std::string& name) const {
    for (const Task& task : tasks) {
        if (task.name == name) {
            return &task;
        }
    }
    return nullptr;
}

Agent& TheAgent() {
    static Agent agent;
    return agent;
}

void ResetAgent() {
    TheAgent() = Agent{};
    TavUtils::Config& config = TavUtils::Config::GetInstance();
    const std::lock_guard<TavUtils::Config> guard(config);
    config.GetConfigMap<std::string>().clear();
}

}  // namespace Fake
