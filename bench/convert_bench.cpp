// Conversion speed: large version 2 dumps (10^5, 10^6 and 10^7 events; 8
// and 64 threads) converted by the built ravelog, one child process per
// run.  Reports events per second (records: thread records and events),
// output megabytes per second (all three database files), the child's peak
// resident memory (ru_maxrss) and its CPU time (user + system), which on a
// shared machine says more than the wall time.
//
// Right after each conversion the same number of bytes as the database
// holds is written into the same directory with 1 MiB write(2) calls, the
// way dd does it, twice: with O_DIRECT, which is the disk's own speed
// (dd bs=1M oflag=direct), and through the page cache.  seq_s and seq_MB/s
// are the direct write, ratio the conversion's wall time over it; the
// cached write gives seqc_s, seqc_MB/s and ratio_cached.  The ratios are the
// figures to quote on a noisy machine, since both halves of each see the
// same disk and load.  A file system that refuses O_DIRECT gives 0 there.
//
// The dumps are the simulated ThreadX systems of the tests (big-endian;
// test_support/simulated_dump.h): a running thread makes service calls,
// interrupts come and end, user events and timer ticks pass, threads
// suspend and resume with status changes, and context switches hand the
// processor on.  A fixed seed makes every run write the same bytes.
//
// Run: build/default/bench/convert_bench [--benchmark_filter=...]
// BENCH_DIR names where dumps and databases go (default: the temporary
// directory); the largest runs need about 1.5 GB there.  With BENCH_KEEP
// set, the dumps (dump_<events>_<threads>) and the last database (db.*)
// stay there, for profiling or for comparing two writers on the same dumps.
// BENCH_RAVELOG names another ravelog binary to time (an older build, for
// before-and-after tables).  GFILE_WRITE_STDIO=1 in the environment makes
// the converter write through plain stdio (see indgfile.h), which the child
// inherits.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "bench_support.h"
#include "simulated_dump.h"

namespace {

// ---- Running the converter --------------------------------------------------

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string Binary() {
  const char *chosen = getenv("BENCH_RAVELOG");
  return chosen != nullptr && *chosen != 0 ? chosen : RAVELOG_BINARY;
}

uint64_t DatabaseBytes(const std::string &base) {
  uint64_t total = 0;
  for (const char *suffix : {".kqv", ".kqs", ".kqi"}) {
    struct stat info {};
    if (stat((base + suffix).c_str(), &info) == 0) total += static_cast<uint64_t>(info.st_size);
  }
  return total;
}

// The sequential-write limit: `bytes` bytes written into a new file at
// `path` with 1 MiB write(2) calls, then closed and removed; with `direct`
// through O_DIRECT (the length rounded up to 4 KiB, as O_DIRECT needs
// whole blocks).  Returns the seconds from the open to the close, or a
// negative number on failure.
double SequentialWrite(const std::string &path, uint64_t bytes, bool direct) {
  constexpr size_t kBlock = 1 << 20;
  constexpr uint64_t kDirectUnit = 4096;
  static unsigned char *block = [] {
    void *b = nullptr;
    if (posix_memalign(&b, kDirectUnit, kBlock) != 0) return static_cast<unsigned char *>(nullptr);
    auto *bytesOf = static_cast<unsigned char *>(b);
    for (size_t i = 0; i < kBlock; i++) bytesOf[i] = static_cast<unsigned char>(i * 131 + 7);
    return bytesOf;
  }();
  if (block == nullptr) return -1;
  if (direct) bytes = (bytes + kDirectUnit - 1) / kDirectUnit * kDirectUnit;
  const auto start = std::chrono::steady_clock::now();
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | (direct ? O_DIRECT : 0), 0644);
  if (fd < 0) return -1;
  bool ok = true;
  for (uint64_t done = 0; ok && done < bytes;) {
    const size_t n = static_cast<size_t>(std::min<uint64_t>(kBlock, bytes - done));
    ok = write(fd, block, n) == static_cast<ssize_t>(n);
    done += n;
  }
  ok = close(fd) == 0 && ok;
  const double seconds = SecondsSince(start);
  unlink(path.c_str());
  return ok ? seconds : -1;
}

