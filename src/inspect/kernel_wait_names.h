// The names that kernels have given to the functions in which a task waits.
#pragma once

#include <string>
#include <string_view>

// True if kernelFunction, as a kernel stack names it, is the wait that function asks for: the function itself or
// another name of the same wait. A function without such names stands for itself alone. Any thread.
bool IsNameOfWait(std::string_view function, std::string_view kernelFunction);
