// Measures the readers of /proc without their pauses: a refresh of the socket table, a snapshot of a process, the
// question whether a file is a shell. Prints one JSON object with the median of runs that count their pauses and do not
// sleep, and the CPU time of one run that sleeps, because a pause itself costs CPU time.
//
// Usage: inspect_cost sockets CONNECTIONS RUNS ADDRESS
//        inspect_cost snapshot DESCRIPTORS RUNS
//        inspect_cost shell RUNS

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/staged_host.h"
#include "frame/run_state.h"
#include "inspect/process_snapshot.h"
#include "inspect/socket_table.h"
#include "shellfile/shell_baseline.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/wrapped_calls.h"

// Sum of the pauses requested by the run.
static long long pausedNs = 0;

static bool sleepsInEarnest = false;

extern "C" {

int __wrap_nanosleep(const timespec* asked, timespec* left) {
    if (sleepsInEarnest) {
        return __real_nanosleep(asked, left);
    }
    pausedNs += static_cast<long long>(asked->tv_sec) * 1000000000LL + asked->tv_nsec;
    return 0;
}

// A refresh that follows the last one too soon sleeps first. That sleep is not part of its cost.
unsigned int __wrap_sleep(unsigned int seconds) {
    static_cast<void>(seconds);
    return 0;
}
}

namespace {

struct Cost {
    double cpuMs;
    double pausedMs;
};

double CpuMs() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// The median of the runs. Each run is the mean of repeats calls, because a call can be shorter than the clock's grain.
Cost Measure(int runs, int repeats, const std::function<void()>& call) {
    std::vector<Cost> costs;
    call();  // brings everything into the caches
    for (int i = 0; i < runs; ++i) {
        pausedNs = 0;
        const double before = CpuMs();
        for (int k = 0; k < repeats; ++k) {
            call();
        }
        costs.push_back(
            {.cpuMs = (CpuMs() - before) / repeats, .pausedMs = static_cast<double>(pausedNs) / 1e6 / repeats});
    }
    std::ranges::sort(costs, {}, &Cost::cpuMs);
    return costs.at(costs.size() / 2);
}

double MeasureSlept(const std::function<void()>& call) {
    sleepsInEarnest = true;
    const double before = CpuMs();
    call();
    sleepsInEarnest = false;
    return CpuMs() - before;
}

void Check(bool holds, const char* what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

void MeasureSockets(int connections, int runs, const char* address) {
    const StagedHost host({.processes = 0, .connections = connections, .shells = 0}, address);
    const Cost cost = Measure(runs, 1, RefreshSocketTable);
    // The listener is in the table too.
    Check(socketTable.size() == static_cast<size_t>(connections) + 1, "the table is not that of the staged host");
    const double sleptMs = MeasureSlept(RefreshSocketTable);
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    printf("{\"sockets\":%d,\"pausedMs\":%.3f,\"cpuMs\":%.4f,\"sleptCpuMs\":%.4f,\"peakMiB\":%.1f}\n", connections,
           cost.pausedMs, cost.cpuMs, sleptMs, static_cast<double>(usage.ru_maxrss) / 1024);
}

// A sleeping process with an even number of descriptors. Every other one is the end of a pipe, for which the snapshot
// reads most; the others are /dev/null.
class DescriptorHolder {
public:
    explicit DescriptorHolder(int descriptors) {
        int ready[2];
        Check(pipe2(ready, O_CLOEXEC) == 0, "pipe");
        child_ = fork();
        Check(child_ != -1, "fork");
        if (child_ == 0) {
            Hold(descriptors, ready[1]);
        }
        close(ready[1]);
        char byte = 0;
        const bool isReady = read(ready[0], &byte, 1) == 1;
        close(ready[0]);
        Check(isReady, "the process with the descriptors did not start");
    }
    ~DescriptorHolder() {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    DescriptorHolder(const DescriptorHolder&) = delete;
    DescriptorHolder& operator=(const DescriptorHolder&) = delete;

    pid_t Pid() const { return child_; }

private:
    [[noreturn]] static void Hold(int descriptors, int ready) {
        const int last = dup2(ready, descriptors);
        close_range(0, static_cast<unsigned int>(last) - 1, 0);
        closefrom(last + 1);
        // All lower numbers are free, and each call takes the lowest one.
        for (int fd = 0; fd < descriptors; fd += 2) {
            int ends[2];
            if (pipe(ends) != 0 || ends[0] != fd || ends[1] != fd + 1) {
                _exit(1);
            }
            const int device = open("/dev/null", O_RDONLY);
            dup2(device, fd + 1);
            close(device);
        }
        if (write(last, "x", 1) != 1) {
            _exit(1);
        }
        close(last);
        for (;;) {
            pause();
        }
    }

    pid_t child_ = -1;
};

void MeasureSnapshot(int descriptors, int runs) {
    constexpr int repeats = 20;
    const DescriptorHolder holder(descriptors);
    size_t pipes = 0;
    const std::function<void()> snapshot = [&] {
        ProcInfo info;
        Check(GetProcInfo(holder.Pid(), info) == 1, "the process could not be identified");
        pipes = info.readPipes.size();
    };
    const Cost cost = Measure(runs, repeats, snapshot);
    Check(pipes == static_cast<size_t>(descriptors) / 2, "the snapshot is not that of the staged process");
    printf("{\"descriptors\":%d,\"pausedMs\":%.3f,\"cpuMs\":%.4f,\"sleptCpuMs\":%.4f}\n", descriptors, cost.pausedMs,
           cost.cpuMs, MeasureSlept(snapshot));
}

void MeasureShellQuestion(int runs) {
    constexpr size_t shellBytes = size_t{1} << 20;
    const TemporaryDirectory directory;
    const std::string shell = directory.Write("shell", std::string(shellBytes, 's'));
    const std::string copy = directory.Write("copy", std::string(shellBytes, 's'));
    const std::string other = directory.Write("other", std::string(shellBytes / 2, 's'));
    InitShellsHashSize({shell});
    const Cost miss = Measure(runs, 1000, [&] { Check(!IsShellByHash(other), "another file passes for the shell"); });
    const Cost hit = Measure(runs, 20, [&] { Check(IsShellByHash(copy), "the shell's copy is not known"); });
    printf("{\"missMs\":%.5f,\"hitMs\":%.4f}\n", miss.cpuMs, hit.cpuMs);
}

int MeasureWhatIsAsked(int count, char** arguments) {
    const std::string what = count > 1 ? arguments[1] : "";
    if (what == "sockets" && count == 5) {
        MeasureSockets(atoi(arguments[2]), atoi(arguments[3]), arguments[4]);
    } else if (what == "snapshot" && count == 4) {
        MeasureSnapshot(atoi(arguments[2]), atoi(arguments[3]));
    } else if (what == "shell" && count == 3) {
        MeasureShellQuestion(atoi(arguments[2]));
    } else {
        fprintf(stderr,
                "usage: inspect_cost sockets CONNECTIONS RUNS ADDRESS\n"
                "       inspect_cost snapshot DESCRIPTORS RUNS\n"
                "       inspect_cost shell RUNS\n");
        return 2;
    }
    return 0;
}

}  // namespace

int main(int count, char** arguments) {
    try {
        // The loops of the module end unless it runs.
        moduleRunning = 1;
        return MeasureWhatIsAsked(count, arguments);
    } catch (const std::exception& error) {
        fprintf(stderr, "inspect_cost: %s\n", error.what());
        return 1;
    }
}
