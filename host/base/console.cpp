#include "host/base/console.h"

#include <unistd.h>

#include "host/base/descriptor.h"
#include "host/base/printable.h"

namespace Host {

void PrintMessage(const std::string& message) {
    constexpr size_t limit = 16384;
    std::string line = "orlim-agent: ";
    AppendPrintable(line, message, limit);
    line += '\n';
    WriteAll(STDERR_FILENO, line);
}

}  // namespace Host
