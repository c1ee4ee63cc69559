// What the module asks between a finding and its event.
#pragma once

#include "host/explain/judgement.h"
#include "host/explain/scene.h"

namespace Host {

// Whose finding it is: only that of a shell by its pid asks whether it runs a command or a file.
enum class Finder { byPid, withRecord };

// Adds the tests for a finding about own, child of parent, on the socket. Any thread.
void AddAlarmTests(const ProcInfo& own, const ProcInfo& parent, const SocketInfo& sock, Finder finder,
                   Judgement& judgement);

}  // namespace Host
