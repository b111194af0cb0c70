/*
 * ravelog_probe.cpp - the dump conversion's process-wide state, the usage
 * text, and the probe that learns a corefile's version and byte order from
 * its first two bytes (a trace buffer from its first four) and hands the
 * open stream to that format's decoder.  The decoders live in
 * ravelog_v2.cpp, ravelog_v1.cpp and ravelog_tracebuf.cpp.
 */
#include "ravelog.h"

#include "indgen.h"

/* ---- Process-wide state ------------------------------------------------- */

unsigned char debug = 0;
uint32_t lastTimeStamp[2] = {0, 0};
int32_t TNIS;
int32_t EVPS;
int32_t tbfreq;
int32_t EQsize;
int32_t evploc;
int32_t Qhead;
int32_t Qtail;

/* ---- Usage -------------------------------------------------------------- */

extern "C" void PrintUsage(const char *progname) {
  printf("Usage: %s [-h] [-d] corefile KQfile\n", progname != nullptr ? progname : "ravelog");
  printf("Options:\n");
  printf("    -h    displays the usage informaiton.\n");
  printf("    -d    displays diagnostic information.\n");
}

/* ---- Probe -------------------------------------------------------------- */

/* Whether the file whose first bytes were byte0 and byte1 is a trace buffer:
 * its next two bytes complete the id in one byte order or the other, which
 * goes to *bigEndian.  Reads quietly, so that a file of two or three bytes
 * meets the same refusal as before. */
static bool is_trace_buffer(unsigned char byte0, unsigned char byte1, FILE *stream, uint8_t *bigEndian) {
  unsigned char rest[2];
  if (fread(rest, 1, sizeof rest, stream) != sizeof rest) return false;
  const uint32_t big = uint32_t{byte0} << 24 | uint32_t{byte1} << 16 | uint32_t{rest[0]} << 8 | rest[1];
  const uint32_t little = uint32_t{rest[1]} << 24 | uint32_t{rest[0]} << 16 | uint32_t{byte1} << 8 | byte0;
  if (big != CV_TRACE_ID && little != CV_TRACE_ID) return false;
  *bigEndian = big == CV_TRACE_ID ? 1 : 0;
  return true;
}

/* The first two bytes are a 16-bit version word in the target's order; the
 * version is small, so one byte is zero and its place tells the order:
 *   00 v  -> big-endian, version v (00 00 included)
 *   v  00 -> little-endian, version v (v nonzero)
 *   both nonzero -> the trace buffer when the first four bytes are its id,
 *                   refused otherwise */
extern "C" int cv_ParseRawEventFile(const char *corefile, const char *KQfile) {
  const int size = gen_filesize(corefile);
  if (size < 0) {
    fprintf(stderr, "gen_filesize reports size of %ld.\n", static_cast<long>(size));
    gen_errorexit(1, "Error in opening core file.");
    return 0;
  }
  FILE *stream = gen_fopen(corefile, "rb");
  if (stream == nullptr) {
    fprintf(stderr, "gen_fopen returned NULL\n");
    gen_errorexit(1, "Error in opening core file.");
    return 0;
  }

  unsigned char byte0 = 0;
  unsigned char byte1 = 0;
  cv_ReadChar(&byte0, stream);
  cv_ReadChar(&byte1, stream);

  uint8_t bigEndian;
  unsigned version;
  if (byte0 == 0) {
    version = byte1;
    bigEndian = 1;
  } else {
    if (byte1 != 0) {
      uint8_t traceOrder = 0;
      if (is_trace_buffer(byte0, byte1, stream, &traceOrder)) {
        cv_ParseTraceBuffer(stream, KQfile, traceOrder);
        return 0;
      }
      gen_errorexit(1, "Bad format detected in core file.  First two bytes were both non-zero.\n"
                       "Verify that the correct target memory region was saved.");
      return 0;
    }
    version = byte0;
    bigEndian = 0;
  }

  switch (version) {
  case 1:
    cv_ParseVersion1(stream, KQfile, bigEndian);
    break;
  case 2:
    cv_ParseVersion2(stream, KQfile, bigEndian);
    break;
  default:
    gen_errorexit(1, "Unknown version 0x%2.2x core file.  \n"
                     "Verify that the correct target memory region was saved.",
                  version);
  }
  /* The stream stays open until the process ends. */
  return 0;
}
