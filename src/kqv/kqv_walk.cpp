/*
 * kqv_walk.cpp - the status walk of kqv.h: one pass of the cursor over a
 * range that tells a listener every event and every change of a Task's
 * status, for stats and the exports.
 *
 * The state at the start of the range comes from a cursor that keeps the
 * state; the pass itself runs a cursor without one and follows only the
 * first three bytes of each Task's value (status and its known flag),
 * applying each change to them by the rules of the state model (a New of an
 * existing object, a Mod that doesn't fit and a Del of nothing change
 * nothing).  A status counts as it stands after the whole event, so a
 * thread that a sweep makes ready and the same event makes run again has no
 * change.  Memory holds one record per Task, whatever the number of events.
 */
#include <algorithm>
#include <cstring>
#include <unordered_map>

#include "indgen_progress.h"
#include "kq_state.h"
#include "kqv.h"

namespace kqv {

namespace {

/* What the walk follows of a Task: its value's length and first bytes. */
struct TaskHead {
  bool exists = false;
  uint32_t length = 0;
  uint8_t bytes[KQ_TASK_STATUS_KNOWN + 1] = {};

  TaskStatus Status() const {
    TaskStatus status;
    status.exists = exists;
    /* As the library reads it: a value cut short has no known field. */
    status.known = exists && length >= KQ_TASK_VALUE_SIZE && bytes[KQ_TASK_STATUS_KNOWN] != 0;
    status.value = status.known ? static_cast<uint16_t>(bytes[0] << 8 | bytes[1]) : 0;
    return status;
  }
};

/* Applies one change to the head of its Task. */
void Apply(const kq_ChangeView &change, TaskHead *head) {
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

struct Followed {
  TaskHead head;
  TaskStatus before;  // at the start of the current event
};

}  // namespace

bool operator==(const TaskStatus &a, const TaskStatus &b) {
  return a.exists == b.exists && a.known == b.known && a.value == b.value;
}

StatusWalk::StatusWalk(const Database &database, Range range) : database_(database), range_(range) {}

void StatusWalk::Run(Listener *listener) {
  std::unordered_map<uint32_t, Followed> tasks;
  uint64_t first = 0;
  {
    Cursor start(database_, true);
    start.SeekTime(range_.from);
    struct Gather {
      std::unordered_map<uint32_t, Followed> *tasks;
    } gather{&tasks};
    HT_ForEach(
        start.state()->table,
        [](void *key, void *, void *context) {
          const auto *object = static_cast<const kq_StateObject *>(key);
          if (object->type != KQ_TYPE_TASK) return 1;
          TaskHead &head = (*static_cast<Gather *>(context)->tasks)[object->id].head;
          head.exists = true;
          head.length = object->length;
          memcpy(head.bytes, object->value, std::min<size_t>(object->length, sizeof head.bytes));
          return 1;
        },
        &gather);
    first = kq_CursorNumber(start.cursor());
  }
  /* In rising order of ids, so that what a listener writes doesn't depend
   * on the table's order. */
  std::vector<uint32_t> ids;
  for (const auto &entry : tasks) ids.push_back(entry.first);
  std::sort(ids.begin(), ids.end());
  for (const uint32_t id : ids) listener->Start(id, tasks[id].head.Status(), range_.from);

  Cursor cursor(database_, false);
  cursor.SeekNumber(first);
  gen_progress_t progress;
  gen_progress_begin(&progress, progress_ != nullptr ? progress_ : "",
                     progress_ != nullptr && database_.events() > first ? database_.events() - first : 0);
  uint64_t last = range_.from;
  std::vector<std::pair<uint32_t, Followed *>> touched;
  for (const kq_CursorEvent *event = cursor.Next(); event != nullptr && event->time < range_.to;
       event = cursor.Next()) {
    gen_progress_update(&progress, event->number - first);
    listener->Event(*event);
    last = event->time + 1;
    touched.clear();
    kq_ChangeIter it;
    kq_CursorChanges(event, &it);
    kq_ChangeView change;
    while (kq_NextChange(&it, &change)) {
      if (change.type != KQ_TYPE_TASK) continue;
      Followed &task = tasks[change.id];
      if (std::find_if(touched.begin(), touched.end(),
                       [&](const auto &t) { return t.second == &task; }) == touched.end()) {
        task.before = task.head.Status();
        touched.emplace_back(change.id, &task);
      }
      Apply(change, &task.head);
    }
    for (const auto &[id, task] : touched) {
      const TaskStatus after = task->head.Status();
      if (!(after == task->before)) listener->Change(id, task->before, after, event->time);
    }
  }
  gen_progress_end(&progress);
  if (!range_.bounded) range_.to = std::max(last, range_.from);
}

}  // namespace kqv
