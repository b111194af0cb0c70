/*
 * kqv_stats.cpp - kqv stats: one status walk over a range (kqv_walk.cpp),
 * counting per thread the ticks it ran (its status is the primary value,
 * RUNNING), how often it was switched in, its longest run and its service
 * calls, and per event type how many events there were.  A thread that
 * runs when the range starts runs from its start, and one that still runs
 * at its end stops there.
 */
#include <algorithm>
#include <cinttypes>
#include <map>
#include <unordered_map>

#include "kq_names.h"
#include "kq_state.h"
#include "kqv.h"

namespace kqv {

namespace {

constexpr uint16_t kKernelCall = 3;

struct Thread {
  uint64_t runningTicks = 0;
  uint64_t switchedIn = 0;
  uint64_t longestRun = 0;
  bool running = false;
  uint64_t since = 0;                     // start of the current run
  std::map<uint16_t, uint64_t> services;  // subtype -> calls
};

class Stats : public StatusWalk::Listener {
 public:
  Stats(const Database &database, Range range) : database_(database), walk_(database, range) {}

  void Run() {
    walk_.Run(this);
    const Range &range = walk_.range();
    for (auto &entry : threads_) {
      if (entry.second.running) Stop(&entry.second, range.to);
    }
    kq_State *state = nullptr;
    kq_GetStateAndIterFromTime(database_.db(), range.to, nullptr, &state);
    for (const auto &entry : threads_) {
      names_[entry.first] = TaskName(database_.db(), state, entry.first);
    }
    kq_DeleteState(state);
  }

  void Print(bool json) const;

 private:
  bool Runs(const TaskStatus &status) const {
    return status.known && kq_IsPrimaryValue(database_.db(), KQ_TYPE_TASK, 0, &status.value) != 0;
  }

  void Start(uint32_t id, const TaskStatus &status, uint64_t time) override {
    Thread &thread = threads_[id];
    if (Runs(status)) {
      thread.running = true;
      thread.since = time;
    }
  }

  void Event(const kq_CursorEvent &event) override {
    events_++;
    if (event.type < 256 && event.subtype < 256) {
      smallTypes_[event.type << 8 | event.subtype]++;
    } else {
      eventTypes_[static_cast<uint32_t>(event.type) << 16 | event.subtype]++;
    }
    if (event.type == kKernelCall && event.hasOwner) threads_[event.ownerId].services[event.subtype]++;
  }

  void Change(uint32_t id, const TaskStatus &, const TaskStatus &after, uint64_t time) override {
    Thread &thread = threads_[id];
    const bool runs = Runs(after);
    if (runs && !thread.running) {
      thread.running = true;
      thread.since = time;
      thread.switchedIn++;
    } else if (!runs && thread.running) {
      Stop(&thread, time);
    }
  }

  static void Stop(Thread *thread, uint64_t time) {
    const uint64_t run = time - thread->since;
    thread->runningTicks += run;
    thread->longestRun = std::max(thread->longestRun, run);
    thread->running = false;
  }

  /* Counts per event type, rising by type and subtype. */
  std::vector<std::pair<uint32_t, uint64_t>> TypeCounts() const {
    std::vector<std::pair<uint32_t, uint64_t>> types(eventTypes_.begin(), eventTypes_.end());
    for (uint32_t small = 0; small < smallTypes_.size(); small++) {
      if (smallTypes_[small] != 0) types.emplace_back((small >> 8) << 16 | (small & 0xFF), smallTypes_[small]);
    }
    std::sort(types.begin(), types.end());
    return types;
  }

