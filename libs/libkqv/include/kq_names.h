/*
 * kq_names.h - names for showing what a database holds, by the kind of
 * target it was recorded on: the names of ThreadX thread statuses and
 * services (which the converter's -d listing prints as well), and the name
 * of a Task's status or of a kernel call's service for any database, taken
 * from the ThreadX tables when the database's configuration is "threadx"
 * and from the library's own self-description (kq_io.h) otherwise.
 *
 * Every name is a constant string that the caller neither frees nor changes.
 */
#ifndef RAVELOG_KQ_NAMES_H
#define RAVELOG_KQ_NAMES_H

#include <stdint.h>

#include "kq_io.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ThreadX thread statuses, indexed as a Task of a ThreadX database stores
 * them: the converter maps the log's numbers onto these indexes (the log's
 * 10, the running thread, is stored as 3 "RUNNING"; the log's 3 as 11
 * "TX_SUSPENDED"), and the listing indexes it by a status change's subtype. */
#define KQ_THREADX_STATUS_COUNT 14
extern const char *const threadStatus[KQ_THREADX_STATUS_COUNT];

/* ThreadX services, indexed by the subtype of a service call (type 3). */
#define KQ_THREADX_SERVICE_COUNT 59
extern const char *const threadServiceCall[KQ_THREADX_SERVICE_COUNT];

/* The kernel's other traced events, which threadServiceCall has no row for:
 * a service call of subtype KQ_THREADX_SERVICE_COUNT + i is
 * threadTraceEvent[i].  The converter gives them these subtypes when it
 * reads the kernel's own trace buffer. */
#define KQ_THREADX_EVENT_COUNT 25
extern const char *const threadTraceEvent[KQ_THREADX_EVENT_COUNT];

/* 1 when db's configuration name is "threadx" (any case), else 0. */
int kq_IsThreadX(kq_DB *db);

/* The name of a Task's status value: threadStatus[status] for a ThreadX
 * database, the named value of the Task's field 0 (kq_GetNameOfValue)
 * otherwise; null when the value has no name. */
const char *kq_GetStatusName(kq_DB *db, uint16_t status);

/* The name of the service that a kernel call (type 3) of this subtype
 * calls: threadServiceCall[subtype], or threadTraceEvent behind it, for a
 * ThreadX database, otherwise the kernel call's long name without its
 * "Kernel Call: " prefix; null when the subtype names no service. */
const char *kq_GetServiceName(kq_DB *db, uint16_t subtype);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_KQ_NAMES_H */
