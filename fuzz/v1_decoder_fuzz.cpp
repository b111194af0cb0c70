/*
 * v1_decoder_fuzz.cpp - drives ravelog's version 1 decoder
 * (cv_ParseVersion1: the scan for the oldest record and the walk of the
 * ring of records of varying length) in process on the input as a
 * corefile, after the program's two-byte probe, with the database points
 * replaced by checks (decoder_harness.h).  Seeds:
 * examples/sample_v1_*.core and small dumps.
 */
#include "decoder_harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  return decoderharness::Run(data, size, 1);
}
