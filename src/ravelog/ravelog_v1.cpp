/*
 * ravelog_v1.cpp - the decoder of version 1 event logs, whose event pool is
 * a ring of records of varying length with no pointer to the current one.
 * One scan of the pool finds where the times drop, which is the ring's
 * oldest record; one walk from there to the end, round to the pool's start
 * and back to that record hands the records to the database.  Thread
 * records, the settling of times and the database points are those of
 * version 2 (ravelog_decode.cpp, ravelog_db.cpp).
 *
 * File layout (all numbers in the log's byte order):
 *   0    28          header: version word (1), thread count (16-bit,
 *                    signed), pool size, and four stored words (EQsize,
 *                    evploc, Qhead, Qtail) that decoding doesn't use, then
 *                    the timer frequency
 *   28   44 each     thread list entries (cv_ThreadEntry)
 *   ...  pool size   the event pool
 * Record: length byte L, then type 2, subtype 2, time high 4, time low 4
 * (the 12-byte head) and L - 12 payload bytes: L + 1 bytes in all, at any
 * byte position, so numbers are read byte by byte.  A zero byte where a
 * length byte is expected is filler, one byte long.
 *
 * Bounds.  Nothing in the file promises that records fit the pool, so each
 * record is measured before it is read:
 *   - the scan goes from the pool's start to its end without wrapping; a
 *     record whose head (or, once the drop test has passed it, whose
 *     payload) would lie behind the pool's end is refused.  That includes a
 *     nonzero length byte in the pool's last position.  A length below 12
 *     is stepped over as the arithmetic says (L + 1 bytes in all): the scan
 *     hands nothing over, and it meets such bytes in a valid log too, since
 *     it reads the head of a record that wraps at its length byte as if it
 *     were a record of its own.
 *   - the walk refuses a length below 12 (its payload would have a negative
 *     size) and a record that doesn't end by the pool's end or, once the
 *     walk has wrapped, by the stop position where it began: a record may
 *     wrap only after its length byte, and the walk must come back to the
 *     stop position exactly.  So the walk visits each byte of the pool at
 *     most once and always ends.
 *   - a pool of size 0 has nothing for the walk to read and is refused when
 *     the walk would begin.
 * Refusals read "Bad event record at offset %u of the event pool: ..." or
 * "Bad event pool size 0 ..." and end with CV_VERIFY_REGION.
 */
#include "ravelog.h"

#include "indgen.h"
#include "ravelog_pool.h"

