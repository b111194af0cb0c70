/*
 * ravelog_tracebuf_listing.cpp - the -d listing of a trace buffer, in the
 * manner of the other formats' listings: the header section word by word,
 * the object registry, and each entry as it stands in the buffer followed
 * by the records it became, in the lines of the other formats' events
 * section.  Nothing here tests `debug` or changes any state.
 */
#include <iterator>

#include "kq_byteorder.h"
#include "ravelog.h"
#include "ravelog_tracebuf.h"

namespace ravelog::tracebuf {

namespace {

constexpr const char *kObjectTypes[] = {"none",      "thread", "timer",       "queue",     "semaphore",
                                        "mutex",     "event flags", "block pool", "byte pool"};

const char *object_type_name(uint8_t type) {
  return type < std::size(kObjectTypes) ? kObjectTypes[type] : "unknown";
}

/* The names this listing gives where the other formats' lines don't:
 * services, also those behind threadServiceCall, and statuses as the
 * tracker stores them (the log's 3 as TX_SUSPENDED, 10 as RUNNING).  Null
 * for the other types. */
const char *own_name(uint16_t type, uint16_t subtype) {
  static char status[64];
  if (type == 3) {
    const unsigned behind = subtype - KQ_THREADX_SERVICE_COUNT;
    if (subtype < KQ_THREADX_SERVICE_COUNT) return threadServiceCall[subtype];
    return behind < KQ_THREADX_EVENT_COUNT ? threadTraceEvent[behind] : "UNKNOWN SERVICE CALL";
  }
  if (type != 5) return nullptr;
  const unsigned stored = subtype == 3 ? 11 : subtype == 10 ? 3 : subtype;
  if (stored < KQ_THREADX_STATUS_COUNT) {
    snprintf(status, sizeof status, "status = %s", threadStatus[stored]);
  } else {
    snprintf(status, sizeof status, "status = unknown (0x%x)", subtype);
  }
  return status;
}

}  // namespace

void PrintHeader(const Header &h, uint8_t bigEndian, int32_t ticksPerSecond) {
  printf("Trace Buffer Header Section\nOffset     Size     Value\n---------  -------- ---------------\n");
  printf(" 0 (0x00)   4 bytes 0x%8.8x = trace buffer id (%s)\n", h.id,
         bigEndian ? "big-endian" : "little-endian");
  printf(" 4 (0x04)   4 bytes 0x%8.8x = timer valid mask\n", h.timerMask);
  printf(" 8 (0x08)   4 bytes 0x%8.8x = trace base address\n", h.base);
  printf("12 (0x0c)   4 bytes 0x%8.8x = object registry start pointer\n", h.registryStart);
  printf("16 (0x10)   2 bytes 0x%4.4x = reserved\n", h.reserved);
  printf("18 (0x12)   2 bytes %u = object name size (bytes)\n", h.nameSize);
  printf("20 (0x14)   4 bytes 0x%8.8x = object registry end pointer\n", h.registryEnd);
  printf("24 (0x18)   4 bytes 0x%8.8x = trace buffer start pointer\n", h.entriesStart);
  printf("28 (0x1c)   4 bytes 0x%8.8x = trace buffer end pointer\n", h.entriesEnd);
  printf("32 (0x20)   4 bytes 0x%8.8x = current (oldest) entry pointer\n", h.current);
  printf("                    %d = timer frequency (Hz), not in the buffer: "
         "RAVELOG_TICKS_PER_SECOND or the default\n\n", ticksPerSecond);
}

void PrintRegistryHeading() {
  printf("Object Registry Section\n"
         "Free Type        Parameter1 Parameter2 Object ID  Object name\n"
         "---- ----------- ---------- ---------- ---------- -------------------------------\n");
}

void PrintRegistryEntry(const unsigned char *entry, uint32_t nameSize, uint8_t bigEndian) {
  const uint32_t object = kq_ConvertToHostOrder4(bigEndian, entry + 4);
  const uint32_t first = kq_ConvertToHostOrder4(bigEndian, entry + 8);
  const uint32_t second = kq_ConvertToHostOrder4(bigEndian, entry + 12);
  const int shown = static_cast<int>(nameSize < CV_THREAD_RECORD_NAME ? nameSize : CV_THREAD_RECORD_NAME);
  printf("  %1d  %-11s 0x%8.8x 0x%8.8x 0x%8.8x %.*s\n", entry[0], object_type_name(entry[1]), first, second,
         object, shown, reinterpret_cast<const char *>(entry + kRegistryFixedSize));
}

void PrintEntriesHeading() {
  printf("\nTrace Entries Section: each entry, then the events it became\n"
         "Offset     Thread     Priority   Event ID   Time stamp Info 1     Info 2     Info 3     Info 4\n"
         "---------- ---------- ---------- ---------- ---------- ---------- ---------- ---------- ----------\n"
         "Thread ID  Event                                 Type:Sub Event time         \n"
         "---------- ------------------------------------- -------- -------------------\n");
}

void PrintEntry(const Entry &e) {
  printf("0x%8.8x 0x%8.8x 0x%8.8x 0x%8.8x 0x%8.8x 0x%8.8x 0x%8.8x 0x%8.8x 0x%8.8x  %s\n", e.offset, e.thread,
         e.priority, e.eventId, e.time, e.info[0], e.info[1], e.info[2], e.info[3], RowOfEvent(e.eventId).name);
}

void PrintIgnoredEntry(const Entry &entry) {
  printf("0x%8.8x left out: %s\n", entry.offset, entry.ignored);
}

void PrintRecord(uint16_t type, uint16_t subtype, uint64_t time, const unsigned char *payload, int length,
                 uint8_t bigEndian) {
  const auto high = static_cast<uint32_t>(time >> 32);
  const auto low = static_cast<uint32_t>(time);
  const char *name = own_name(type, subtype);
  if (name == nullptr) {
    debug_PrintEventsInfo(type, subtype, high, low, payload, bigEndian);  // types 1, 2, 4: a payload
    return;
  }
  char thread[16] = "          ";  // a service call where no thread runs names none
  if (length >= 4) snprintf(thread, sizeof thread, "0x%8.8x", kq_ConvertToHostOrder4(bigEndian, payload));
  char description[96];
  snprintf(description, sizeof description, "%s %s", thread, name);
  printf("%-48s 0x%2.2x:%2.2x  0x%8.8x:%8.8x\n", description, type, subtype, high, low);
}

}  // namespace ravelog::tracebuf
