#include "host/explain/decision_recorder.h"

#include <map>

namespace Host {
namespace {

// Per thread: other threads of the program do not run the module.
thread_local const std::function<void(const Decision&)>* currentListener = nullptr;
thread_local std::map<Trace::Test, long long> limits;

class Recording {
public:
    explicit Recording(const std::function<void(const Decision&)>& listener) { currentListener = &listener; }
    ~Recording() {
        currentListener = nullptr;
        limits.clear();
    }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;
};

}  // namespace

void RecordDecisions(const std::function<void()>& work, const std::function<void(const Decision&)>& listener) {
    const Recording recording(listener);
    work();
}

}  // namespace Host

bool Trace::Result(Test test, int pid, bool outcome, const Facts& facts) {
    if (Host::currentListener == nullptr) {
        return outcome;
    }
    const auto known = Host::limits.find(test);
    (*Host::currentListener)({.test = test,
                              .pid = pid,
                              .outcome = outcome,
                              .other = facts.other,
                              .inode = facts.inode,
                              .count = facts.count,
                              .limit = known == Host::limits.end() ? facts.limit : known->second,
                              .text = std::string(facts.text)});
    return outcome;
}

void Trace::Limit(Test test, long long limit) {
    Host::limits[test] = limit;
}
