/*
 * ravelog_tracebuf_events.cpp - what the trace buffer's entries become in
 * the database: the one table from the kernel's event ids to the database's
 * types, subtypes and names, and the making of each entry's records, with
 * the context switches that keep the database's running thread the
 * kernel's.
 *
 * Records and their payloads (words in the buffer's byte order):
 *   1 context switch  thread, its priority
 *   2 interrupt       interrupt number, information fields 1 to 4
 *                     (subtype 1 on entry, 3 on exit)
 *   3 service call    running thread, information fields 1 to 4; the
 *                     subtype names the service (kq_GetServiceName).  Made
 *                     where no thread runs, it has no payload, so that the
 *                     tracker makes no thread run.
 *   4 user event      running thread (0 when none), information fields 1
 *                     to 4; the subtype is the event id.  Also the events
 *                     of other components, which the table doesn't know.
 *   5 status change   thread, its priority, information fields 1 to 4; the
 *                     subtype is the status in the numbering the tracker
 *                     takes (ravelog_threadx.cpp): the kernel's state,
 *                     with 10 for the thread that runs.
 */
#include <array>
#include <iterator>

#include "ravelog.h"
#include "ravelog_tracebuf.h"

namespace ravelog::tracebuf {

namespace {

constexpr uint16_t kInterruptStart = 1;
constexpr uint16_t kInterruptEnd = 3;
/* Service calls behind threadServiceCall's rows (kq_names.h). */
constexpr uint16_t kMore = KQ_THREADX_SERVICE_COUNT;

/* Statuses as the tracker takes them. */
constexpr uint16_t kReady = 0;
constexpr uint16_t kRunningInLog = 10;
constexpr uint16_t kNoPlace = 0xFFFF;
/* Kernel states that the database's statuses have no place for. */
constexpr uint32_t kIoDriverState = 10;
constexpr uint32_t kFileState = 11;
constexpr uint32_t kPriorityChangeState = 14;

using S = Subject;
using R = StatusRule;

/* The kernel's trace event ids (tx_trace.h), in order. */
constexpr EventRow kEvents[] = {
    {1, CV_STATUS_CHANGE, 0, S::kThreadInInfo1, R::kResumed, "thread resume"},
    {2, CV_STATUS_CHANGE, 0, S::kThreadInInfo1, R::kStateInInfo2, "thread suspend"},
    {3, CV_INTERRUPT, kInterruptStart, S::kVectorInInfo2, R::kNone, "interrupt enter"},
    {4, CV_INTERRUPT, kInterruptEnd, S::kVectorInInfo2, R::kNone, "interrupt exit"},
    {5, CV_SERVICE_CALL, kMore + 0, S::kRunningThread, R::kNone, "time slice"},
    {6, CV_SERVICE_CALL, kMore + 1, S::kRunningThread, R::kNone, "running"},
    {10, CV_SERVICE_CALL, 0x04, S::kRunningThread, R::kNone, "tx_block_allocate"},
    {11, CV_SERVICE_CALL, 0x05, S::kRunningThread, R::kNone, "tx_block_pool_create"},
    {12, CV_SERVICE_CALL, 0x06, S::kRunningThread, R::kNone, "tx_block_pool_delete"},
    {13, CV_SERVICE_CALL, 0x28, S::kRunningThread, R::kNone, "tx_block_pool_info_get"},
    {14, CV_SERVICE_CALL, kMore + 2, S::kRunningThread, R::kNone, "tx_block_pool_performance_info_get"},
    {15, CV_SERVICE_CALL, kMore + 3, S::kRunningThread, R::kNone, "tx_block_pool_performance_system_info_get"},
    {16, CV_SERVICE_CALL, 0x29, S::kRunningThread, R::kNone, "tx_block_pool_prioritize"},
    {17, CV_SERVICE_CALL, 0x07, S::kRunningThread, R::kNone, "tx_block_release"},
    {20, CV_SERVICE_CALL, 0x00, S::kRunningThread, R::kNone, "tx_byte_allocate"},
    {21, CV_SERVICE_CALL, 0x01, S::kRunningThread, R::kNone, "tx_byte_pool_create"},
    {22, CV_SERVICE_CALL, 0x02, S::kRunningThread, R::kNone, "tx_byte_pool_delete"},
    {23, CV_SERVICE_CALL, 0x2a, S::kRunningThread, R::kNone, "tx_byte_pool_info_get"},
    {24, CV_SERVICE_CALL, kMore + 4, S::kRunningThread, R::kNone, "tx_byte_pool_performance_info_get"},
    {25, CV_SERVICE_CALL, kMore + 5, S::kRunningThread, R::kNone, "tx_byte_pool_performance_system_info_get"},
    {26, CV_SERVICE_CALL, 0x2b, S::kRunningThread, R::kNone, "tx_byte_pool_prioritize"},
    {27, CV_SERVICE_CALL, 0x03, S::kRunningThread, R::kNone, "tx_byte_pool_release"},
    {30, CV_SERVICE_CALL, 0x08, S::kRunningThread, R::kNone, "tx_event_flags_create"},
    {31, CV_SERVICE_CALL, 0x09, S::kRunningThread, R::kNone, "tx_event_flags_delete"},
    {32, CV_SERVICE_CALL, 0x0a, S::kRunningThread, R::kNone, "tx_event_flags_get"},
    {33, CV_SERVICE_CALL, 0x2c, S::kRunningThread, R::kNone, "tx_event_flags_info_get"},
    {34, CV_SERVICE_CALL, kMore + 6, S::kRunningThread, R::kNone, "tx_event_flags_performance_info_get"},
    {35, CV_SERVICE_CALL, kMore + 7, S::kRunningThread, R::kNone, "tx_event_flags_performance_system_info_get"},
    {36, CV_SERVICE_CALL, 0x0b, S::kRunningThread, R::kNone, "tx_event_flags_set"},
    {37, CV_SERVICE_CALL, kMore + 8, S::kRunningThread, R::kNone, "tx_event_flags_set_notify"},
    {40, CV_SERVICE_CALL, 0x0c, S::kRunningThread, R::kNone, "tx_interrupt_control"},
    {50, CV_SERVICE_CALL, 0x2d, S::kRunningThread, R::kNone, "tx_mutex_create"},
    {51, CV_SERVICE_CALL, 0x2e, S::kRunningThread, R::kNone, "tx_mutex_delete"},
    {52, CV_SERVICE_CALL, 0x2f, S::kRunningThread, R::kNone, "tx_mutex_get"},
    {53, CV_SERVICE_CALL, 0x30, S::kRunningThread, R::kNone, "tx_mutex_info_get"},
    {54, CV_SERVICE_CALL, kMore + 9, S::kRunningThread, R::kNone, "tx_mutex_performance_info_get"},
    {55, CV_SERVICE_CALL, kMore + 10, S::kRunningThread, R::kNone, "tx_mutex_performance_system_info_get"},
    {56, CV_SERVICE_CALL, 0x31, S::kRunningThread, R::kNone, "tx_mutex_prioritize"},
    {57, CV_SERVICE_CALL, 0x32, S::kRunningThread, R::kNone, "tx_mutex_put"},
    {60, CV_SERVICE_CALL, 0x0d, S::kRunningThread, R::kNone, "tx_queue_create"},
    {61, CV_SERVICE_CALL, 0x0e, S::kRunningThread, R::kNone, "tx_queue_delete"},
    {62, CV_SERVICE_CALL, 0x0f, S::kRunningThread, R::kNone, "tx_queue_flush"},
    {63, CV_SERVICE_CALL, 0x34, S::kRunningThread, R::kNone, "tx_queue_front_send"},
    {64, CV_SERVICE_CALL, 0x33, S::kRunningThread, R::kNone, "tx_queue_info_get"},
    {65, CV_SERVICE_CALL, kMore + 11, S::kRunningThread, R::kNone, "tx_queue_performance_info_get"},
    {66, CV_SERVICE_CALL, kMore + 12, S::kRunningThread, R::kNone, "tx_queue_performance_system_info_get"},
    {67, CV_SERVICE_CALL, 0x35, S::kRunningThread, R::kNone, "tx_queue_prioritize"},
    {68, CV_SERVICE_CALL, 0x10, S::kRunningThread, R::kNone, "tx_queue_receive"},
    {69, CV_SERVICE_CALL, 0x11, S::kRunningThread, R::kNone, "tx_queue_send"},
    {70, CV_SERVICE_CALL, kMore + 13, S::kRunningThread, R::kNone, "tx_queue_send_notify"},
    {80, CV_SERVICE_CALL, kMore + 14, S::kRunningThread, R::kNone, "tx_semaphore_ceiling_put"},
    {81, CV_SERVICE_CALL, 0x12, S::kRunningThread, R::kNone, "tx_semaphore_create"},
    {82, CV_SERVICE_CALL, 0x13, S::kRunningThread, R::kNone, "tx_semaphore_delete"},
    {83, CV_SERVICE_CALL, 0x14, S::kRunningThread, R::kNone, "tx_semaphore_get"},
    {84, CV_SERVICE_CALL, 0x36, S::kRunningThread, R::kNone, "tx_semaphore_info_get"},
    {85, CV_SERVICE_CALL, kMore + 15, S::kRunningThread, R::kNone, "tx_semaphore_performance_info_get"},
    {86, CV_SERVICE_CALL, kMore + 16, S::kRunningThread, R::kNone, "tx_semaphore_performance_system_info_get"},
    {87, CV_SERVICE_CALL, 0x37, S::kRunningThread, R::kNone, "tx_semaphore_prioritize"},
    {88, CV_SERVICE_CALL, 0x15, S::kRunningThread, R::kNone, "tx_semaphore_put"},
    {89, CV_SERVICE_CALL, kMore + 17, S::kRunningThread, R::kNone, "tx_semaphore_put_notify"},
    {100, CV_SERVICE_CALL, 0x16, S::kRunningThread, R::kNone, "tx_thread_create"},
    {101, CV_SERVICE_CALL, 0x17, S::kRunningThread, R::kNone, "tx_thread_delete"},
    {102, CV_SERVICE_CALL, kMore + 18, S::kRunningThread, R::kNone, "tx_thread_entry_exit_notify"},
    {103, CV_SERVICE_CALL, 0x18, S::kRunningThread, R::kNone, "tx_thread_identify"},
    {104, CV_SERVICE_CALL, 0x38, S::kRunningThread, R::kNone, "tx_thread_info_get"},
    {105, CV_SERVICE_CALL, kMore + 19, S::kRunningThread, R::kNone, "tx_thread_performance_info_get"},
    {106, CV_SERVICE_CALL, kMore + 20, S::kRunningThread, R::kNone, "tx_thread_performance_system_info_get"},
    {107, CV_SERVICE_CALL, 0x19, S::kRunningThread, R::kNone, "tx_thread_preemption_change"},
    {108, CV_SERVICE_CALL, 0x1a, S::kRunningThread, R::kNone, "tx_thread_priority_change"},
    {109, CV_SERVICE_CALL, 0x1b, S::kRunningThread, R::kNone, "tx_thread_relinquish"},
    {110, CV_SERVICE_CALL, kMore + 21, S::kRunningThread, R::kNone, "tx_thread_reset"},
    {111, CV_SERVICE_CALL, 0x1c, S::kRunningThread, R::kNone, "tx_thread_resume"},
    {112, CV_SERVICE_CALL, 0x1d, S::kRunningThread, R::kNone, "tx_thread_sleep"},
    {113, CV_SERVICE_CALL, kMore + 22, S::kRunningThread, R::kNone, "tx_thread_stack_error_notify"},
    {114, CV_SERVICE_CALL, 0x1e, S::kRunningThread, R::kNone, "tx_thread_suspend"},
    {115, CV_SERVICE_CALL, 0x1f, S::kRunningThread, R::kNone, "tx_thread_terminate"},
    {116, CV_SERVICE_CALL, 0x20, S::kRunningThread, R::kNone, "tx_thread_time_slice_change"},
    {117, CV_SERVICE_CALL, 0x39, S::kRunningThread, R::kNone, "tx_thread_wait_abort"},
    {120, CV_SERVICE_CALL, 0x21, S::kRunningThread, R::kNone, "tx_time_get"},
    {121, CV_SERVICE_CALL, 0x22, S::kRunningThread, R::kNone, "tx_time_set"},
    {122, CV_SERVICE_CALL, 0x23, S::kRunningThread, R::kNone, "tx_timer_activate"},
    {123, CV_SERVICE_CALL, 0x24, S::kRunningThread, R::kNone, "tx_timer_change"},
    {124, CV_SERVICE_CALL, 0x25, S::kRunningThread, R::kNone, "tx_timer_create"},
    {125, CV_SERVICE_CALL, 0x26, S::kRunningThread, R::kNone, "tx_timer_deactivate"},
    {126, CV_SERVICE_CALL, 0x27, S::kRunningThread, R::kNone, "tx_timer_delete"},
    {127, CV_SERVICE_CALL, 0x3a, S::kRunningThread, R::kNone, "tx_timer_info_get"},
    {128, CV_SERVICE_CALL, kMore + 23, S::kRunningThread, R::kNone, "tx_timer_performance_info_get"},
    {129, CV_SERVICE_CALL, kMore + 24, S::kRunningThread, R::kNone, "tx_timer_performance_system_info_get"},
};

constexpr uint32_t kUserEventStart = 4096;

/* The tracker's status for a thread the kernel puts into `state` as it
 * suspends it.  The kernel's numbers are the tracker's, but for the states
 * the database has no name for; a thread whose priority changes is taken
 * off its list and put back at once, and so stays ready (or running). */
uint16_t SuspendedStatus(uint32_t state, bool runs) {
  if (state == kPriorityChangeState) return runs ? kRunningInLog : kReady;
  if (state == kIoDriverState || state == kFileState || state > kPriorityChangeState) return kNoPlace;
  return static_cast<uint16_t>(state);
}

void PutWord(unsigned char *at, uint32_t value, uint8_t bigEndian) {
  for (int i = 0; i < 4; i++) {
    const int shift = bigEndian ? 24 - 8 * i : 8 * i;
    at[i] = static_cast<unsigned char>(value >> shift);
  }
}

}  // namespace

const EventRow *EventTable(uint32_t *count) {
  *count = static_cast<uint32_t>(std::size(kEvents));
  return kEvents;
}

EventRow RowOfEvent(uint32_t id) {
  /* Rows by id, for the kernel's ids (below 200): each entry looks once. */
  static const std::array<const EventRow *, 200> byId = [] {
    std::array<const EventRow *, 200> rows{};
    for (const EventRow &row : kEvents) rows[row.id] = &row;
    return rows;
  }();
  if (id < byId.size() && byId[id] != nullptr) return *byId[id];
  const auto subtype = static_cast<uint16_t>(id > 0xFFFF ? 0xFFFF : id);
  return {id, CV_USER_EVENT, subtype, S::kRunningThread, R::kNone,
          id >= kUserEventStart ? "user event" : "event of another component"};
}

uint32_t RunningThreadOf(const Entry &entry) {
  if (entry.thread == kInInterrupt) return entry.priority;
  if (entry.thread == kInInitialisation) return 0;
  return entry.thread;
}

int64_t OwnPriorityOf(const Entry &entry) {
  if (entry.thread == kInInterrupt || entry.thread == kInInitialisation) return -1;
  if ((entry.priority & kThreadPriorityFlag) == 0) return -1;
  return entry.priority & 0xFFFF;
}

Priorities FirstPriorities(const std::vector<Entry> &entries) {
  Priorities first;
  for (const Entry &entry : entries) {
    const int64_t priority = entry.ignored == nullptr ? OwnPriorityOf(entry) : -1;
    if (priority >= 0) first.emplace(entry.thread, static_cast<uint32_t>(priority));
  }
  return first;
}

/* ---- RecordMaker ---------------------------------------------------------------- */

void RecordMaker::NotePriority(const Entry &entry) {
  const int64_t priority = OwnPriorityOf(entry);
  if (priority >= 0) priorities_[entry.thread] = static_cast<uint32_t>(priority);
}

uint32_t RecordMaker::PriorityOf(uint32_t thread) const {
  const auto known = priorities_.find(thread);
  return known != priorities_.end() ? known->second : 0;
}

void RecordMaker::Emit(uint64_t time, uint16_t type, uint16_t subtype, const uint32_t *words, int count) {
  unsigned char payload[6 * 4];
  for (int i = 0; i < count; i++) PutWord(payload + 4 * i, words[i], bigEndian_);
  cv_database.addEvent(static_cast<uint32_t>(time >> 32), static_cast<uint32_t>(time),
                       uint32_t{type} << 16 | subtype, payload, 4 * count);
  if (debug) PrintRecord(type, subtype, time, payload, 4 * count, bigEndian_);
}

void RecordMaker::SwitchTo(uint32_t thread, uint64_t time) {
  const uint32_t words[2] = {thread, PriorityOf(thread)};
  Emit(time, CV_CONTEXT_SWITCH, 0, words, 2);
  running_ = thread;
}

void RecordMaker::AddStatusChange(const EventRow &row, const Entry &entry, uint64_t time, const Entry *next) {
  const uint32_t thread = entry.info[0];
  const bool runs = thread == running_;
  const uint16_t status =
      row.status == StatusRule::kResumed ? (runs ? kRunningInLog : kReady) : SuspendedStatus(entry.info[1], runs);
  const uint32_t words[6] = {thread, PriorityOf(thread), entry.info[0], entry.info[1], entry.info[2], entry.info[3]};
  Emit(time, CV_STATUS_CHANGE, status, words, 6);
  /* A thread that suspends itself runs no more: its next entry comes after
   * the kernel has run it again. */
  if (runs && row.status == StatusRule::kStateInInfo2 && status != kRunningInLog) running_ = 0;
  /* Field 4 names the thread the kernel runs next.  When the next entry
   * shows it running, the kernel switched to it here, not there. */
  const uint32_t successor = entry.info[3];
  if (next != nullptr && successor != 0 && successor != running_ && RunningThreadOf(*next) == successor) {
    SwitchTo(successor, time);
  }
}

void RecordMaker::AddPlain(const EventRow &row, const Entry &entry, uint64_t time) {
  const uint32_t subject = row.subject == Subject::kVectorInInfo2   ? entry.info[1]
                           : row.subject == Subject::kThreadInInfo1 ? entry.info[0]
                                                                    : running_;
  const uint32_t words[5] = {subject, entry.info[0], entry.info[1], entry.info[2], entry.info[3]};
  const bool namesNoThread = row.type == CV_SERVICE_CALL && running_ == 0;
  Emit(time, row.type, row.subtype, words, namesNoThread ? 0 : 5);
}

void RecordMaker::Add(const Entry &entry, uint64_t time, const Entry *next) {
  NotePriority(entry);
  const uint32_t running = RunningThreadOf(entry);
  if (running != running_ && running != 0) SwitchTo(running, time);
  running_ = running;
  const EventRow row = RowOfEvent(entry.eventId);
  if (row.status != StatusRule::kNone) {
    AddStatusChange(row, entry, time, next);
  } else {
    AddPlain(row, entry, time);
  }
}

}  // namespace ravelog::tracebuf
