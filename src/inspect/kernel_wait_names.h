// The names of the kernel functions in which a task waits, which differ between kernels.
#pragma once

#include <string>
#include <string_view>

// True if kernelFunction, a name from a kernel stack, is function or another name of the same wait. Any thread.
bool IsNameOfWait(std::string_view function, std::string_view kernelFunction);
