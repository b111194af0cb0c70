/*
 * kq_names.cpp - the ThreadX name tables and the names of statuses and
 * services by the database's kind (kq_names.h).
 */
#include "kq_names.h"

#include <cstring>
#include <strings.h>

/* ---- ThreadX tables ---------------------------------------------------------- */

/* Indexed by the subtype of a type 5 event, as the log numbers it. */
const char *const threadStatus[KQ_THREADX_STATUS_COUNT] = {
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
const char *const threadServiceCall[KQ_THREADX_SERVICE_COUNT] = {
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

/* Behind threadServiceCall, in the order of the kernel's trace event ids. */
const char *const threadTraceEvent[KQ_THREADX_EVENT_COUNT] = {
    "time slice",                                /* 0x3b, trace event 5 */
    "running",                                   /* 0x3c, trace event 6 */
    "tx_block_pool_performance_info_get",        /* 0x3d, trace event 14 */
    "tx_block_pool_performance_system_info_get", /* 0x3e, trace event 15 */
    "tx_byte_pool_performance_info_get",         /* 0x3f, trace event 24 */
    "tx_byte_pool_performance_system_info_get",  /* 0x40, trace event 25 */
    "tx_event_flags_performance_info_get",       /* 0x41, trace event 34 */
    "tx_event_flags_performance_system_info_get", /* 0x42, trace event 35 */
    "tx_event_flags_set_notify",                 /* 0x43, trace event 37 */
    "tx_mutex_performance_info_get",             /* 0x44, trace event 54 */
    "tx_mutex_performance_system_info_get",      /* 0x45, trace event 55 */
    "tx_queue_performance_info_get",             /* 0x46, trace event 65 */
    "tx_queue_performance_system_info_get",      /* 0x47, trace event 66 */
    "tx_queue_send_notify",                      /* 0x48, trace event 70 */
    "tx_semaphore_ceiling_put",                  /* 0x49, trace event 80 */
    "tx_semaphore_performance_info_get",         /* 0x4a, trace event 85 */
    "tx_semaphore_performance_system_info_get",  /* 0x4b, trace event 86 */
    "tx_semaphore_put_notify",                   /* 0x4c, trace event 89 */
    "tx_thread_entry_exit_notify",               /* 0x4d, trace event 102 */
    "tx_thread_performance_info_get",            /* 0x4e, trace event 105 */
    "tx_thread_performance_system_info_get",     /* 0x4f, trace event 106 */
    "tx_thread_reset",                           /* 0x50, trace event 110 */
    "tx_thread_stack_error_notify",              /* 0x51, trace event 113 */
    "tx_timer_performance_info_get",             /* 0x52, trace event 128 */
    "tx_timer_performance_system_info_get",      /* 0x53, trace event 129 */
};

/* ---- By the kind of database ----------------------------------------------------- */

namespace {

constexpr const char *kThreadXConfig = "threadx";
constexpr const char *kKernelCallPrefix = "Kernel Call: ";

}  // namespace

extern "C" int kq_IsThreadX(kq_DB *db) {
  const char *config = kq_GetNameOfConfigFile(db);
  return config != nullptr && strcasecmp(config, kThreadXConfig) == 0 ? 1 : 0;
}

extern "C" const char *kq_GetStatusName(kq_DB *db, uint16_t status) {
  if (kq_IsThreadX(db)) return status < KQ_THREADX_STATUS_COUNT ? threadStatus[status] : nullptr;
  return kq_GetNameOfValue(db, 0, 0, &status);
}

extern "C" const char *kq_GetServiceName(kq_DB *db, uint16_t subtype) {
  if (kq_IsThreadX(db)) {
    if (subtype < KQ_THREADX_SERVICE_COUNT) return threadServiceCall[subtype];
    const unsigned behind = subtype - KQ_THREADX_SERVICE_COUNT;
    return behind < KQ_THREADX_EVENT_COUNT ? threadTraceEvent[behind] : nullptr;
  }
  kq_Event call{};
  call.type = 3;
  call.subtype = subtype;
  const char *name = kq_GetNameOfEvent(db, &call);
  const size_t prefix = strlen(kKernelCallPrefix);
  return strncmp(name, kKernelCallPrefix, prefix) == 0 ? name + prefix : nullptr;
}
