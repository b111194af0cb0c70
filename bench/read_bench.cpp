// Reading speed: whole passes over databases of 10^6 and 10^7 events (64
// threads), converted by the built ravelog from the simulated dumps of the
// tests (test_support/simulated_dump.h), through
//   - the streaming cursor (kq_cursor.h), without and with the state kept;
//   - the list interface (kq_GetNEventsBeforeTime, 10,000 events a call,
//     each list freed), which allocates a record, payload and changes per
//     event;
//   - read(2) of the .kqs file in 1 MiB pieces: the cost of the bytes alone;
// and the kqv subcommands info, state, stats and export (chrome, csv, html)
// as whole processes (wall time, peak resident memory of the child, and the
// size of what an export wrote).
//
// With BENCH_SCALE=1 it also converts the largest dump whose database stays
// within the 2 GiB a file can hold (1.9 x 10^7 events, 64 threads) and runs
// kqv on it: conversion rate and peak memory, then each command's latency.
// That run needs about 2.7 GB in BENCH_DIR (default: the temporary
// directory) and a minute or two.
//
// Run: build/default/bench/read_bench [--benchmark_filter=...]
// Reading figures are for a database in the page cache (each benchmark runs
// after a pass that reads it), so they measure the reader, not the disk.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "bench_support.h"
#include "kq_cursor.h"
#include "kq_io.h"
#include "simulated_dump.h"

