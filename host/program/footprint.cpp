#include "host/program/footprint.h"

#include <sys/prctl.h>

namespace Host {

void KeepPagesSmall() {
    ::prctl(PR_SET_THP_DISABLE, 1, 0, 0, 0);
}

}  // namespace Host
