// Judgements as people read them.
#pragma once

#include <string>
#include <vector>

#include "host/explain/judgement.h"

namespace Host {

// A line that sums up, then a block of lines for each judgement. Everything is made printable, and long lines are cut.
// Any thread.
std::string JudgementText(const std::vector<Judgement>& judgements);

}  // namespace Host
