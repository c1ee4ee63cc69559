// The shortest of commands: linked statically, it has ended as soon as it has begun, or after the time that is asked
// for.

#include <unistd.h>

#include <cstdlib>

int main() {
    const char* const milliseconds = getenv("STORM_ALIVE_MS");
    if (milliseconds != nullptr) {
        usleep(static_cast<useconds_t>(strtoul(milliseconds, nullptr, 10) * 1000));
    }
    return 0;
}
