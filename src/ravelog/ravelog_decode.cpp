/*
 * ravelog_decode.cpp - what the decoders of both versions do alike: the
 * thread list section, which has the same 44-byte entries in both, and the
 * settling of an event's time (relative to the first event, never falling).
 * The event pool buffer they share is in ravelog_pool.cpp.
 */
#include "ravelog.h"

extern "C" void cv_ReadThreadList(FILE *stream, uint8_t bigEndian) {
  for (int32_t i = 0; i < TNIS; i++) {
    cv_ThreadEntry entry;
    cv_ReadThreadEntry(&entry, stream);
    if (debug) debug_PrintTaskInfo(&entry, bigEndian);
    if (entry.valid != 0) {
      unsigned char record[CV_THREAD_RECORD_SIZE];
      cv_MakeThreadRecord(&entry, record);
      cv_database.addThread(record);
    }
  }
}

extern "C" uint64_t cv_SettleTime(uint64_t time, uint64_t origin, unsigned type, unsigned subtype) {
  const uint64_t relative = time - origin; /* modulo 2^64 */
  const uint64_t last = (uint64_t{lastTimeStamp[0]} << 32) | lastTimeStamp[1];
  if (relative >= last) {
    lastTimeStamp[0] = static_cast<uint32_t>(relative >> 32);
    lastTimeStamp[1] = static_cast<uint32_t>(relative);
    return relative;
  }
  printf("Error: Timestamp reverses from 0x%lx:%lx to 0x%lx:%lx \n\tfor event of type 0x%x:0x%x.\n",
         static_cast<unsigned long>(lastTimeStamp[0]), static_cast<unsigned long>(lastTimeStamp[1]),
         static_cast<unsigned long>(relative >> 32),
         static_cast<unsigned long>(static_cast<uint32_t>(relative)), type, subtype);
  return last;
}
