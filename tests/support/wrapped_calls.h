// glibc's functions that the linker redirects (--wrap), under the names by which both versions are reached.
#pragma once

#include <ctime>

extern "C" {

unsigned int __real_sleep(unsigned int seconds);

// With a 64-bit time_t on a 32-bit host, glibc uses other symbols for these functions.
#ifdef __USE_TIME_BITS64
int __real_nanosleep(const timespec* asked, timespec* left) __asm__("__real___nanosleep64");
int __wrap_nanosleep(const timespec* asked, timespec* left) __asm__("__wrap___nanosleep64");
time_t __real_time(time_t* result) __asm__("__real___time64");
time_t __wrap_time(time_t* result) __asm__("__wrap___time64");
int __real_clock_gettime(clockid_t clock, timespec* now) __asm__("__real___clock_gettime64");
int __wrap_clock_gettime(clockid_t clock, timespec* now) __asm__("__wrap___clock_gettime64");
int __real_ioctl(int fd, unsigned long request, ...) __asm__("__real___ioctl_time64");
int __wrap_ioctl(int fd, unsigned long request, ...) __asm__("__wrap___ioctl_time64");
#else
int __real_nanosleep(const timespec* asked, timespec* left);
time_t __real_time(time_t* result);
int __real_clock_gettime(clockid_t clock, timespec* now);
int __real_ioctl(int fd, unsigned long request, ...);
#endif
}
