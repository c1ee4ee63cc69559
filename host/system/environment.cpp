#include "host/system/environment.h"

#include "agent/env.h"
#include "agent/files.h"
#include "module/published.h"

namespace Host {

std::string WhySearchIsOff() {
    if (TavUtils::Env::GetEnv(Published::locationVariable) == nullptr) {
        return "";
    }
    return std::string(Published::locationVariable) +
           " is set in the environment, so the module does not search for reverse shells";
}

std::string DirectoryOfProgram() {
    const std::string program = TavUtils::FileAttribute::GetRealLink("/proc/self/exe");
    const size_t slash = program.rfind('/');
    return slash == std::string::npos ? "" : program.substr(0, slash);
}

}  // namespace Host
