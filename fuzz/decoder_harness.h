/*
 * decoder_harness.h - runs one of ravelog's decoders in process on an input
 * taken as a corefile, the way the program does but with nothing written:
 * the fuzz targets v1_decoder, v2_decoder and tracebuf_decoder include it
 * (version 3 stands for the kernel's trace buffer, found by its id).
 *
 * Each input starts from the state main gives the converter (lastTimeStamp
 * 0:0, every header word 0) and is read from memory through fmemopen.  The
 * harness makes the program's two-byte probe (ravelog_probe.cpp) with the
 * program's own reader and hands the stream, at offset 2, to the decoder
 * when the probe finds the target's version; other inputs are passed over.
 * Inputs of odd length run as with -d (the listing goes to /dev/null with
 * the rest of standard output): a byte behind the event pool is never read,
 * so the fuzzer can switch the listing on and off without changing the log.
 *
 * The converter ends on any fault through gen_errorexit, which calls the
 * hook gen_exit: here gen_exit throws, the harness catches it and goes on
 * to the next input, and the unwinding frees the event pool as the end of
 * the process would have.  The database points (cv_database) are replaced
 * by ones that write no file and check what the decoder hands them: one
 * open, then thread records, then events, then one close, never a call
 * after the close; payloads of the lengths a log can hold, whose every byte
 * is read (so that the address sanitizer sees a read outside the pool);
 * settled times that never fall; no more events than the pool can hold.
 * Each record then goes to the converter's tracker (ThreadX_SaveStateChange)
 * as the database writer hands it over, on a handle with no files (the
 * writer records nothing in a handle without a stream), with the object
 * tables in memory and the used table renewed every block of 100 events.
 */
#ifndef RAVELOG_FUZZ_DECODER_HARNESS_H
#define RAVELOG_FUZZ_DECODER_HARNESS_H

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "fuzz_support.h"
#include "indgeninit.h"
#include "kq_io.h"
#include "kq_state.h"
#include "ravelog.h"

