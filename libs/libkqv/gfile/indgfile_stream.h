/*
 * indgfile_stream.h - the byte-level access of GFile to its file, shared by
 * the indgfile*.cpp sources and by nothing else.  Every encoding reads and
 * writes single bytes through GetByte (or NextByte) and PutByte and blocks
 * through ReadBlock and WriteBlock (or ReserveBytes for a few bytes at
 * once), so the way bytes reach the file can change here without any
 * encoding or caller noticing.  C++ only; not installed.
 *
 * A file's bytes go one of two ways (indgfile.h, "Writing through a
 * mapping"): through the stdio stream fp, or, for a large file opened for
 * write, straight into a shared mapping of the file, held in write_map.
 * The mapping's fast path is here, inline; making room, moving between the
 * two ways and closing are in indgfile_mapwrite.cpp.
 */
#ifndef RAVELOG_INDGFILE_STREAM_H
#define RAVELOG_INDGFILE_STREAM_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "indgfile.h"

/* The mapped storage of a file opened for write.  Offsets count from the
 * file's first byte (GFile's base is 0 for every mapped file).
 *
 * Invariant: start <= cursor; start <= limit <= start + file_size, and
 * every byte below limit is backed by the file, so a store there can't
 * fault for want of space.  Writes move the cursor up from seek_mark, so
 * the file's length is high, or the cursor's offset when writes took it
 * beyond that; each seek records that length in high before it moves. */
struct gf_write_mapping {
  unsigned char *cursor; /* where the next byte goes */
  unsigned char *limit;  /* bytes below it may be stored at once */
  unsigned char *start;  /* the mapping of offset 0; nullptr in the refusal marker */
  uint64_t reserved;     /* bytes of address space mapped from start */
  uint64_t file_size;    /* the file's length on disk, grown ahead of high */
  uint64_t high;         /* end of the bytes written, as of the last seek */
  uint64_t seek_mark;    /* offset the last seek (or the entry) put the cursor at */
  uint64_t populated;    /* bytes below this offset have their space and pages */
  uint64_t released;     /* pages below this offset were let go of (RSS) */
  int fd;                /* a read-write descriptor of the file, ours */
  int owner_pid;         /* the process that mapped it; exit() cuts only there */
  gf_write_mapping *next_open; /* list of open mappings, for exit() */
};

namespace gfile_stream {

/* The value a missing byte reads as at the end of the file. */
constexpr uint32_t kMissingByte = 0xFF;

/* ---- The mapped path (indgfile_mapwrite.cpp) ---------------------------- */

/* Makes room for n bytes at the cursor of gf's mapping: grows the file and
 * faults pages in ahead.  True when the n bytes may be stored below limit.
 * False when gf writes through fp (again): the mapping was refused before
 * or has just been given up, and the caller writes through the stream. */
bool MakeRoom(GFile *gf, size_t n);

/* 1 when gf's bytes go through a live mapping. */
inline bool IsMapped(const GFile *gf) {
  return gf->write_map != nullptr && gf->write_map->start != nullptr;
}

/* Moves a mapped file back to fp, standing where the cursor stood; the
 * file is cut to its length first.  Does nothing to a file on fp. */
void LeaveMapping(GFile *gf);

/* Once a seek through fp has put a file opened for write at `offset` (all
 * its bytes flushed), moves it onto a mapping if it qualifies.  Nothing
 * happens, and the file stays on fp, when it doesn't or the mapping fails. */
void MaybeEnterMapping(GFile *gf, int64_t offset);

/* gf_tell and gf_seek of a mapped file, as offsets from its first byte.
 * SeekMapped answers -1 with errno EINVAL for a negative offset, as
 * lseek(2) does, and 0 otherwise; the offset must be below 2^31. */
int64_t TellMapped(const GFile *gf);
int SeekMapped(GFile *gf, int64_t offset);

/* Ends the mapping for good at gf_close: unmaps, cuts the file to its
 * length and closes the descriptor.  False (errno set) when the cut or the
 * close failed.  Does nothing, true, for a file without one. */
bool EndMapping(GFile *gf);

/* Stores one byte so that a release fence before it orders it (see the
 * memory-ordering note in indgfile_mapwrite.cpp): a relaxed atomic store,
 * which is a plain byte store on every processor. */
inline void StoreByte(unsigned char *at, uint32_t value) {
  std::atomic_ref<unsigned char>(*at).store(static_cast<unsigned char>(value),
                                            std::memory_order_relaxed);
}

/* ---- Bytes ----------------------------------------------------------------- */

/* Appends the low 8 bits of value at the current position.  Straight into
 * the mapping or the stream's buffer, no locking (one thread). */
inline void PutByte(GFile *gf, uint32_t value) {
  gf_write_mapping *m = gf->write_map;
  if (m != nullptr && (m->cursor < m->limit || MakeRoom(gf, 1))) {
    StoreByte(m->cursor++, value);
    return;
  }
  if (gf->fp == nullptr) return;
  putc_unlocked(static_cast<int>(value & 0xFFu), gf->fp);
}

/* n bytes at the cursor of a mapped file that the caller fills at once and
 * in order, the cursor moved past them; nullptr for a file on fp, which
 * then takes its bytes through PutByte. */
inline unsigned char *ReserveBytes(GFile *gf, size_t n) {
  gf_write_mapping *m = gf->write_map;
  if (m == nullptr) return nullptr;
  /* Signed: after a seek the cursor may stand beyond limit. */
  if (m->limit - m->cursor < static_cast<std::ptrdiff_t>(n) && !MakeRoom(gf, n)) return nullptr;
  unsigned char *at = m->cursor;
  m->cursor += n;
  return at;
}

/* The next byte (0..255), or -1 at the end of the file or on a read error
 * (which the stream's error indicator keeps).  For readers that must tell
 * a missing byte from a byte 0xFF. */
inline int NextByte(GFile *gf) {
  if (gf->write_map != nullptr) LeaveMapping(gf);
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
  if (n == 0) return;
  if (unsigned char *at = ReserveBytes(gf, n)) {
    memcpy(at, buf, n);
    return;
  }
  if (gf->fp == nullptr) return;
  fwrite(buf, 1, n, gf->fp);
}

/* One block read of n bytes; returns how many arrived. */
inline size_t ReadBlock(GFile *gf, void *buf, size_t n) {
  if (gf->write_map != nullptr) LeaveMapping(gf);
  if (gf->fp == nullptr || n == 0) return 0;
  return fread(buf, 1, n, gf->fp);
}

}  // namespace gfile_stream

#endif /* RAVELOG_INDGFILE_STREAM_H */
