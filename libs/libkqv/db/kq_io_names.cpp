/*
 * kq_io_names.cpp - the names of events, in a long form for reading and a
 * short form without spaces.  Both are lookups in constant tables; no text
 * is stored in the database.  A kernel call (type 3) is named by its
 * subtype from the kernel call table: the services of the small real-time
 * kernel whose logs kq_SaveStateChange_Vorhaven tracks (kq_io_vorhaven.cpp).
 *
 * The kernel call table has one row per service.  A row's long form is the
 * prefix "Kernel Call: " and its short form; the short form is the same
 * text without the prefix.  The clock services 44 and 45 have a long form
 * only, and fall back to "UNKOWNKERNCALL" in the short form.
 */
#include <array>
#include <cstddef>
#include <cstring>

#include "kq_io.h"

namespace {

/* ---- Event types ---------------------------------------------------------- */

struct EventTypeName {
  uint16_t type;
  const char *longName;
  const char *shortName;
};

constexpr uint16_t kKernelCall = 3;

constexpr std::array<EventTypeName, 6> kEventTypes = {{
    {1, "TaskChange", "TaskChange"},
    {2, "Interrupt", "Interrupt"},
    {4, "User Event", "UserEvent"},
    {5, "Status Change", "StatusChange"},
    {6, "Refresh", "Refresh"},
    {7, "Timer", "Timer"},
}};

constexpr const char *kUnknownEventLong = "UNKNOWN EVENT";
constexpr const char *kUnknownEventShort = "UNKNOWNEVENT";

/* ---- Kernel calls ------------------------------------------------------------ */

#define KQ_KERNEL_CALL_PREFIX "Kernel Call: "
constexpr size_t kPrefixLength = sizeof KQ_KERNEL_CALL_PREFIX - 1;
static_assert(kPrefixLength == 13, "the long form is the short form behind 13 characters");

constexpr const char *kUnknownCallLong = "UNKNOWN KERNEL CALL";
constexpr const char *kUnknownCallShort = "UNKOWNKERNCALL";  // spelled so on purpose: callers match it

struct KernelCall {
  const char *longName;  // KQ_KERNEL_CALL_PREFIX + the short form
  bool hasShortForm;
};

/* One row, long and short form from a single text. */
#define KQ_CALL(name) {KQ_KERNEL_CALL_PREFIX name, true}
/* A row with a long form only. */
#define KQ_CALL_LONG_ONLY(name) {KQ_KERNEL_CALL_PREFIX name, false}

/* Subtypes 0 to 45, by subtype. */
constexpr std::array<KernelCall, 46> kKernelCalls = {{
    /* tasks */
    KQ_CALL("SpawnTask"),          // 0
    KQ_CALL("RetireTask"),         // 1
    KQ_CALL("HoldTask"),           // 2
    KQ_CALL("ReleaseHeldTask"),    // 3
    KQ_CALL("YieldSlice"),         // 4
    KQ_CALL("NapTicks"),           // 5
    KQ_CALL("WakeNappingTask"),    // 6
    KQ_CALL("SetTaskRank"),        // 7
    KQ_CALL("QueryTaskRank"),      // 8
    KQ_CALL("QueryOwnTaskId"),     // 9
    /* counting semaphores */
    KQ_CALL("MakeSemaphore"),      // 10
    KQ_CALL("DropSemaphore"),      // 11
    KQ_CALL("AwaitSemaphore"),     // 12
    KQ_CALL("TryAwaitSemaphore"),  // 13
    KQ_CALL("PostSemaphore"),      // 14
    KQ_CALL("QuerySemaphore"),     // 15
    /* mailboxes */
    KQ_CALL("MakeMailbox"),        // 16
    KQ_CALL("DropMailbox"),        // 17
    KQ_CALL("DepositMail"),        // 18
    KQ_CALL("CollectMail"),        // 19
    KQ_CALL("TryCollectMail"),     // 20
    KQ_CALL("PeekMailbox"),        // 21
    /* message queues */
    KQ_CALL("MakeMsgQueue"),       // 22
    KQ_CALL("DropMsgQueue"),       // 23
    KQ_CALL("EnqueueMsg"),         // 24
    KQ_CALL("EnqueueUrgentMsg"),   // 25
    KQ_CALL("DequeueMsg"),         // 26
    KQ_CALL("TryDequeueMsg"),      // 27
    KQ_CALL("FlushMsgQueue"),      // 28
    /* event flag groups */
    KQ_CALL("MakeFlagGroup"),      // 29
    KQ_CALL("DropFlagGroup"),      // 30
    KQ_CALL("RaiseFlags"),         // 31
    KQ_CALL("LowerFlags"),         // 32
    KQ_CALL("AwaitFlags"),         // 33
    KQ_CALL("QueryFlags"),         // 34
    /* timers */
    KQ_CALL("ArmAlarm"),           // 35
    KQ_CALL("DisarmAlarm"),        // 36
    KQ_CALL("RearmAlarm"),         // 37
    KQ_CALL("QueryAlarm"),         // 38
    /* fixed-block memory pools */
    KQ_CALL("MakeBlockPool"),      // 39
    KQ_CALL("DropBlockPool"),      // 40
    KQ_CALL("TakePoolBlock"),      // 41
    KQ_CALL("GivePoolBlock"),      // 42
    KQ_CALL("QueryBlockPool"),     // 43
    /* the system clock, named in the long form only */
    KQ_CALL_LONG_ONLY("ReadSystemClock"),  // 44
    KQ_CALL_LONG_ONLY("SetSystemClock"),   // 45
}};

/* The one row outside 0 to 45: the kernel's exit from an interrupt. */
constexpr uint16_t kLeaveInterruptSubtype = 132;
constexpr KernelCall kLeaveInterrupt = KQ_CALL("LeaveInterrupt");

#undef KQ_CALL
#undef KQ_CALL_LONG_ONLY

/* The row of a kernel call's subtype, or null. */
const KernelCall *FindKernelCall(uint16_t subtype) {
  if (subtype < kKernelCalls.size()) return &kKernelCalls[subtype];
  if (subtype == kLeaveInterruptSubtype) return &kLeaveInterrupt;
  return nullptr;
}

const char *KernelCallName(uint16_t subtype, bool shortForm) {
  const KernelCall *call = FindKernelCall(subtype);
  if (!shortForm) return call != nullptr ? call->longName : kUnknownCallLong;
  if (call == nullptr || !call->hasShortForm) return kUnknownCallShort;
  return call->longName + kPrefixLength;
}

const char *EventName(const kq_Event *event, bool shortForm) {
  if (event == nullptr) return shortForm ? kUnknownEventShort : kUnknownEventLong;
  if (event->type == kKernelCall) return KernelCallName(event->subtype, shortForm);
  for (const EventTypeName &row : kEventTypes) {
    if (row.type == event->type) return shortForm ? row.shortName : row.longName;
  }
  return shortForm ? kUnknownEventShort : kUnknownEventLong;
}

}  // namespace

extern "C" const char *kq_GetNameOfEvent(kq_DB *db, const kq_Event *event) {
  return EventName(event, false);
}

extern "C" const char *kq_GetSimpleNameOfEvent(kq_DB *db, const kq_Event *event) {
  return EventName(event, true);
}
