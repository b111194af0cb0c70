/*
 * v2_decoder_fuzz.cpp - drives ravelog's version 2 decoder
 * (cv_ParseVersion2) in process on the input as a corefile, after the
 * program's two-byte probe, with the database points replaced by checks
 * (decoder_harness.h).  Seeds: examples/sample_v2_*.core and small dumps.
 */
#include "decoder_harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  return decoderharness::Run(data, size, 2);
}
