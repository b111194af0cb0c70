/*
 * tracebuf_decoder_fuzz.cpp - drives ravelog's reader of the kernel's own
 * trace buffer (cv_ParseTraceBuffer) in process on the input, when its
 * first four bytes are the trace buffer's id in either byte order, with the
 * database points replaced by checks (decoder_harness.h).  Seeds: trace
 * buffers the demo application records (src/tracedemo).
 */
#include "decoder_harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  return decoderharness::Run(data, size, decoderharness::kTraceBuffer);
}
