// Judgements as text.
#pragma once

#include <string>
#include <vector>

#include "host/explain/judgement.h"

namespace Host {

// A line with the summary, then a block of lines per judgement. Control characters are escaped and long lines are cut.
// Any thread.
std::string JudgementText(const std::vector<Judgement>& judgements);

}  // namespace Host
