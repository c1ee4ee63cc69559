// Fails to compile unless linux/cn_proc.h is the one in this directory.
#include <linux/cn_proc.h>

#include <type_traits>

static_assert(PROC_EVENT_NONZERO_EXIT == 0x20000000);
static_assert(std::is_same_v<decltype(proc_event::what), proc_cn_event>);