namespace {

/* The head of a record, the 12 bytes behind its length byte. */
struct RecordHead {
  unsigned type;    /* masked to 16 bits */
  unsigned subtype; /* masked to 16 bits */
  uint32_t high;    /* time, ticks */
  uint32_t low;
  uint64_t time() const { return (uint64_t{high} << 32) | low; }
};

/* Reads a head at *position and moves *position on by 12; the caller has
 * checked that the 12 bytes lie in the pool. */
RecordHead read_head(unsigned char **position, uint8_t bigEndian) {
  RecordHead head;
  head.type = static_cast<unsigned>(cv_GetShortBuf(position, bigEndian)) & 0xFFFFu;
  head.subtype = static_cast<unsigned>(cv_GetShortBuf(position, bigEndian)) & 0xFFFFu;
  head.high = cv_GetIntBuf(position, bigEndian);
  head.low = cv_GetIntBuf(position, bigEndian);
  return head;
}

/* The pool as the scan and the walk see it: [start, end).  The scan takes
 * an empty one (both null), the walk doesn't. */
struct Pool {
  unsigned char *start;
  unsigned char *end;
  unsigned offset(const unsigned char *at) const { return static_cast<unsigned>(at - start); }
};

/* What the scan settles: where the walk begins and ends, and the time that
 * counts as 0 (0:0 when no record set it). */
struct ScanResult {
  unsigned char *position;
  unsigned char *stop;
  uint64_t startTime;
};

void read_header(FILE *stream, uint8_t bigEndian) {
  TNIS = cv_GetShort(stream, bigEndian);
  EVPS = static_cast<int32_t>(cv_GetInt(stream, bigEndian));
  EQsize = static_cast<int32_t>(cv_GetInt(stream, bigEndian));
  evploc = static_cast<int32_t>(cv_GetInt(stream, bigEndian));
  Qhead = static_cast<int32_t>(cv_GetInt(stream, bigEndian));
  Qtail = static_cast<int32_t>(cv_GetInt(stream, bigEndian));
  tbfreq = static_cast<int32_t>(cv_GetInt(stream, bigEndian));
}

/* Reads the whole pool of `size` bytes (a large pool in a regular file is
 * mapped instead; ravelog_pool.h).  Any read that gives fewer bytes
 * than it asked for fails: there is no second try.  (The buffer grows as
 * the bytes come, so the pool is read in pieces; each piece is one read.)
 * A size of 0 reads nothing and passes.  Returns false only if a replaced
 * gen_exit returns from a failure. */
bool read_pool(ravelog::EventPool &pool, FILE *stream, uint32_t size) {
  if (pool.MapWhole(stream, size)) return true;
  while (pool.size() < size) {
    size_t asked = 0;
    size_t got = 0;
    if (!pool.ReadMore(stream, size, &asked, &got)) return false;
    if (got < asked) {
      gen_errorexit(1, "Error reading in event pool.");
      return false;
    }
  }
  return true;
}

/* The record with its length byte at `record` doesn't fit the pool. */
void refuse_past_end(const Pool &pool, const unsigned char *record) {
  gen_errorexit(1,
                "Bad event record at offset %u of the event pool: it runs past the end of the pool "
                "of %u bytes.\n" CV_VERIFY_REGION,
                pool.offset(record), pool.offset(pool.end));
}

/* Finds the ring's oldest record: goes through the pool from its start,
 * without wrapping, until a record's time is below the first record's time
 * (the start time).  Returns false only if a replaced gen_exit returns from
 * a refusal. */
bool scan_pool(const Pool &pool, uint8_t bigEndian, ScanResult *result) {
  unsigned char *position = pool.start;
  unsigned char *stop = pool.start; /* end of the latest record passed */
  uint64_t startTime = 0;           /* 0:0: not set yet */
  while (position < pool.end) {
    const unsigned char *record = position;
    const unsigned length = *position++;
    if (length == 0) continue;
    if (pool.end - position < CV_V1_HEAD_SIZE) {
      refuse_past_end(pool, record);
      return false;
    }
    const RecordHead head = read_head(&position, bigEndian);
    if (startTime == 0) {
      startTime = head.time();
    } else if (startTime > head.time()) {
      startTime = head.time();
      if (debug) printf("Breaking out of loop.\n");
      position = stop;
      break;
    }
    if (length >= CV_V1_HEAD_SIZE &&
        pool.end - position < static_cast<ptrdiff_t>(length - CV_V1_HEAD_SIZE)) {
      refuse_past_end(pool, record);
      return false;
    }
    /* A length below 12 steps back into the head: L + 1 bytes from the
     * record's start, still forward. */
    position = position - CV_V1_HEAD_SIZE + length;
    stop = position;
    if (debug)
      printf("Event (Type %d:%d) time was: %x:%x\n", static_cast<int>(head.type),
             static_cast<int>(head.subtype), head.high, head.low);
  }
  if (position == pool.end) position = stop = pool.start;
  *result = {position, stop, startTime};
  return true;
}

/* Prints the four payload bytes of a context switch as they stand in the
 * pool.  A payload shorter than four bytes shows 00 for the bytes it
 * lacks: nothing behind the record is read. */
void print_context_switch(const unsigned char *payload, unsigned size) {
  unsigned char task[4] = {0, 0, 0, 0};
  for (unsigned i = 0; i < 4 && i < size; i++) task[i] = payload[i];
  printf("Context Switch to task %02x%02x%02x%02x.\n", task[0], task[1], task[2], task[3]);
}

/* One lap of the ring from the scan's position to its stop position,
 * handing each record to the database.  Before the walk wraps a record must
 * end by the pool's end, after it by the stop position.  Returns false only
 * if a replaced gen_exit returns from a refusal. */
bool walk_ring(const Pool &pool, const ScanResult &scan, uint8_t bigEndian) {
  unsigned char *position = scan.position;
  bool wrapped = false; /* the position has passed the pool's end */
  gen_progress_t progress;
  gen_progress_begin(&progress, "converting", static_cast<uint64_t>(pool.end - pool.start));
  do {
    gen_progress_update(&progress, static_cast<uint64_t>(
                                       wrapped ? (pool.end - scan.position) + (position - pool.start)
                                               : position - scan.position));
    const unsigned char *record = position;
    const unsigned length = *position++;
    if (position == pool.end) {
      position = pool.start;
      wrapped = true;
    }
    if (length == 0) continue;
    if (length < CV_V1_HEAD_SIZE) {
      gen_errorexit(1, "Bad event record at offset %u of the event pool: its length %u is below 12.\n"
                       CV_VERIFY_REGION, pool.offset(record), length);
      return false;
    }
    const unsigned char *limit = wrapped ? scan.stop : pool.end;
    if (limit - position < static_cast<ptrdiff_t>(length)) {
      if (wrapped) {
        gen_errorexit(1,
                      "Bad event record at offset %u of the event pool: it runs past offset %u, "
                      "where the oldest part of the ring begins.\n" CV_VERIFY_REGION,
                      pool.offset(record), pool.offset(scan.stop));
      } else {
        refuse_past_end(pool, record);
      }
      return false;
    }
    const RecordHead head = read_head(&position, bigEndian);
    const uint64_t settled = cv_SettleTime(head.time(), scan.startTime, head.type, head.subtype);
    const auto high = static_cast<uint32_t>(settled >> 32);
    const auto low = static_cast<uint32_t>(settled);
    if (debug)
      printf("Sending event of type 0x%X:0x%X time %lx:%lx\n", head.type, head.subtype,
             static_cast<unsigned long>(high), static_cast<unsigned long>(low));
    const unsigned payloadSize = length - CV_V1_HEAD_SIZE;
    cv_database.addEvent(high, low, (head.type << 16) | head.subtype, position,
                         static_cast<int>(payloadSize));
    if (debug && head.type == CV_CONTEXT_SWITCH) print_context_switch(position, payloadSize);
    position += payloadSize;
    if (position == pool.end) {
      position = pool.start;
      wrapped = true;
    }
  } while (position != scan.stop);
  gen_progress_end(&progress);
  return true;
}

} // namespace

extern "C" int cv_ParseVersion1(FILE *stream, const char *KQfile, uint8_t bigEndian) {
  read_header(stream, bigEndian);
  cv_database.open(KQfile, tbfreq, bigEndian);
  if (debug) debug_PrintTaskHeader();
  cv_ReadThreadList(stream, bigEndian);

  ravelog::EventPool buffer;
  const auto size = static_cast<uint32_t>(EVPS);
  if (!read_pool(buffer, stream, size)) return 0;
  const Pool pool{buffer.bytes(), buffer.bytes() + size};

  ScanResult scan;
  if (!scan_pool(pool, bigEndian, &scan)) return 0;
  if (debug) {
    printf("Starttime is %x:%x.\n", static_cast<uint32_t>(scan.startTime >> 32),
           static_cast<uint32_t>(scan.startTime));
    debug_PrintEventsHeader();
  }
  if (size == 0) {
    gen_errorexit(1, "Bad event pool size 0 in core file.  It holds no byte to read.\n" CV_VERIFY_REGION);
    return 0;
  }
  if (!walk_ring(pool, scan, bigEndian)) return 0;
  cv_database.close();
  return 0;
}
