/*
 * indgfile_stream.h - the byte-level access of GFile to its stream, shared
 * by the indgfile*.cpp sources and by nothing else.  Every encoding reads
 * and writes single bytes through GetByte (or NextByte) and PutByte and
 * blocks through ReadBlock and WriteBlock, so the way bytes reach the
 * stream can change here without any encoding or caller noticing.  C++
 * only; not installed.
 */
#ifndef RAVELOG_INDGFILE_STREAM_H
#define RAVELOG_INDGFILE_STREAM_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "indgfile.h"

namespace gfile_stream {

/* The value a missing byte reads as at the end of the file. */
constexpr uint32_t kMissingByte = 0xFF;

/* Appends the low 8 bits of value at the current position.  Straight into
 * the stream's buffer, no locking (one thread). */
inline void PutByte(GFile *gf, uint32_t value) {
  if (gf->fp == nullptr) return;
  putc_unlocked(static_cast<int>(value & 0xFFu), gf->fp);
}

/* The next byte (0..255), or -1 at the end of the file or on a read error
 * (which the stream's error indicator keeps).  For readers that must tell
 * a missing byte from a byte 0xFF. */
inline int NextByte(GFile *gf) {
  if (gf->fp == nullptr) return -1;
  const int c = getc_unlocked(gf->fp);
  return c == EOF ? -1 : c;
}

/* The next byte, or kMissingByte at the end of the file (or on a read
 * error). */
inline uint32_t GetByte(GFile *gf) {
  const int c = NextByte(gf);
  return c < 0 ? kMissingByte : static_cast<uint32_t>(c);
}

/* One block write of n bytes; a failure stays in the error indicator. */
inline void WriteBlock(GFile *gf, const void *buf, size_t n) {
  if (gf->fp == nullptr || n == 0) return;
  fwrite(buf, 1, n, gf->fp);
}

/* One block read of n bytes; returns how many arrived. */
inline size_t ReadBlock(GFile *gf, void *buf, size_t n) {
  if (gf->fp == nullptr || n == 0) return 0;
  return fread(buf, 1, n, gf->fp);
}

}  // namespace gfile_stream

#endif /* RAVELOG_INDGFILE_STREAM_H */