void BM_ConvertVersion2Dump(benchmark::State &state) {
  const auto events = static_cast<uint64_t>(state.range(0));
  const auto threads = static_cast<uint32_t>(state.range(1));
  const std::string dir = benchsupport::WorkDirectory("ravelog-convert-bench");
  const std::string core = dir + "/dump_" + std::to_string(events) + "_" + std::to_string(threads);
  const std::string base = dir + "/db";
  if (!testsupport::WriteSimulatedDump(core, {static_cast<uint32_t>(events), threads, true})) {
    state.SkipWithError("can't write the dump");
    return;
  }
  benchsupport::ChildRun run;
  uint64_t outputBytes = 0;
  double cpuSeconds = 0;
  double wallSeconds = 0;
  double seqSeconds = 0;        // O_DIRECT
  double seqCachedSeconds = 0;  // through the page cache
  for (auto _ : state) {
    run = benchsupport::RunChild({Binary(), core, base});
    if (!run.ok) {
      state.SkipWithError("ravelog failed");
      break;
    }
    state.PauseTiming();
    cpuSeconds += run.cpuSeconds;
    wallSeconds += run.wallSeconds;
    outputBytes = DatabaseBytes(base);
    const double seq = SequentialWrite(dir + "/sequential", outputBytes, true);
    const double seqCached = SequentialWrite(dir + "/sequential", outputBytes, false);
    if (seqCached < 0) {
      state.SkipWithError("can't write the sequential file");
      break;
    }
    seqSeconds += seq < 0 ? 0 : seq;
    seqCachedSeconds += seqCached;
    state.ResumeTiming();
  }
  const double iterations = static_cast<double>(state.iterations());
  const double records = static_cast<double>(events + threads);
  state.counters["events/s"] = benchmark::Counter(records * iterations, benchmark::Counter::kIsRate);
  state.counters["out_MB/s"] = benchmark::Counter(static_cast<double>(outputBytes) * iterations / 1e6,
                                                  benchmark::Counter::kIsRate);
  state.counters["out_MB"] = static_cast<double>(outputBytes) / 1e6;
  state.counters["peak_MB"] = static_cast<double>(run.maxRssKb) / 1024.0;
  // On a shared machine the child's own CPU time is the steadier measure.
  state.counters["cpu_s"] = cpuSeconds / iterations;
  state.counters["events/cpu_s"] = cpuSeconds > 0 ? records * iterations / cpuSeconds : 0;
  // The sequential-write limit for the same bytes, and how far off it we are.
  state.counters["seq_s"] = seqSeconds / iterations;
  state.counters["seq_MB/s"] =
      seqSeconds > 0 ? static_cast<double>(outputBytes) * iterations / 1e6 / seqSeconds : 0;
  state.counters["ratio"] = seqSeconds > 0 ? wallSeconds / seqSeconds : 0;
  state.counters["seqc_s"] = seqCachedSeconds / iterations;
  state.counters["seqc_MB/s"] = seqCachedSeconds > 0 ? static_cast<double>(outputBytes) *
                                                           iterations / 1e6 / seqCachedSeconds
                                                     : 0;
  state.counters["ratio_cached"] = seqCachedSeconds > 0 ? wallSeconds / seqCachedSeconds : 0;
  state.counters["wall_s"] = wallSeconds / iterations;
  if (getenv("BENCH_KEEP") != nullptr) return;
  std::filesystem::remove(core);
  for (const char *suffix : {".kqv", ".kqs", ".kqi"}) std::filesystem::remove(base + suffix);
}

BENCHMARK(BM_ConvertVersion2Dump)
    ->ArgNames({"events", "threads"})
    ->Args({100000, 8})
    ->Args({100000, 64})
    ->Args({1000000, 8})
    ->Args({1000000, 64})
    ->Args({10000000, 8})
    ->Args({10000000, 64})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