namespace decoderharness {

/* What gen_exit throws. */
struct ConverterExit {
  int status;
};

void ThrowingExit(int status) { throw ConverterExit{status}; }

constexpr const char *kDatabaseName = "fuzz-db";
constexpr int kTraceBuffer = 3;

/* What the database points have been handed for the input in hand. */
struct Watch {
  int version = 0;
  uint8_t bigEndian = 0;
  int opens = 0;
  int closes = 0;
  uint64_t threads = 0;
  uint64_t events = 0;
  uint64_t lastTime = 0;
  unsigned sum = 0; /* of every byte handed over, so that each is read */
  kq_DB *db = nullptr; /* the tracker's handle, without files */
  uint32_t records = 0; /* handed to the tracker */
};
Watch watch;

/* Hands one record to the tracker the way kq_AddEventFromRawBytes does. */
void Track(uint32_t high, uint32_t low, uint32_t typeWord, const unsigned char *payload,
           uint32_t length) {
  kq_DB *db = watch.db;
  if (watch.records % 100 == 0) {
    db->usedState->table = HT_CloneInto(db->usedState->table, db->currentState->table);
  }
  kq_Event event{};
  event.time = (uint64_t{high} << 32) | low;
  event.eventNumber = watch.records++;
  event.type = static_cast<uint16_t>(typeWord >> 16);
  event.subtype = static_cast<uint16_t>(typeWord & 0xFFFFu);
  event.length = length;
  event.data = const_cast<unsigned char *>(payload);
  const int tracked =
      ThreadX_SaveStateChange(db, db->currentState->table, db->usedState->table, &event);
  FUZZ_CHECK(tracked == (event.type >= 1 && event.type <= 7 ? 1 : 0),
             "the tracker's answer doesn't follow the event's type");
  /* A refusal stops the writer, and the converter ends with status 1. */
  if (!tracked) throw ConverterExit{1};
}

void EndTracking() {
  kq_Close(watch.db);
  watch.db = nullptr;
}

void WatchOpen(const char *KQfile, int32_t ticksPerSecond, uint8_t bigEndian) {
  FUZZ_CHECK(watch.opens == 0, "database opened twice");
  FUZZ_CHECK(KQfile != nullptr && strcmp(KQfile, kDatabaseName) == 0, "wrong database name");
  FUZZ_CHECK(bigEndian == watch.bigEndian, "byte order differs from the probe's");
  FUZZ_CHECK(ticksPerSecond == tbfreq, "ticks per second differ from the header's");
  watch.opens++;
  watch.db = New_kq_DB();
  watch.db->isBigEndian = bigEndian;
  watch.db->currentState = kq_NewState();
  watch.db->usedState = kq_NewState();
}

void WatchAddThread(const unsigned char *record) {
  FUZZ_CHECK(watch.opens == 1 && watch.closes == 0, "thread record outside open..close");
  FUZZ_CHECK(watch.events == 0, "thread record after an event");
  FUZZ_CHECK(record != nullptr, "null thread record");
  watch.threads++;
  FUZZ_CHECK(watch.version == kTraceBuffer || watch.threads <= static_cast<uint64_t>(TNIS > 0 ? TNIS : 0),
             "more thread records than the thread list has entries");
  for (int i = 0; i < CV_THREAD_RECORD_SIZE; i++) watch.sum += record[i];
  Track(0, 0, CV_THREAD_RECORD_TYPEWORD, record, CV_THREAD_RECORD_SIZE);
}

void WatchAddEvent(uint32_t high, uint32_t low, uint32_t typeWord, const unsigned char *payload,
                   int length) {
  FUZZ_CHECK(watch.opens == 1 && watch.closes == 0, "event outside open..close");
  if (watch.version == kTraceBuffer) {
    FUZZ_CHECK(length >= 0 && length <= 24 && length % 4 == 0, "trace buffer payload length");
  } else if (watch.version == 2) {
    FUZZ_CHECK(length == CV_V2_PAYLOAD_SIZE, "version 2 payload is not 20 bytes");
    FUZZ_CHECK((typeWord >> 16) != 0, "version 2 event of type 0 (an empty slot)");
  } else {
    FUZZ_CHECK(length >= 0 && length <= 255 - CV_V1_HEAD_SIZE, "version 1 payload length");
  }
  FUZZ_CHECK(length == 0 || payload != nullptr, "null payload");
  const uint64_t time = (uint64_t{high} << 32) | low;
  FUZZ_CHECK(time >= watch.lastTime, "settled time fell");
  FUZZ_CHECK(watch.version == kTraceBuffer || (high == lastTimeStamp[0] && low == lastTimeStamp[1]),
             "event time is not the latest time accepted");
  watch.lastTime = time;
  for (int i = 0; i < length; i++) watch.sum += payload[i];
  watch.events++;
  /* A slot is 32 bytes; a version 1 record at least its length byte and
   * its 12-byte head. */
  const uint64_t room = static_cast<uint32_t>(EVPS) / (watch.version == 2 ? CV_V2_SLOT_SIZE
                                                                          : CV_V1_HEAD_SIZE + 1);
  FUZZ_CHECK(watch.version == kTraceBuffer || watch.events <= room,
             "more events than the pool can hold");
  Track(high, low, typeWord, payload, static_cast<uint32_t>(length));
}

void WatchClose() {
  FUZZ_CHECK(watch.opens == 1 && watch.closes == 0, "close outside open..close");
  watch.closes++;
}

/* Runs the decoder of `version` on the input as a corefile. */
int Run(const uint8_t *data, size_t size, int version) {
  static bool started = false;
  if (!started) {
    fuzzsupport::QuietProgram();
    gen_exit = ThrowingExit;
    cv_database = {WatchOpen, WatchAddThread, WatchAddEvent, WatchClose};
    started = true;
  }
  if (size == 0) return 0; /* fmemopen takes no empty buffer; the probe would fail */
  debug = size % 2;
  lastTimeStamp[0] = lastTimeStamp[1] = 0;
  TNIS = EVPS = tbfreq = EQsize = evploc = Qhead = Qtail = 0;
  watch = Watch{};
  watch.version = version;

  FILE *stream = fmemopen(const_cast<uint8_t *>(data), size, "rb");
  FUZZ_CHECK(stream != nullptr, "fmemopen failed");
  try {
    /* The probe of cv_ParseRawEventFile: 00 v is big-endian version v,
     * v 00 little-endian, both nonzero refused. */
    unsigned char byte0 = 0;
    unsigned char byte1 = 0;
    cv_ReadChar(&byte0, stream);
    cv_ReadChar(&byte1, stream);
    const bool bigEndian = byte0 == 0;
    const unsigned found = bigEndian ? byte1 : (byte1 == 0 ? byte0 : 0);
    if (version == kTraceBuffer) {
      /* The probe's other branch: the trace buffer's id, in either order. */
      if (size >= 4) {
        const uint32_t big = uint32_t{data[0]} << 24 | uint32_t{data[1]} << 16 | data[2] << 8 | data[3];
        const uint32_t little = uint32_t{data[3]} << 24 | uint32_t{data[2]} << 16 | data[1] << 8 | data[0];
        if (big == CV_TRACE_ID || little == CV_TRACE_ID) {
          watch.bigEndian = big == CV_TRACE_ID ? 1 : 0;
          cv_ParseTraceBuffer(stream, kDatabaseName, watch.bigEndian);
          FUZZ_CHECK(watch.opens == 1 && watch.closes == 1, "decoder returned without a close");
        }
      }
    } else if (found == static_cast<unsigned>(version)) {
      watch.bigEndian = bigEndian ? 1 : 0;
      if (version == 2) {
        cv_ParseVersion2(stream, kDatabaseName, watch.bigEndian);
      } else {
        cv_ParseVersion1(stream, kDatabaseName, watch.bigEndian);
      }
      FUZZ_CHECK(watch.opens == 1 && watch.closes == 1, "decoder returned without a close");
    }
  } catch (const ConverterExit &end) {
    FUZZ_CHECK(end.status == 1, "the converter ended with a status other than 1");
  }
  EndTracking();
  fclose(stream);
  return 0;
}

} // namespace decoderharness

#endif /* RAVELOG_FUZZ_DECODER_HARNESS_H */
