// The small sleeps that keep the module's scans from being felt on the host.
#pragma once

// Sleeps for microseconds. A signal does not shorten the sleep; any other error of nanosleep(2) ends it. Any thread.
void Pause(unsigned int microseconds);
