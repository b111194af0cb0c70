/*
 * kq_check.h - verifies the structure of an event database: every packet
 * and tag of .kqs, the size of every block, the index entries of .kqi at
 * the block openings, times that never fall, each snapshot against the
 * state replayed from the events before it, and each list of used objects
 * against what the block before it used.  For a program that checks a
 * recording before trusting it (kqv check) and for tests.
 *
 * A database that is still being written, or whose writer was killed, is a
 * prefix of a sound one and passes: the stream may end after any whole
 * event, and the index may lack the entry of the last block.
 */
#ifndef RAVELOG_KQ_CHECK_H
#define RAVELOG_KQ_CHECK_H

#include <stdint.h>

#include "kq_io.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Receives one problem as a line of text without a line end, such as
 * ".kqs position 4012: block 3 holds 99 events, not 100".  The text is
 * valid during the call only. */
typedef void (*kq_CheckReport)(void *context, const char *problem);

/* What a check found besides its problems. */
typedef struct kq_CheckSummary {
  uint64_t events;  /* events in the stream */
  uint32_t blocks;  /* blocks in the stream */
  uint32_t entries; /* entries of the index */
} kq_CheckSummary;

/* At most this many problems are reported one by one; a last report then
 * says how many more there were. */
#define KQ_CHECK_MAX_REPORTS 100

/* Walks db (a reading handle) from its files, reporting each problem
 * through report (null: none are reported) and filling *summary when it
 * isn't null.  Reading stops at damage that leaves no way on (an unknown
 * tag, a packet cut short).  Returns the number of problems, 0 for a sound
 * database; 1 for a null or writing handle (reported as such). */
uint32_t kq_CheckDatabase(kq_DB *db, kq_CheckReport report, void *context,
                          kq_CheckSummary *summary);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_KQ_CHECK_H */
