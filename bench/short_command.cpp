// A short command, statically linked. Ends at once, or after STORM_ALIVE_MS milliseconds.

#include <unistd.h>

#include <cstdlib>

int main() {
    const char* const milliseconds = getenv("STORM_ALIVE_MS");
    if (milliseconds != nullptr) {
        usleep(static_cast<useconds_t>(strtoul(milliseconds, nullptr, 10) * 1000));
    }
    return 0;
}
