/*
 * ravelog_listing.cpp - the diagnostic listing of -d: the headings and lines
 * of the thread list and events sections, and the tables that name ThreadX
 * services and thread states.  The header section of a version 2 log is
 * printed by its decoder.  Nothing here tests `debug` or changes any state.
 */
#include "ravelog.h"

#include "kq_byteorder.h"

/* ---- Tables --------------------------------------------------------------- */

/* Indexed by the subtype of a type 5 event, as the log numbers it. */
const char *const threadStatus[CV_THREAD_STATUS_COUNT] = {
    "TX_READY",          /* 0x00 */
    "TX_COMPLETED",      /* 0x01 */
    "TX_TERMINATED",     /* 0x02 */
    "RUNNING",           /* 0x03 */
    "TX_SLEEP",          /* 0x04 */
    "TX_QUEUE_SUSP",     /* 0x05 */
    "TX_SEMAPHORE_SUSP", /* 0x06 */
    "TX_EVENT_FLAG",     /* 0x07 */
    "TX_BLOCK_MEMORY",   /* 0x08 */
    "TX_BYTE_MEMORY",    /* 0x09 */
    "UNKNOWN",           /* 0x0a */
    "TX_SUSPENDED",      /* 0x0b */
    "TX_TCP_IP",         /* 0x0c */
    "TX_MUTEX_SUSP",     /* 0x0d */
};

/* Indexed by the subtype of a type 3 event. */
const char *const threadServiceCall[CV_SERVICE_CALL_COUNT] = {
    "tx_byte_allocate",            /* 0x00 */
    "tx_byte_pool_create",         /* 0x01 */
    "tx_byte_pool_delete",         /* 0x02 */
    "tx_byte_pool_release",        /* 0x03 */
    "tx_block_allocate",           /* 0x04 */
    "tx_block_pool_create",        /* 0x05 */
    "tx_block_pool_delete",        /* 0x06 */
    "tx_block_release",            /* 0x07 */
    "tx_event_flags_create",       /* 0x08 */
    "tx_event_flags_delete",       /* 0x09 */
    "tx_event_flags_get",          /* 0x0a */
    "tx_event_flags_set",          /* 0x0b */
    "tx_interrupt_control",        /* 0x0c */
    "tx_queue_create",             /* 0x0d */
    "tx_queue_delete",             /* 0x0e */
    "tx_queue_flush",              /* 0x0f */
    "tx_queue_receive",            /* 0x10 */
    "tx_queue_send",               /* 0x11 */
    "tx_semaphore_create",         /* 0x12 */
    "tx_semaphore_delete",         /* 0x13 */
    "tx_semaphore_get",            /* 0x14 */
    "tx_semaphore_put",            /* 0x15 */
    "tx_thread_create",            /* 0x16 */
    "tx_thread_delete",            /* 0x17 */
    "tx_thread_identify",          /* 0x18 */
    "tx_thread_preemption_change", /* 0x19 */
    "tx_thread_priority_change",   /* 0x1a */
    "tx_thread_relinquish",        /* 0x1b */
    "tx_thread_resume",            /* 0x1c */
    "tx_thread_sleep",             /* 0x1d */
    "tx_thread_suspend",           /* 0x1e */
    "tx_thread_terminate",         /* 0x1f */
    "tx_thread_time_slice_change", /* 0x20 */
    "tx_time_get",                 /* 0x21 */
    "tx_time_set",                 /* 0x22 */
    "tx_timer_activate",           /* 0x23 */
    "tx_timer_change",             /* 0x24 */
    "tx_timer_create",             /* 0x25 */
    "tx_timer_deactivate",         /* 0x26 */
    "tx_timer_delete",             /* 0x27 */
    "tx_block_pool_info_get",      /* 0x28 */
    "tx_block_pool_prioritize",    /* 0x29 */
    "tx_byte_pool_info_get",       /* 0x2a */
    "tx_byte_pool_prioritize",     /* 0x2b */
    "tx_event_flags_info_get",     /* 0x2c */
    "tx_mutex_create",             /* 0x2d */
    "tx_mutex_delete",             /* 0x2e */
    "tx_mutex_get",                /* 0x2f */
    "tx_mutex_info_get",           /* 0x30 */
    "tx_mutex_prioritize",         /* 0x31 */
    "tx_mutex_put",                /* 0x32 */
    "tx_queue_info_get",           /* 0x33 */
    "tx_queue_front_send",         /* 0x34 */
    "tx_queue_prioritize",         /* 0x35 */
    "tx_semaphore_info_get",       /* 0x36 */
    "tx_semaphore_prioritize",     /* 0x37 */
    "tx_thread_info_get",          /* 0x38 */
    "tx_thread_wait_abort",        /* 0x39 */
    "tx_timer_info_get",           /* 0x3a */
};

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
  case 1:
    snprintf(buf, size, "0x%8.8x context switch to thread", value);
    break;
  case 2:
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
  case 3:
    if (subtype < CV_SERVICE_CALL_COUNT)
      snprintf(buf, size, "0x%8.8x %s", value, threadServiceCall[subtype]);
    else
      snprintf(buf, size, "0x%8.8x UNKNOWN SERVICE CALL", value);
    break;
  case 4:
    snprintf(buf, size, "0x%8.8x user event", value);
    break;
  case 5:
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
