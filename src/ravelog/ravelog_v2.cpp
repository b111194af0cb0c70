/*
 * ravelog_v2.cpp - the decoder of version 2 event logs.  One pass over the
 * file (header, thread list, event pool) and one lap of the ring of slots,
 * handing the database a thread record for each valid thread and an event
 * for each non-empty slot, in that order.  Times are made relative to the
 * first event of the walk and must not fall along it; a time that does is
 * reported and raised to the latest time before it.
 *
 * File layout (all numbers in the log's byte order):
 *   0    24          header: version word (2), thread count (16-bit,
 *                    signed), pool size, capacity, event log memory
 *                    location, current event pointer, timer frequency
 *   24   44 each     thread list entries (cv_ThreadEntry)
 *   ...  pool size   the event pool: a ring of 32-byte slots
 * Slot: type 2 (0 = empty), subtype 2, time high 4, time low 4, payload 20.
 * Nothing behind the pool is read.
 */
#include "ravelog.h"

#include "indgen.h"
#include "ravelog_pool.h"

namespace {

/* The header words that only this decoder uses. */
struct V2Header {
  int32_t capacity;       /* slots, as the header claims; only printed */
  uint32_t location;      /* target address of the pool's first slot */
  uint32_t currentEvent;  /* target address of the slot the walk starts at */
  uint32_t startOffset;   /* currentEvent - location, modulo 2^32 */
};

void read_header(FILE *stream, uint8_t bigEndian, V2Header *header) {
  TNIS = cv_GetShort(stream, bigEndian);
  EVPS = static_cast<int32_t>(cv_GetInt(stream, bigEndian));
  header->capacity = static_cast<int32_t>(cv_GetInt(stream, bigEndian));
  header->location = cv_GetInt(stream, bigEndian);
  header->currentEvent = cv_GetInt(stream, bigEndian);
  tbfreq = static_cast<int32_t>(cv_GetInt(stream, bigEndian));
  header->startOffset = header->currentEvent - header->location;
}

void print_header_section(const V2Header &header, uint8_t bigEndian) {
  printf("Event Log Header Section\nOffset     Size     Value\n---------  -------- ---------------\n");
  printf(" 0 (0x00)   1 byte  0x%2.2x = version/byte order value, byte 1\n", bigEndian ? 0 : 2);
  printf(" 1 (0x01)   1 byte  0x%2.2x = version/byte order value, byte 2\n", bigEndian ? 2 : 0);
  printf(" 2 (0x02)   2 bytes %d = threads in thread list section\n", TNIS);
  printf(" 4 (0x04)   4 bytes %d = size of events section (bytes)\n", EVPS);
  printf(" 8 (0x08)   4 bytes %d = event capacity (size/32 bytes)\n", header.capacity);
  printf("12 (0x0c)   4 bytes 0x%8.8x = event log memory location\n", header.location);
  printf("16 (0x10)   4 bytes 0x%8.8x = current event pointer\n", header.startOffset);
  printf("20 (0x14)   4 bytes %d = timer frequency (Hz)\n\n", tbfreq);
}

/* Fills the pool with the next `size` bytes of the stream (a large pool in
 * a regular file is mapped instead; ravelog_pool.h), reading again
 * after a short read.  A read that gives nothing fails, and there is always
 * at least one read, so a size of 0 fails too.  Returns false only if a
 * replaced gen_exit returns from the failure. */
bool fill_pool(ravelog::EventPool &pool, FILE *stream, uint32_t size) {
  if (pool.MapWhole(stream, size)) return true;
  do {
    size_t asked = 0;
    size_t got = 0;
    if (!pool.ReadMore(stream, size, &asked, &got)) return false;
    if (got == 0) {
      gen_errorexit(1, "Error reading event pool. \n"
                       "Check that the file size is at least as large as the event pool in memory.");
      return false;
    }
  } while (pool.size() < size);
  return true;
}

/* The walk's equality tests meet only for a pool of whole slots and a start
 * at a slot inside it; anything else is refused here, before the walk. */
bool check_ring_shape(const V2Header &header) {
  if (EVPS <= 0 || EVPS % CV_V2_SLOT_SIZE != 0) {
    gen_errorexit(1, "Bad event pool size %d in core file.  It is not a positive multiple of %d bytes.\n"
                     CV_VERIFY_REGION, EVPS, CV_V2_SLOT_SIZE);
    return false;
  }
  if (header.startOffset % CV_V2_SLOT_SIZE != 0 || header.startOffset >= static_cast<uint32_t>(EVPS)) {
    gen_errorexit(1,
                  "Bad current event pointer 0x%8.8x in core file.  It is not an event slot of the "
                  "pool of %d bytes at 0x%8.8x.\n" CV_VERIFY_REGION,
                  header.currentEvent, EVPS, header.location);
    return false;
  }
  return true;
}

uint64_t join_time(uint32_t high, uint32_t low) { return (uint64_t{high} << 32) | low; }

/* One lap of the ring from startOffset, which check_ring_shape has
 * accepted: every slot is visited once, and each offset read is inside the
 * pool of `size` bytes. */
void walk_ring(const unsigned char *pool, uint32_t size, uint32_t startOffset, uint8_t bigEndian) {
  bool originSet = false;
  uint64_t origin = 0;
  uint32_t offset = startOffset;
  gen_progress_t progress;
  gen_progress_begin(&progress, "converting", size / CV_V2_SLOT_SIZE);
  uint64_t visited = 0;
  do {
    gen_progress_update(&progress, ++visited);
    const unsigned type = static_cast<unsigned>(cv_GetShortIdx(&offset, pool, bigEndian)) & 0xFFFFu;
    if (type == 0) {
      offset += CV_V2_SLOT_SIZE - 2;
      if (offset == size) offset = 0;
      continue;
    }
    const unsigned subtype = static_cast<unsigned>(cv_GetShortIdx(&offset, pool, bigEndian)) & 0xFFFFu;
    const uint32_t high = cv_GetIntIdx(&offset, pool, bigEndian);
    const uint32_t low = cv_GetIntIdx(&offset, pool, bigEndian);
    const uint64_t time = join_time(high, low);
    if (!originSet) {
      origin = time;
      originSet = true;
    }
    const uint64_t settled = cv_SettleTime(time, origin, type, subtype);
    const unsigned char *payload = pool + offset;
    cv_database.addEvent(static_cast<uint32_t>(settled >> 32), static_cast<uint32_t>(settled),
                         (type << 16) | subtype, payload, CV_V2_PAYLOAD_SIZE);
    if (debug) debug_PrintEventsInfo(type, subtype, high, low, payload, bigEndian);
    offset += CV_V2_PAYLOAD_SIZE;
    if (offset == size) offset = 0;
  } while (offset != startOffset);
  gen_progress_end(&progress);
}

} // namespace

extern "C" int cv_ParseVersion2(FILE *stream, const char *KQfile, uint8_t bigEndian) {
  V2Header header;
  read_header(stream, bigEndian, &header);
  cv_database.open(KQfile, tbfreq, bigEndian);
  if (debug) {
    print_header_section(header, bigEndian);
    debug_PrintTaskHeader();
  }
  cv_ReadThreadList(stream, bigEndian);

  ravelog::EventPool pool;
  const auto size = static_cast<uint32_t>(EVPS);
  if (!fill_pool(pool, stream, size) || !check_ring_shape(header)) return 0;
  if (debug) debug_PrintEventsHeader();
  walk_ring(pool.bytes(), size, header.startOffset, bigEndian);
  cv_database.close();
  return 0;
}
