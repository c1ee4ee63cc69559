// The short sleeps that keep the load of the module's scans low.
#pragma once

// Sleeps for this time. Signals do not shorten the sleep; any other error of nanosleep(2) ends it. Any thread.
void Pause(unsigned int microseconds);
