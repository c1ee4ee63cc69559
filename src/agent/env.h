// The agent's environment variables.
#pragma once

namespace TavUtils::Env {

// Returns the variable's value, null if it is not set, "" if it is set but empty. The text belongs to the environment.
// Any thread: the agent does not change its environment while it runs.
const char* GetEnv(const char* name);

}  // namespace TavUtils::Env