  const Database &database_;
  StatusWalk walk_;
  uint64_t events_ = 0;
  std::unordered_map<uint32_t, Thread> threads_;  // by id; printed in rising order
  std::map<uint32_t, std::string> names_;
  std::vector<uint64_t> smallTypes_ = std::vector<uint64_t>(1 << 16);  // type < 256, subtype < 256
  std::unordered_map<uint32_t, uint64_t> eventTypes_;                  // the others: type << 16 | subtype
};

std::string ServiceName(kq_DB *db, uint16_t subtype) {
  const char *name = kq_GetServiceName(db, subtype);
  return name != nullptr ? name : "service " + std::to_string(subtype);
}

void Stats::Print(bool json) const {
  kq_DB *db = database_.db();
  const uint64_t perSecond = database_.ticksPerSecond();
  const Range &range = walk_.range();
  const uint64_t span = range.to > range.from ? range.to - range.from : 0;
  if (json) {
    printf("{\"record\":\"range\",\"from\":%" PRIu64 ",\"to\":%" PRIu64 ",\"events\":%" PRIu64 "}\n",
           range.from, range.to, events_);
  } else {
    printf("Range: %" PRIu64 " .. %" PRIu64 " ticks (%s .. %s s), %" PRIu64 " events\n\n",
           range.from, range.to, Seconds(range.from, perSecond).c_str(),
           Seconds(range.to, perSecond).c_str(), events_);
    printf("%-10s  %-31s %13s %8s %11s %12s\n", "Thread", "Name", "Running ticks", "Share",
           "Switched in", "Longest run");
  }
  std::vector<uint32_t> ids;
  for (const auto &entry : threads_) ids.push_back(entry.first);
  std::sort(ids.begin(), ids.end());
  for (const uint32_t id : ids) {
    const Thread &thread = threads_.at(id);
    const double share = span != 0 ? static_cast<double>(thread.runningTicks) / span : 0.0;
    const std::string &name = names_.at(id);
    if (json) {
      std::string services;
      for (const auto &[subtype, calls] : thread.services) {
        services += (services.empty() ? "" : ",") + JsonString(ServiceName(db, subtype)) + ":" +
                    std::to_string(calls);
      }
      printf("{\"record\":\"thread\",\"id\":%" PRIu32 ",\"name\":%s,\"running_ticks\":%" PRIu64
             ",\"share\":%.6f,\"switched_in\":%" PRIu64 ",\"longest_run\":%" PRIu64
             ",\"service_calls\":{%s}}\n",
             id, JsonString(name).c_str(), thread.runningTicks, share, thread.switchedIn,
             thread.longestRun, services.c_str());
    } else {
      printf("0x%08" PRIx32 "  %-31s %13" PRIu64 " %7.2f%% %11" PRIu64 " %12" PRIu64 "\n", id,
             name.empty() ? "-" : name.c_str(), thread.runningTicks, 100 * share, thread.switchedIn,
             thread.longestRun);
    }
  }
  if (!json) {
    printf("\nService calls\n");
    for (const uint32_t id : ids) {
      const Thread &thread = threads_.at(id);
      if (thread.services.empty()) continue;
      const std::string &name = names_.at(id);
      printf("0x%08" PRIx32 "  %s:", id, name.empty() ? "-" : name.c_str());
      const char *separator = " ";
      for (const auto &[subtype, calls] : thread.services) {
        printf("%s%s %" PRIu64, separator, ServiceName(db, subtype).c_str(), calls);
        separator = ", ";
      }
      printf("\n");
    }
    printf("\nEvents by type\n%10s  %-9s %s\n", "Count", "Type:Sub", "Name");
  }
  for (const auto &[word, count] : TypeCounts()) {
    const auto type = static_cast<uint16_t>(word >> 16);
    const auto subtype = static_cast<uint16_t>(word & 0xFFFF);
    const std::string name = EventName(db, type, subtype);
    if (json) {
      printf("{\"record\":\"event_type\",\"type\":%u,\"subtype\":%u,\"name\":%s,\"count\":%" PRIu64
             "}\n",
             type, subtype, JsonString(name).c_str(), count);
    } else {
      printf("%10" PRIu64 "  0x%02x:%02x   %s\n", count, type, subtype, name.c_str());
    }
  }
}

}  // namespace

void RunStats(const Options &options) {
  const Database database(options.database);
  Stats stats(database, RangeOf(options, database));
  stats.Run();
  stats.Print(options.json);
}

}  // namespace kqv
