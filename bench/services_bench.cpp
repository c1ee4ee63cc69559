// Measures single services of the agent.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "agent/convert.h"
#include "agent/json.h"
#include "agent/process_utils.h"
#include "host/processes/proc_net_table.h"

namespace {

std::string TcpTable(int64_t lines) {
    std::string text =
        "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n";
    char line[256];
    for (int64_t i = 0; i < lines; ++i) {
        snprintf(line, sizeof(line),
                 "%4d: 010200C0:%04X 020200C0:%04X 01 00000000:00000000 00:00000000 00000000     0        0 %d 1 "
                 "0000000000000000 20 4 30 10 -1\n",
                 static_cast<int>(i), static_cast<unsigned int>(i % 65536), static_cast<unsigned int>(i % 60000),
                 100000 + static_cast<int>(i));
        text += line;
    }
    return text;
}

void ParseConnectionTable(benchmark::State& state) {
    const std::string text = TcpTable(state.range(0));
    for (auto _ : state) {
        std::vector<Host::Connection> records;
        benchmark::DoNotOptimize(
            Host::ParseProcNetTable(text, Host::TableFamily::ipv4, records, Host::maxTableRecords, nullptr));
        if (records.size() != static_cast<size_t>(state.range(0))) {
            state.SkipWithError("lines were lost");
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(ParseConnectionTable)->Arg(100)->Arg(1000)->Arg(50000)->Unit(benchmark::kMillisecond);

void ReadProcessStatus(benchmark::State& state) {
    for (auto _ : state) {
        ProcessUtils::ProcStatus status{};
        benchmark::DoNotOptimize(ProcessUtils::GetProcStatus(getpid(), ProcessUtils::PROC_STATUS, status));
    }
}
BENCHMARK(ReadProcessStatus)->Unit(benchmark::kMicrosecond);

void WriteEvent(benchmark::State& state) {
    const std::string cmdline(static_cast<size_t>(state.range(0)), 'A');
    for (auto _ : state) {
        TavUtils::JsonAdaptor::JsonValue content(TavUtils::JsonAdaptor::JSON_OBJECT);
        content["pid"] = 4711;
        content["path"] = "/usr/bin/bash";
        content["cmdline"] = cmdline;
        content["remoteIp"] = "192.0.2.7";
        TavUtils::JsonAdaptor::JsonValue event(TavUtils::JsonAdaptor::JSON_OBJECT);
        event["eventType"] = "reverse-shell";
        event.JsonItemAddToObject("eventContent", content);
        benchmark::DoNotOptimize(TavUtils::Convert::JsonToString(event));
    }
}
BENCHMARK(WriteEvent)->Arg(20)->Arg(100000)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
