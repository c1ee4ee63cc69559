// Words for an errno.
#pragma once

#include <string>
#include <system_error>

namespace Host {

// Any thread, unlike strerror.
inline std::string ErrorText(int error) {
    return std::generic_category().message(error);
}

}  // namespace Host
