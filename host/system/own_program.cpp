#include "host/system/own_program.h"

#include "agent/files.h"

namespace Host {

std::string DirectoryOfProgram() {
    const std::string program = TavUtils::FileAttribute::GetRealLink("/proc/self/exe");
    const size_t slash = program.rfind('/');
    return slash == std::string::npos ? "" : program.substr(0, slash);
}

}  // namespace Host
