/*
 * kq_io.cpp - what the write side and the read side of the event database
 * share: the handle's birth and end (New_kq_DB, kq_Close) and the byte-order
 * flag of its payloads.  Writing is in kq_io_write.cpp; the layout of the
 * files is in kq_io_format.h.
 */
#include "kq_io.h"

#include <cstddef>

#include "indgeninit.h"
#include "kq_io_write.h"
#include "kq_state.h"

/* ---- Layout checks ------------------------------------------------------ */

#define KQ_BEFORE(record, a, b) (offsetof(record, a) < offsetof(record, b))
static_assert(KQ_BEFORE(kq_DB, streamFile, streamName) && KQ_BEFORE(kq_DB, streamName, indexFile) &&
                  KQ_BEFORE(kq_DB, indexFile, indexName) && KQ_BEFORE(kq_DB, indexName, headerFile) &&
                  KQ_BEFORE(kq_DB, headerFile, headerName) &&
                  KQ_BEFORE(kq_DB, headerName, formatVersion) &&
                  KQ_BEFORE(kq_DB, formatVersion, ticksPerSecond) &&
                  KQ_BEFORE(kq_DB, ticksPerSecond, configName) &&
                  KQ_BEFORE(kq_DB, configName, isBigEndian) &&
                  KQ_BEFORE(kq_DB, isBigEndian, eventsPerBlock) &&
                  KQ_BEFORE(kq_DB, eventsPerBlock, numEvents) &&
                  KQ_BEFORE(kq_DB, numEvents, currentState) &&
                  KQ_BEFORE(kq_DB, currentState, usedState) && KQ_BEFORE(kq_DB, usedState, timePos) &&
                  KQ_BEFORE(kq_DB, timePos, numTimePos) &&
                  KQ_BEFORE(kq_DB, numTimePos, lastStreamTag) &&
                  KQ_BEFORE(kq_DB, lastStreamTag, lastIndexTag) &&
                  KQ_BEFORE(kq_DB, lastIndexTag, saveStateChange),
              "kq_DB fields are in the documented order");
static_assert(KQ_BEFORE(kq_Event, time, eventNumber) && KQ_BEFORE(kq_Event, eventNumber, type) &&
                  KQ_BEFORE(kq_Event, type, subtype) && KQ_BEFORE(kq_Event, subtype, length) &&
                  KQ_BEFORE(kq_Event, length, data) && KQ_BEFORE(kq_Event, data, changes),
              "kq_Event fields are in the documented order");
static_assert(KQ_BEFORE(TimePos, time, position), "TimePos fields are in the documented order");
#undef KQ_BEFORE

/* ---- Handles ------------------------------------------------------------- */

extern "C" kq_DB *New_kq_DB(void) { return static_cast<kq_DB *>(gen_alloc(1, sizeof(kq_DB))); }

extern "C" void kq_Close(kq_DB *db) {
  if (db == nullptr) return;
  ForgetWriteFailure(db);
  if (db->streamFile != nullptr) gf_close(db->streamFile);
  if (db->indexFile != nullptr) gf_close(db->indexFile);
  if (db->headerFile != nullptr) gf_close(db->headerFile);  // null for a writing handle
  gen_free(db->streamName);
  gen_free(db->indexName);
  gen_free(db->headerName);
  gen_free(db->configName);
  gen_free(db->timePos);
  kq_DeleteState(db->currentState);
  kq_DeleteState(db->usedState);
  gen_free(db);
}

/* ---- Byte order of the payloads ------------------------------------------------ */

extern "C" int kq_GetIsBigEndian(kq_DB *db) { return db != nullptr ? db->isBigEndian : 0; }

extern "C" int kq_IsBigEndian(kq_DB *db) { return db != nullptr ? db->isBigEndian : 0; }
