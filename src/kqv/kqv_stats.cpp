/*
 * kqv_stats.cpp - kqv stats: one pass of the cursor over a range, with the
 * state kept, counting per thread the ticks it ran (its status is the
 * primary value, RUNNING), how often it was switched in, its longest run and
 * its service calls, and per event type how many events there were.
 *
 * A thread's status is read from the kept state after each event that
 * changed it, so the figures follow the tracker's own record; a thread that
 * runs when the range starts runs from its start, and one that still runs
 * at its end stops there.  Without --to the range ends one tick behind the
 * last event.  Memory holds one record per thread and per event
 * type, whatever the number of events.
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
  uint64_t since = 0;                       // start of the current run
  std::map<uint16_t, uint64_t> services;    // subtype -> calls
};

class Stats {
 public:
  Stats(const Database &database, Range range) : database_(database), range_(range) {}

  void Run() {
    Cursor cursor(database_, true);
    cursor.SeekTime(range_.from);
    state_ = cursor.state();
    StartThreads();
    uint64_t last = range_.from;
    for (const kq_CursorEvent *event = cursor.Next(); event != nullptr && event->time < range_.to;
         event = cursor.Next()) {
      Count(*event);
      last = event->time + 1;
    }
    if (!range_.bounded) range_.to = std::max(last, range_.from);
    for (auto &[id, thread] : threads_) {
      if (thread.running) Stop(&thread, range_.to);
      names_[id] = TaskName(database_.db(), state_, id);
    }
  }

  void Print(bool json) const;

 private:
  /* Whether Task id runs in the kept state. */
  bool Runs(uint32_t id) const {
    const kq_StateObject *task = kq_FindStateObject(state_->table, KQ_TYPE_TASK, id);
    if (task == nullptr || task->length < KQ_TASK_STATUS_KNOWN + 1 ||
        task->value[KQ_TASK_STATUS_KNOWN] == 0) {
      return false;
    }
    const uint16_t status = static_cast<uint16_t>(task->value[0] << 8 | task->value[1]);
    return kq_IsPrimaryValue(database_.db(), KQ_TYPE_TASK, 0, &status) != 0;
  }

  Thread &ThreadOf(uint32_t id) {
    auto found = threads_.find(id);
    if (found == threads_.end()) {
      found = threads_.emplace(id, Thread{}).first;
      names_[id] = TaskName(database_.db(), state_, id);
    }
    return found->second;
  }

  void StartThreads() {
    HT_ForEach(
        state_->table,
        [](void *key, void *, void *self) {
          auto *stats = static_cast<Stats *>(self);
          const auto *object = static_cast<const kq_StateObject *>(key);
          if (object->type != KQ_TYPE_TASK) return 1;
          Thread &thread = stats->ThreadOf(object->id);
          if (stats->Runs(object->id)) {
            thread.running = true;
            thread.since = stats->range_.from;
          }
          return 1;
        },
        this);
  }

  static void Stop(Thread *thread, uint64_t time) {
    const uint64_t run = time - thread->since;
    thread->runningTicks += run;
    thread->longestRun = std::max(thread->longestRun, run);
    thread->running = false;
  }

  void Count(const kq_CursorEvent &event) {
    events_++;
    eventTypes_[static_cast<uint32_t>(event.type) << 16 | event.subtype]++;
    if (event.type == kKernelCall && event.hasOwner) ThreadOf(event.ownerId).services[event.subtype]++;
    kq_ChangeIter it;
    kq_CursorChanges(&event, &it);
    kq_ChangeView change;
    while (kq_NextChange(&it, &change)) {
      if (change.type != KQ_TYPE_TASK) continue;
      Thread &thread = ThreadOf(change.id);
      const bool runs = Runs(change.id);
      if (runs && !thread.running) {
        thread.running = true;
        thread.since = event.time;
        thread.switchedIn++;
      } else if (!runs && thread.running) {
        Stop(&thread, event.time);
      }
    }
  }

  const Database &database_;
  Range range_;
  kq_State *state_ = nullptr;
  uint64_t events_ = 0;
  std::map<uint32_t, Thread> threads_;
  std::map<uint32_t, std::string> names_;
  std::unordered_map<uint32_t, uint64_t> eventTypes_;  // type << 16 | subtype
};

std::string ServiceName(kq_DB *db, uint16_t subtype) {
  const char *name = kq_GetServiceName(db, subtype);
  return name != nullptr ? name : "service " + std::to_string(subtype);
}

void Stats::Print(bool json) const {
  kq_DB *db = database_.db();
  const uint64_t perSecond = database_.ticksPerSecond();
  const uint64_t span = range_.to > range_.from ? range_.to - range_.from : 0;
  if (json) {
    printf("{\"record\":\"range\",\"from\":%" PRIu64 ",\"to\":%" PRIu64 ",\"events\":%" PRIu64 "}\n",
           range_.from, range_.to, events_);
  } else {
    printf("Range: %" PRIu64 " .. %" PRIu64 " ticks (%s .. %s s), %" PRIu64 " events\n\n",
           range_.from, range_.to, Seconds(range_.from, perSecond).c_str(),
           Seconds(range_.to, perSecond).c_str(), events_);
    printf("%-10s  %-31s %13s %8s %11s %12s\n", "Thread", "Name", "Running ticks", "Share",
           "Switched in", "Longest run");
  }
  for (const auto &[id, thread] : threads_) {
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
    for (const auto &[id, thread] : threads_) {
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
  std::vector<std::pair<uint32_t, uint64_t>> types(eventTypes_.begin(), eventTypes_.end());
  std::sort(types.begin(), types.end());
  for (const auto &[word, count] : types) {
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
