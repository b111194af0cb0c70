/*
 * ravelog_listing.cpp - the diagnostic listing of -d: the headings and lines
 * of the thread list and events sections, and the tables that name ThreadX
 * services and thread states.  The header section of a version 2 log is
 * printed by its decoder.  Nothing here tests `debug` or changes any state.
 */
#include "ravelog.h"

#include "kq_byteorder.h"

/* ---- Thread list section ------------------------------------------------- */

extern "C" void debug_PrintTaskHeader(void) {
  printf("Thread List Section\n"
         "valid Next priority Thread ID  Thread name\n"
         "----- ---- -------- ---------- -------------------------------\n");
}

extern "C" void debug_PrintTaskInfo(const cv_ThreadEntry *entry, uint8_t bigEndian) {
  const uint32_t priority = kq_ConvertToHostOrder4(bigEndian, &entry->priority);
  const uint32_t threadId = kq_ConvertToHostOrder4(bigEndian, &entry->threadId);
  /* %.31s reads at most 31 bytes, so a name field without a zero byte is
   * safe. */
  printf("  %1d    %1d     %3d    0x%8.8x %.31s\n", entry->valid, entry->next,
         static_cast<int>(priority), threadId, entry->name);
}

/* ---- Events section ------------------------------------------------------ */

extern "C" void debug_PrintEventsHeader(void) {
  printf("\nEvents Section\n"
         "Thread ID  Event                                 Type:Sub Event time         \n"
         "---------- ------------------------------------- -------- -------------------\n");
}

namespace {

/* Writes the description column of an event line into buf.  For types 1, 3,
 * 4 and 5 the value is a Thread ID and fills the first ten columns; for
 * type 2 and unknown types those columns stay blank. */
void describe_event(char *buf, size_t size, unsigned type, unsigned subtype, uint32_t value) {
  switch (type) {
  case CV_CONTEXT_SWITCH:
    snprintf(buf, size, "0x%8.8x context switch to thread", value);
    break;
  case CV_INTERRUPT:
    switch (subtype) {
    case 0:
      snprintf(buf, size, "           fatal exception 0x%x", value);
      break;
    case 1:
      snprintf(buf, size, "           interrupt vector=0x%x", value);
      break;
    case 3:
      snprintf(buf, size, "           interrupt end, vector=0x%x", value);
      break;
    default:
      snprintf(buf, size, "           interrupt unknown");
      break;
    }
    break;
  case CV_SERVICE_CALL:
    if (subtype < CV_SERVICE_CALL_COUNT)
      snprintf(buf, size, "0x%8.8x %s", value, threadServiceCall[subtype]);
    else
      snprintf(buf, size, "0x%8.8x UNKNOWN SERVICE CALL", value);
    break;
  case CV_USER_EVENT:
    snprintf(buf, size, "0x%8.8x user event", value);
    break;
  case CV_STATUS_CHANGE:
    if (subtype < CV_THREAD_STATUS_COUNT)
      snprintf(buf, size, "0x%8.8x status = %s", value, threadStatus[subtype]);
    else
      snprintf(buf, size, "0x%8.8x status = unknown (0x%x)", value, subtype);
    break;
  default:
    snprintf(buf, size, "           UNKNOWN EVENT extra1 = 0x%x", value);
    break;
  }
}

} // namespace

extern "C" void debug_PrintEventsInfo(unsigned type, unsigned subtype, uint32_t high, uint32_t low,
                                      const void *word, uint8_t bigEndian) {
  type &= 0xFFFFu;
  subtype &= 0xFFFFu;
  char description[96];
  describe_event(description, sizeof description, type, subtype,
                 kq_ConvertToHostOrder4(bigEndian, word));
  printf("%-48s 0x%2.2x:%2.2x  0x%8.8x:%8.8x\n", description, type, subtype, high, low);
}
