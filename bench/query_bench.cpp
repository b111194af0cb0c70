// Query speed of the read side on databases of 10^5, 10^6 and 10^7 events:
// the state of all objects at a random time, the events of a range of about
// 1000 events with the state at its start, one event by a random number,
// and the objects used over a long range (10^5 events, or the whole of the
// smallest database).  Every query costs one index search, one snapshot
// and at most one block of replay before its range, so the latency should
// stay flat as the database grows; opening (which reads the whole index)
// is timed for comparison.
//
// The databases are written once through the writer API by a small
// simulation of a ThreadX system: 32 tasks, each event owned by one, status
// changes recorded as Mods, some tasks ending (Del) and new ones starting
// (New), times rising by 1 to 40 ticks.  Writing 10^7 events takes about a
// minute and about 700 MB.
//
// Run: build/default/bench/query_bench [--benchmark_filter=...]
// BENCH_DIR names where the databases go (default: the temporary
// directory).  With BENCH_KEEP set they stay there (query_<events>.*) and
// later runs use them again instead of writing them anew.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "bench_support.h"
#include "indgeninit.h"
#include "kq_io.h"
#include "kq_byteorder.h"
#include "kq_state.h"
#include "kq_tracker.h"
#include "test_random.h"

namespace {

// ---- Writing the databases ----------------------------------------------------

using testsupport::Random;

constexpr uint32_t kTasks = 32;
constexpr uint32_t kTaskBase = 0x20001000u;

// The tracker of the simulation: the event's payload says what happens.
// Byte 4: 0 nothing, 1 a status change, 2 the task ends, 3 a task starts.
int SimulationTracker(kq_DB *db, HT_PT current, HT_PT used, kq_Event *event) {
  if (event->length < 6) return 1;
  const uint32_t id = kq_ConvertToHostOrder4(1, event->data);
  switch (event->data[4]) {
    case 1: {
      const uint8_t status[2] = {0, event->data[5]};
      kq_SaveStateChangeMod(db, current, KQ_TYPE_TASK, id, KQ_TASK_STATUS, 2, status);
      break;
    }
    case 2:
      kq_SaveStateChangeDel(db, current, KQ_TYPE_TASK, id);
      break;
    case 3:
      kq_KeepTaskID(id, db, current, used, 0, nullptr, 1, event->data[5], 0, nullptr, 0, nullptr,
                    nullptr);
      break;
    default:
      break;
  }
  return 1;
}

bool WriteDatabase(const std::string &base, uint64_t events) {
  kq_DB *db = kq_OpenForCreation(base.c_str(), 1000000, "ThreadX", 1, SimulationTracker);
  if (db == nullptr) return false;
  Random random(0x0b5e55edu + events);
  uint64_t time = 0;
  uint8_t payload[16] = {};
  for (uint64_t i = 0; i < events; i++) {
    uint32_t task = random.Below(kTasks);
    uint8_t what = 0;
    if (i < kTasks) {
      task = static_cast<uint32_t>(i);
      what = 3;  // the thread records of the start
    } else {
      const uint32_t roll = random.Below(100);
      what = roll < 30 ? 1 : (roll == 30 ? 2 : (roll == 31 ? 3 : 0));
    }
    const uint32_t id = kTaskBase + task;
    payload[0] = static_cast<uint8_t>(id >> 24);
    payload[1] = static_cast<uint8_t>(id >> 16);
    payload[2] = static_cast<uint8_t>(id >> 8);
    payload[3] = static_cast<uint8_t>(id);
    payload[4] = what;
    payload[5] = static_cast<uint8_t>(random.Below(8));
    const uint32_t typeWord = ((1 + random.Below(7)) << 16) | random.Below(40);
    time += 1 + random.Below(40);
    if (!kq_AddEventFromRawBytes(db, static_cast<uint32_t>(time >> 32),
                                 static_cast<uint32_t>(time), typeWord, payload,
                                 8 + random.Below(9))) {
      kq_Close(db);
      return false;
    }
  }
  kq_Close(db);
  return true;
}

uint32_t CountOf(kq_DB *db) {
  uint32_t count = 0;
  kq_GetStartEventAndNumEvents(db, nullptr, &count);
  return count;
}

// ---- The open databases --------------------------------------------------------------

struct Database {
  std::string base;
  kq_DB *db = nullptr;
  uint32_t events = 0;
  uint64_t start = 0, end = 0;
  ~Database() {
    kq_Close(db);
    if (getenv("BENCH_KEEP") != nullptr) return;
    for (const char *suffix : {".kqv", ".kqs", ".kqi"}) std::filesystem::remove(base + suffix);
  }
};

// The database of `events` events, written on first use (or found, with
// BENCH_KEEP), open for reading; null when it can't be had.
Database *DatabaseOf(uint64_t events) {
  static std::map<uint64_t, std::unique_ptr<Database>> open;
  auto &slot = open[events];
  if (slot) return slot->db != nullptr ? slot.get() : nullptr;
  slot = std::make_unique<Database>();
  slot->base = benchsupport::WorkDirectory("ravelog-query-bench") + "/query_" + std::to_string(events);
  slot->db = kq_OpenForUse(slot->base.c_str());
  if (slot->db == nullptr || CountOf(slot->db) != events) {
    kq_Close(slot->db);
    slot->db = nullptr;
    if (!WriteDatabase(slot->base, events)) return nullptr;
    slot->db = kq_OpenForUse(slot->base.c_str());
    if (slot->db == nullptr) return nullptr;
  }
  slot->events = CountOf(slot->db);
  kq_GetTimeExtent(slot->db, &slot->start, &slot->end);
  return slot.get();
}

// ---- Queries ---------------------------------------------------------------------------

void BM_StateAtRandomTime(benchmark::State &state) {
  Database *d = DatabaseOf(static_cast<uint64_t>(state.range(0)));
  if (d == nullptr) return state.SkipWithError("no database");
  Random random(1);
  const uint64_t span = d->end - d->start;
  size_t objects = 0;
  for (auto _ : state) {
    const uint64_t t = d->start + (static_cast<uint64_t>(random.Next()) << 16 ^ random.Next()) % span;
    kq_EventIter *iter = nullptr;
    kq_State *s = nullptr;
    kq_GetStateAndIterFromTime(d->db, t, &iter, &s);
    objects += static_cast<size_t>(HT_GetSize(s->table));
    kq_DeleteState(s);
    kq_DeleteEventIter(iter);
  }
  state.counters["objects"] = static_cast<double>(objects) / static_cast<double>(state.iterations());
}

void BM_RangeOf1000Events(benchmark::State &state) {
  Database *d = DatabaseOf(static_cast<uint64_t>(state.range(0)));
  if (d == nullptr) return state.SkipWithError("no database");
  Random random(2);
  const uint32_t blocks = d->db->numTimePos;
  size_t listed = 0;
  for (auto _ : state) {
    const uint32_t b = random.Below(blocks - 10);
    const uint64_t from = d->db->timePos[b].time + 17, to = d->db->timePos[b + 10].time + 17;
    kq_State *s = nullptr;
    List_PT list = kq_GetEventListAndStateFromTimeRange(d->db, from, to, &s);
    listed += static_cast<size_t>(List_GetSize(list));
    List_Delete(list);
    kq_DeleteState(s);
  }
  state.counters["events"] = static_cast<double>(listed) / static_cast<double>(state.iterations());
}

void BM_EventByNumber(benchmark::State &state) {
  Database *d = DatabaseOf(static_cast<uint64_t>(state.range(0)));
  if (d == nullptr) return state.SkipWithError("no database");
  Random random(3);
  for (auto _ : state) {
    kq_State *s = nullptr;
    List_PT list = kq_GetNEventsAndStateFromEventNum(d->db, 1 + random.Below(d->events), 1, &s);
    List_Delete(list);
    kq_DeleteState(s);
  }
}

void BM_ObjectsUsedOverALongRange(benchmark::State &state) {
  Database *d = DatabaseOf(static_cast<uint64_t>(state.range(0)));
  if (d == nullptr) return state.SkipWithError("no database");
  Random random(4);
  const uint32_t blocks = d->db->numTimePos;
  const uint32_t length = blocks > 1000 ? 1000 : blocks - 1;  // 10^5 events
  size_t ids = 0;
  for (auto _ : state) {
    const uint32_t b = blocks > length + 1 ? random.Below(blocks - length - 1) : 0;
    const uint64_t from = d->db->timePos[b].time + 17, to = d->db->timePos[b + length].time + 17;
    uint32_t *found = nullptr;
    uint32_t count = 0;
    kq_GetObjectIdsInTimeRange(d->db, &found, &count, KQ_TYPE_TASK, from, to);
    ids += count;
    gen_free(found);
  }
  state.counters["ids"] = static_cast<double>(ids) / static_cast<double>(state.iterations());
}

void BM_OpenAndCount(benchmark::State &state) {
  Database *d = DatabaseOf(static_cast<uint64_t>(state.range(0)));
  if (d == nullptr) return state.SkipWithError("no database");
  for (auto _ : state) {
    kq_DB *db = kq_OpenForUse(d->base.c_str());
    benchmark::DoNotOptimize(CountOf(db));
    kq_Close(db);
  }
}

#define SIZES ->Arg(100000)->Arg(1000000)->Arg(10000000)->Unit(benchmark::kMicrosecond)
BENCHMARK(BM_StateAtRandomTime) SIZES;
BENCHMARK(BM_RangeOf1000Events) SIZES;
BENCHMARK(BM_EventByNumber) SIZES;
BENCHMARK(BM_ObjectsUsedOverALongRange) SIZES;
BENCHMARK(BM_OpenAndCount) SIZES;
#undef SIZES

}  // namespace

BENCHMARK_MAIN();
