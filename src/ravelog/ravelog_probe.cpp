/*
 * ravelog_probe.cpp - the dump conversion's process-wide state, the usage
 * text, and the probe that learns a corefile's version and byte order from
 * its first two bytes and hands the open stream to that version's decoder.
 * The decoders live in ravelog_v2.cpp and ravelog_v1.cpp.
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

/* The first two bytes are a 16-bit version word in the target's order; the
 * version is small, so one byte is zero and its place tells the order:
 *   00 v  -> big-endian, version v (00 00 included)
 *   v  00 -> little-endian, version v (v nonzero)
 *   both nonzero -> refused */
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
