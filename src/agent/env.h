// The agent's environment variables.
#pragma once

namespace TavUtils::Env {

// The variable's value, null when unset; a variable that is set but empty gives "". The text belongs to the
// environment. Any thread: the agent does not change its environment once it runs.
const char* GetEnv(const char* name);

}  // namespace TavUtils::Env
