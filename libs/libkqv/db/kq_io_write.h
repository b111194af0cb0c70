/*
 * kq_io_write.h - internal to libkqv: the writer's appenders of state change
 * records, which the recording functions of kq_tracker.cpp call after they
 * have applied a change to the tables.  All writing of a database's stream
 * happens in kq_io_write.cpp; these keep it there.  Not for trackers, which
 * record through kq_SaveStateChangeNew/Mod/Del (kq_tracker.h).
 *
 * Layout of the records: kq_io_format.h.  A null db, or a db without a
 * stream, writes nothing.
 */
#ifndef RAVELOG_KQ_IO_WRITE_H
#define RAVELOG_KQ_IO_WRITE_H

#include <stdint.h>

#include "kq_io.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Each appends one record: during an addition (inside the tracker's call)
 * to the event's packet, which the addition writes whole; outside one at
 * the stream's position. */

/* U1 0, U2 type, U4 id, U2 length, bytes[length] value. */
void PutStateChangeNew(kq_DB *db, uint16_t type, uint32_t id, uint16_t length, const void *value);
/* U1 1, U2 type, U4 id, U2 offset, U1 count, bytes[count]. */
void PutStateChangeMod(kq_DB *db, uint16_t type, uint32_t id, uint16_t offset, uint8_t count,
                       const void *bytes);
/* U1 2, U2 type, U4 id. */
void PutStateChangeDel(kq_DB *db, uint16_t type, uint32_t id);

/* Forgets why db stopped taking events (kq_GetWriteFailure); kq_Close
 * calls it before the handle goes. */
void ForgetWriteFailure(const kq_DB *db);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_KQ_IO_WRITE_H */
