/*
 * indgfile_values.cpp - the fixed-width values (1, 2, 4 and 8 bytes,
 * big-endian) and raw byte arrays of a GFile.  The encodings are described
 * in indgfile.h; the bytes go through indgfile_stream.h.
 */
#include <cstdint>

#include "indgfile.h"
#include "indgfile_stream.h"

using gfile_stream::GetByte;
using gfile_stream::PutByte;

namespace {

/* Writes the low `bytes` bytes of value, most significant first: in one go
 * into a mapping, else byte by byte into the stream. */
void PutBigEndian(GFile *gf, uint64_t value, int bytes) {
  if (unsigned char *at = gfile_stream::ReserveBytes(gf, static_cast<size_t>(bytes))) {
    for (int i = 0; i < bytes; i++) at[i] = static_cast<unsigned char>(value >> (8 * (bytes - 1 - i)));
    return;
  }
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
    PutByte(gf, static_cast<uint32_t>(value >> shift));
  }
}

/* Reads `bytes` bytes, most significant first. */
uint64_t GetBigEndian(GFile *gf, int bytes) {
  uint64_t value = 0;
  for (int i = 0; i < bytes; i++) value = (value << 8) | GetByte(gf);
  return value;
}

}  // namespace

extern "C" void gf_put_1(GFile *gf, uint32_t value) { PutByte(gf, value); }
extern "C" void gf_put_2(GFile *gf, uint32_t value) { PutBigEndian(gf, value, 2); }
extern "C" void gf_put_4(GFile *gf, uint32_t value) { PutBigEndian(gf, value, 4); }
extern "C" void gf_put_8(GFile *gf, uint64_t value) { PutBigEndian(gf, value, 8); }

extern "C" uint32_t gf_get_1(GFile *gf) { return GetByte(gf); }
extern "C" uint32_t gf_get_2(GFile *gf) { return static_cast<uint32_t>(GetBigEndian(gf, 2)); }
extern "C" uint32_t gf_get_4(GFile *gf) { return static_cast<uint32_t>(GetBigEndian(gf, 4)); }
extern "C" uint64_t gf_get_8(GFile *gf) { return GetBigEndian(gf, 8); }

extern "C" void gf_put_array_1(GFile *gf, const void *buf, uint32_t n) {
  gfile_stream::WriteBlock(gf, buf, n);
}

extern "C" void gf_get_array_1(GFile *gf, void *buf, uint32_t n) {
  gfile_stream::ReadBlock(gf, buf, n);
}

extern "C" void gf_skip_array_1(GFile *gf, uint32_t n) {
  int32_t here = 0;
  if (gf_tell(gf, &here) == -1) return;
  /* Positions are 32-bit: the sum wraps like one. */
  gf_seek(gf, static_cast<int32_t>(static_cast<uint32_t>(here) + n));
}