namespace {

using benchsupport::RunChild;
using benchsupport::WorkDirectory;

constexpr uint32_t kThreads = 64;

// The database of `events` events, converted once per process.
const std::string &Database(uint32_t events) {
  static std::map<uint32_t, std::string> made;
  auto found = made.find(events);
  if (found != made.end()) return found->second;
  const std::string dir = WorkDirectory("ravelog-read-bench");
  const std::string core = dir + "/dump_" + std::to_string(events);
  const std::string base = dir + "/db_" + std::to_string(events);
  const bool ok = testsupport::WriteSimulatedDump(core, {events, kThreads, true}) &&
                  RunChild({RAVELOG_BINARY, core, base}).ok;
  std::filesystem::remove(core);
  std::string &entry = made[events];
  entry = ok ? base : "";
  return entry;
}

// The record count of a database of `events` simulated events.
double Records(uint32_t events) { return static_cast<double>(events) + kThreads; }

void BM_CursorPass(benchmark::State &state) {
  const auto events = static_cast<uint32_t>(state.range(0));
  const bool keepState = state.range(1) != 0;
  kq_DB *db = kq_OpenForUse(Database(events).c_str());
  if (db == nullptr) {
    state.SkipWithError("no database");
    return;
  }
  uint64_t seen = 0;
  for (auto _ : state) {
    kq_Cursor *cursor = kq_NewCursor(db, keepState ? 1 : 0);
    const kq_CursorEvent *event = nullptr;
    while (kq_CursorNext(cursor, &event) == 1) seen += event->numChanges + 1;
    kq_DeleteCursor(cursor);
  }
  benchmark::DoNotOptimize(seen);
  state.counters["events/s"] =
      benchmark::Counter(Records(events) * state.iterations(), benchmark::Counter::kIsRate);
  kq_Close(db);
}

void BM_ListPass(benchmark::State &state) {
  const auto events = static_cast<uint32_t>(state.range(0));
  kq_DB *db = kq_OpenForUse(Database(events).c_str());
  if (db == nullptr) {
    state.SkipWithError("no database");
    return;
  }
  for (auto _ : state) {
    kq_EventIter *iter = nullptr;
    kq_GetStateAndIterFromTime(db, 0, &iter, nullptr);
    for (;;) {
      List_PT list = kq_GetNEventsBeforeTime(db, &iter, 10000, 0, 0);
      const int size = List_GetSize(list);
      List_Delete(list);
      if (size < 10000) break;
    }
    kq_DeleteEventIter(iter);
  }
  state.counters["events/s"] =
      benchmark::Counter(Records(events) * state.iterations(), benchmark::Counter::kIsRate);
  kq_Close(db);
}

void BM_ReadBytes(benchmark::State &state) {
  const auto events = static_cast<uint32_t>(state.range(0));
  const std::string name = Database(events) + ".kqs";
  std::vector<char> buffer(1 << 20);
  uint64_t total = 0;
  for (auto _ : state) {
    const int fd = open(name.c_str(), O_RDONLY);
    ssize_t got = 0;
    while ((got = read(fd, buffer.data(), buffer.size())) > 0) total += static_cast<uint64_t>(got);
    close(fd);
  }
  state.counters["MB/s"] = benchmark::Counter(static_cast<double>(total) / 1e6, benchmark::Counter::kIsRate);
  state.counters["events/s"] =
      benchmark::Counter(Records(events) * state.iterations(), benchmark::Counter::kIsRate);
}

// kqv as a whole process; range(1) picks the command.
void BM_Kqv(benchmark::State &state) {
  const auto events = static_cast<uint32_t>(state.range(0));
  const std::string base = Database(events);
  const std::string out = WorkDirectory("ravelog-read-bench") + "/export";
  const std::vector<std::vector<std::string>> commands = {
      {KQV_BINARY, "info", base},
      {KQV_BINARY, "state", "--at", "1000000", base},
      {KQV_BINARY, "stats", base},
      {KQV_BINARY, "export", "--format", "chrome", "-o", out, base},
      {KQV_BINARY, "export", "--format", "csv", "-o", out, base},
      {KQV_BINARY, "export", "--format", "html", "-o", out, base},
  };
  const auto &command = commands[static_cast<size_t>(state.range(1))];
  state.SetLabel(command[1] == "export" ? "export " + command[3] : command[1]);
  benchsupport::ChildRun child;
  for (auto _ : state) {
    child = RunChild(command);
    if (!child.ok) state.SkipWithError("kqv failed");
  }
  state.counters["peak_MB"] = static_cast<double>(child.maxRssKb) / 1024.0;
  if (command[1] == "export") {
    state.counters["out_MB"] = static_cast<double>(std::filesystem::file_size(out)) / 1e6;
    std::filesystem::remove(out);
  }
  state.counters["events/s"] =
      benchmark::Counter(Records(events) * state.iterations(), benchmark::Counter::kIsRate);
}

// The largest database a file can hold: conversion, then kqv on it.
void BM_ScaleLargest(benchmark::State &state) {
  constexpr uint32_t kEvents = 19000000;
  const std::string dir = WorkDirectory("ravelog-read-bench");
  const std::string core = dir + "/dump_scale";
  const std::string base = dir + "/db_scale";
  if (!testsupport::WriteSimulatedDump(core, {kEvents, kThreads, true})) {
    state.SkipWithError("can't write the dump");
    return;
  }
  benchsupport::ChildRun convert, info, at, stats;
  for (auto _ : state) {
    convert = RunChild({RAVELOG_BINARY, core, base});
    info = RunChild({KQV_BINARY, "info", base});
    at = RunChild({KQV_BINARY, "state", "--at", "100000000", base});
    stats = RunChild({KQV_BINARY, "stats", base});
  }
  if (!convert.ok || !info.ok || !at.ok || !stats.ok) state.SkipWithError("a run failed");
  state.counters["kqs_MB"] =
      static_cast<double>(std::filesystem::file_size(base + ".kqs")) / 1e6;
  state.counters["convert_s"] = convert.wallSeconds;
  state.counters["convert_events/s"] = Records(kEvents) / convert.wallSeconds;
  state.counters["convert_peak_MB"] = static_cast<double>(convert.maxRssKb) / 1024.0;
  state.counters["info_s"] = info.wallSeconds;
  state.counters["state_s"] = at.wallSeconds;
  state.counters["stats_s"] = stats.wallSeconds;
  state.counters["stats_peak_MB"] = static_cast<double>(stats.maxRssKb) / 1024.0;
  std::filesystem::remove(core);
  for (const char *suffix : {".kqv", ".kqs", ".kqi"}) std::filesystem::remove(base + suffix);
}

}  // namespace

int main(int argc, char **argv) {
  for (int64_t events : {1000000, 10000000}) {
    benchmark::RegisterBenchmark("BM_ReadBytes", BM_ReadBytes)->Arg(events)->Unit(benchmark::kMillisecond);
    for (int64_t keep : {0, 1}) {
      benchmark::RegisterBenchmark("BM_CursorPass", BM_CursorPass)
          ->ArgNames({"events", "state"})
          ->Args({events, keep})
          ->Unit(benchmark::kMillisecond);
    }
    benchmark::RegisterBenchmark("BM_ListPass", BM_ListPass)->Arg(events)->Unit(benchmark::kMillisecond);
    for (int64_t command : {0, 1, 2, 3, 4, 5}) {
      benchmark::RegisterBenchmark("BM_Kqv", BM_Kqv)
          ->ArgNames({"events", "command"})
          ->Args({events, command})
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
    }
  }
  if (getenv("BENCH_SCALE") != nullptr) {
    benchmark::RegisterBenchmark("BM_ScaleLargest", BM_ScaleLargest)
        ->Iterations(1)
        ->Unit(benchmark::kSecond)
        ->UseRealTime();
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
