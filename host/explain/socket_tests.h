// What the instant scan and the watcher for short commands ask of a socket.
#pragma once

#include "host/explain/judgement.h"
#include "host/explain/scene.h"

namespace Host {

// Adds whether the module takes the socket for one with a peer that is worth a look, whatever its age, and returns it;
// sock then holds it. refreshed as for IsAbnormalInodeByFlag.
bool CheckAbnormal(const Scene& scene, unsigned long inode, SocketInfo& sock, bool& refreshed, Judgement& judgement);

// Why the module does not take the socket in its table for abnormal, in words.
std::string WhyNotAbnormal(unsigned long inode);

// Adds how old a socket may be that a running agent counts, and what is known of this one's age.
void NoteSocketAge(int pid, int seconds, Judgement& judgement);

}  // namespace Host
