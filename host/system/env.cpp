#include "agent/env.h"

#include <cstdlib>

namespace TavUtils::Env {

const char* GetEnv(const char* name) {
    return name == nullptr ? nullptr : std::getenv(name);
}

}  // namespace TavUtils::Env
