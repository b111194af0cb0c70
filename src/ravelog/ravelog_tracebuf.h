/*
 * ravelog_tracebuf.h - the conversion of the kernel's own trace buffer,
 * inside the dump conversion: the buffer's layout, the one table that maps
 * its event ids onto the database's types, the making of records from its
 * entries, and the lines of its -d listing.  C++ and internal: only the
 * ravelog_tracebuf*.cpp files and their tests include it; the entry point
 * cv_ParseTraceBuffer is declared in ravelog.h.
 *
 * The buffer, as the kernel lays it out in target memory (all numbers in
 * the target's byte order, all pointers target addresses):
 *   header    48 bytes at the trace base address:
 *               0 id 0x54585442        4 timer valid mask
 *               8 trace base address  12 registry start pointer
 *              16 reserved (16 bits)  18 object name size (16 bits)
 *              20 registry end        24 entries start
 *              28 entries end         32 current entry (the oldest one)
 *              36, 40, 44 reserved
 *   registry  entries of 16 bytes and the name, padded to whole words:
 *               0 available (1: free)  1 object type (1: thread)
 *               2, 3 the priority at registration, for a thread
 *               4 object pointer  8 parameter 1  12 parameter 2  16 name
 *   entries   a ring of 32-byte entries:
 *               0 thread pointer (0: never used, 0xFFFFFFFF: made in an
 *                 interrupt, 0xF0F0F0F0: made during initialisation)
 *               4 priority field: for a thread 0x80000000 | threshold << 16
 *                 | priority; in an interrupt the interrupted thread
 *               8 event id (0xFFFFFFFF: invalid)  12 time stamp
 *              16, 20, 24, 28 information fields 1 to 4
 */
#ifndef RAVELOG_RAVELOG_TRACEBUF_H
#define RAVELOG_RAVELOG_TRACEBUF_H

#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

namespace ravelog::tracebuf {

/* ---- Layout ------------------------------------------------------------------- */

constexpr uint32_t kHeaderSize = 48;
constexpr uint32_t kRegistryFixedSize = 16; /* a registry entry before its name */
constexpr uint32_t kEntrySize = 32;
constexpr uint32_t kNeverUsed = 0;              /* thread pointer of an unused entry */
constexpr uint32_t kInInterrupt = 0xFFFFFFFFu;  /* thread pointer of an interrupt's entry */
constexpr uint32_t kInInitialisation = 0xF0F0F0F0u;
constexpr uint32_t kInvalidEvent = 0xFFFFFFFFu;
constexpr uint32_t kThreadPriorityFlag = 0x80000000u;
constexpr uint8_t kObjectThread = 1;

/* The header's words, in host order. */
struct Header {
  uint32_t id, timerMask, base, registryStart;
  uint16_t reserved, nameSize;
  uint32_t registryEnd, entriesStart, entriesEnd, current;
};

/* One entry of the ring, in host order, with its offset in the file; an
 * entry that the walk leaves out says why (and may hold nothing else). */
struct Entry {
  uint32_t offset = 0;
  const char *ignored = nullptr;
  uint32_t thread = 0, priority = 0, eventId = 0, time = 0;
  uint32_t info[4] = {};
};

/* The thread that runs when the entry is made: its own thread pointer, the
 * interrupted thread for an interrupt's entry, 0 when none (during
 * initialisation, or an interrupt while no thread ran). */
uint32_t RunningThreadOf(const Entry &entry);

/* ---- The event table (ravelog_tracebuf_events.cpp) ------------------------------ */

/* What word 0 of an event's record holds. */
enum class Subject : uint8_t {
  kRunningThread, /* the thread that runs */
  kThreadInInfo1, /* the thread that information field 1 names */
  kVectorInInfo2, /* the interrupt number in information field 2 */
};

/* How a status change (type 5) finds its status. */
enum class StatusRule : uint8_t {
  kNone,          /* not a status change */
  kResumed,       /* the thread is ready again (running, if it is the one that runs) */
  kStateInInfo2,  /* the thread suspends in the kernel state of information field 2 */
};

struct EventRow {
  uint32_t id;       /* the kernel's trace event id */
  uint16_t type;     /* the database's event type */
  uint16_t subtype;  /* its subtype (for type 3 an index of kq_GetServiceName's names) */
  Subject subject;
  StatusRule status;
  const char *name;  /* the event's name: for type 3 the service's name */
};

/* The row of an event id.  An id the table lacks (user events from 4096 on,
 * other components' events) gets a type 4 row of its own whose subtype is
 * the id (65535 for ids above that). */
EventRow RowOfEvent(uint32_t id);

/* The table itself, for its tests. */
const EventRow *EventTable(uint32_t *count);

/* ---- Records (ravelog_tracebuf_events.cpp) ----------------------------------------- */

using Priorities = std::unordered_map<uint32_t, uint32_t>; /* thread -> priority */

/* The priority each thread's first entry shows, in walk order (entries
 * left out don't count). */
Priorities FirstPriorities(const std::vector<Entry> &entries);

/* Turns entries, handed over in walk order with their times (and the entry
 * after each, or null), into the database's records through
 * cv_database.addEvent.  Keeps the running thread: when an entry's running
 * thread differs from the one before, a context switch to it comes first
 * (none when no thread runs), so that the database's tracker runs the
 * threads the kernel ran.  A resume or suspend entry names the thread the
 * kernel runs next; when the entry after shows that thread running, its
 * context switch goes in behind the status change instead.  A thread's
 * priority is the one its latest entry showed, before its first the one
 * `first` gives (0 if none). */
class RecordMaker {
 public:
  RecordMaker(uint8_t bigEndian, Priorities first) : bigEndian_(bigEndian), priorities_(std::move(first)) {}
  void Add(const Entry &entry, uint64_t time, const Entry *next);

 private:
  void NotePriority(const Entry &entry);
  uint32_t PriorityOf(uint32_t thread) const;
  void Emit(uint64_t time, uint16_t type, uint16_t subtype, const uint32_t *words, int count);
  void SwitchTo(uint32_t thread, uint64_t time);
  void AddStatusChange(const EventRow &row, const Entry &entry, uint64_t time, const Entry *next);
  void AddPlain(const EventRow &row, const Entry &entry, uint64_t time);

  uint8_t bigEndian_;
  uint32_t running_ = 0;
  Priorities priorities_;
};

/* The priority an entry shows for its own thread, or -1 when it shows none. */
int64_t OwnPriorityOf(const Entry &entry);

/* ---- Listing (ravelog_tracebuf_listing.cpp) --------------------------------------- */

void PrintHeader(const Header &header, uint8_t bigEndian, int32_t ticksPerSecond);
void PrintRegistryHeading();
void PrintRegistryEntry(const unsigned char *entry, uint32_t nameSize, uint8_t bigEndian);
void PrintEntriesHeading();
void PrintEntry(const Entry &entry);
void PrintIgnoredEntry(const Entry &entry);
/* One record's line, in the form of the other formats' event lines. */
void PrintRecord(uint16_t type, uint16_t subtype, uint64_t time, const unsigned char *payload,
                 int length, uint8_t bigEndian);

}  // namespace ravelog::tracebuf

#endif /* RAVELOG_RAVELOG_TRACEBUF_H */
