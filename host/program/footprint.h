// What the agent asks of the kernel to stay small.
#pragma once

namespace Host {

// Keeps the process from being given pages of 2 MiB where it uses a few KiB, as kernels set to "always" do for the stack
// of a thread. For memory that is touched from now on. Where the kernel refuses, nothing changes.
void KeepPagesSmall();

}  // namespace Host
