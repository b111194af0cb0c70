/*
 * kqv_stats.cpp - kqv stats: one pass of the cursor over a range, counting
 * per thread the ticks it ran (its status is the primary value, RUNNING),
 * how often it was switched in, its longest run and its service calls, and
 * per event type how many events there were.
 *
 * The state at the start of the range comes from a cursor that keeps the
 * state; the pass itself runs a cursor without one and follows only what
 * the figures need, the first three bytes of each Task's value (status and
 * its known flag), applying each change to them by the rules of the state
 * model (a New of an existing object, a Mod that doesn't fit and a Del of
 * nothing change nothing).  So the figures follow the tracker's own record
 * at the speed of reading.  A thread that runs when the range starts runs
 * from its start, and one that still runs at its end stops there; without
 * --to the range ends one tick behind the last event.  Memory holds one
 * record per thread and per event type, whatever the number of events.
 */
#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <map>
#include <unordered_map>

#include "kq_names.h"
#include "kq_state.h"
#include "kqv.h"

namespace kqv {

namespace {

constexpr uint16_t kKernelCall = 3;

/* What a pass follows of a Task: whether it exists, its value's length and
 * first bytes. */
struct TaskHead {
  bool exists = false;
  uint32_t length = 0;
  uint8_t bytes[KQ_TASK_STATUS_KNOWN + 1] = {};
};

/* One thread's figures, and the head of its Task. */
struct Thread {
  TaskHead task;
  uint64_t runningTicks = 0;
  uint64_t switchedIn = 0;
  uint64_t longestRun = 0;
  bool running = false;
  uint64_t since = 0;                     // start of the current run
  std::map<uint16_t, uint64_t> services;  // subtype -> calls
};

class Stats {
 public:
  Stats(const Database &database, Range range) : database_(database), range_(range) {}

  void Run() {
    Cursor cursor(database_, false);
    cursor.SeekNumber(StartAt());
    uint64_t last = range_.from;
    for (const kq_CursorEvent *event = cursor.Next(); event != nullptr && event->time < range_.to;
         event = cursor.Next()) {
      Count(*event);
      last = event->time + 1;
    }
    if (!range_.bounded) range_.to = std::max(last, range_.from);
    for (auto &entry : threads_) {
      if (entry.second.running) Stop(&entry.second, range_.to);
    }
    Name(range_.to);
  }

  void Print(bool json) const;

 private:
  /* Takes the Tasks of the state at the range's start and returns the
   * number of the first event in it. */
  uint64_t StartAt() {
    Cursor start(database_, true);
    start.SeekTime(range_.from);
    HT_ForEach(
        start.state()->table,
        [](void *key, void *, void *self) {
          auto *stats = static_cast<Stats *>(self);
          const auto *object = static_cast<const kq_StateObject *>(key);
          if (object->type != KQ_TYPE_TASK) return 1;
          Thread &thread = stats->threads_[object->id];
          thread.task.exists = true;
          thread.task.length = object->length;
          memcpy(thread.task.bytes, object->value,
                 std::min<size_t>(object->length, sizeof thread.task.bytes));
          if (stats->Runs(thread.task)) {
            thread.running = true;
            thread.since = stats->range_.from;
          }
          return 1;
        },
        this);
    return kq_CursorNumber(start.cursor());
  }

  /* Names from the state at `time`. */
  void Name(uint64_t time) {
    kq_State *state = nullptr;
    kq_GetStateAndIterFromTime(database_.db(), time, nullptr, &state);
    for (const auto &entry : threads_) {
      names_[entry.first] = TaskName(database_.db(), state, entry.first);
    }
    kq_DeleteState(state);
  }

  bool Runs(const TaskHead &head) const {
    if (!head.exists || head.length <= KQ_TASK_STATUS_KNOWN || head.bytes[KQ_TASK_STATUS_KNOWN] == 0) return false;
    const uint16_t status = static_cast<uint16_t>(head.bytes[0] << 8 | head.bytes[1]);
    return kq_IsPrimaryValue(database_.db(), KQ_TYPE_TASK, 0, &status) != 0;
  }

  /* Applies one change to the head of its Task. */
  static void Apply(const kq_ChangeView &change, TaskHead *head) {
    switch (change.kind) {
      case 0:  // New: only of an object that isn't there
        if (head->exists) return;
        *head = TaskHead{true, change.offsetOrLength, {}};
        memcpy(head->bytes, change.bytes, std::min<size_t>(change.offsetOrLength, sizeof head->bytes));
        return;
      case 1:  // Mod: only when it fits the value
        if (!head->exists ||
            static_cast<uint32_t>(change.offsetOrLength) + change.modLength > head->length) {
          return;
        }
        for (uint32_t i = 0; i < change.modLength; i++) {
          const uint32_t at = change.offsetOrLength + i;
          if (at < sizeof head->bytes) head->bytes[at] = change.bytes[i];
        }
        return;
      default:
        head->exists = false;
        return;
    }
  }

  static void Stop(Thread *thread, uint64_t time) {
    const uint64_t run = time - thread->since;
    thread->runningTicks += run;
    thread->longestRun = std::max(thread->longestRun, run);
    thread->running = false;
  }

  void CountType(uint16_t type, uint16_t subtype) {
    if (type < 256 && subtype < 256) {
      smallTypes_[type << 8 | subtype]++;
    } else {
      eventTypes_[static_cast<uint32_t>(type) << 16 | subtype]++;
    }
  }

  void Count(const kq_CursorEvent &event) {
    events_++;
    CountType(event.type, event.subtype);
    if (event.type == kKernelCall && event.hasOwner) threads_[event.ownerId].services[event.subtype]++;
    /* A status counts as it stands after the whole event: a thread that a
     * sweep makes ready and the same event makes run again ran on. */
    touched_.clear();
    kq_ChangeIter it;
    kq_CursorChanges(&event, &it);
    kq_ChangeView change;
    while (kq_NextChange(&it, &change)) {
      if (change.type != KQ_TYPE_TASK) continue;
      Thread &thread = threads_[change.id];
      Apply(change, &thread.task);
      if (std::find(touched_.begin(), touched_.end(), &thread) == touched_.end()) {
        touched_.push_back(&thread);
      }
    }
    for (Thread *touched : touched_) {
      Thread &thread = *touched;
      const bool runs = Runs(thread.task);
      if (runs && !thread.running) {
        thread.running = true;
        thread.since = event.time;
        thread.switchedIn++;
      } else if (!runs && thread.running) {
        Stop(&thread, event.time);
      }
    }
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
  Range range_;
  uint64_t events_ = 0;
  std::unordered_map<uint32_t, Thread> threads_;  // by id; printed in rising order
  std::vector<Thread *> touched_;                 // threads the current event changed
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
