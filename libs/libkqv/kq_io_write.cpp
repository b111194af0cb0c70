/*
 * kq_io_write.cpp - appends to an event database's stream.  For now the
 * state change records that trackers cause; layout: kq_io_format.h.
 */
#include "kq_io.h"
#include "kq_io_format.h"
#include "kq_io_write.h"

namespace {

bool CanWrite(const kq_DB *db) { return db != nullptr && db->streamFile != nullptr; }

}  // namespace

/* ---- State change records -------------------------------------------------------- */

extern "C" void PutStateChangeNew(kq_DB *db, uint16_t type, uint32_t id, uint16_t length,
                                  const void *value) {
  if (!CanWrite(db)) return;
  GFile *stream = db->streamFile;
  gf_put_1(stream, KQ_CHANGE_NEW);
  gf_put_2(stream, type);
  gf_put_4(stream, id);
  gf_put_2(stream, length);
  gf_put_array_1(stream, value, length);
}

extern "C" void PutStateChangeMod(kq_DB *db, uint16_t type, uint32_t id, uint16_t offset,
                                  uint8_t count, const void *bytes) {
  if (!CanWrite(db)) return;
  GFile *stream = db->streamFile;
  gf_put_1(stream, KQ_CHANGE_MOD);
  gf_put_2(stream, type);
  gf_put_4(stream, id);
  gf_put_2(stream, offset);
  gf_put_1(stream, count);
  gf_put_array_1(stream, bytes, count);
}

extern "C" void PutStateChangeDel(kq_DB *db, uint16_t type, uint32_t id) {
  if (!CanWrite(db)) return;
  GFile *stream = db->streamFile;
  gf_put_1(stream, KQ_CHANGE_DEL);
  gf_put_2(stream, type);
  gf_put_4(stream, id);
}
