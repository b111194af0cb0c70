/*
 * kq_io_stream.h - internal to libkqv: fast reading of a .kqs stream from
 * memory, for the cursor (kq_cursor.cpp) and the structure check
 * (kq_check.cpp).  A FileWindow holds a stretch of the file read with
 * pread(2) through a descriptor of its own, so a pass costs one system call
 * per window and no stdio; the packet parsers below take apart the bytes it
 * holds, checking every length against the bytes there.  Layout:
 * kq_io_format.h.
 *
 * A file that another process writes only grows, and the one byte it
 * changes is a 0 tag that becomes nonzero.  So a reader that meets a 0 tag
 * forgets the window from that byte on (ForgetFrom) and reads it afresh the
 * next time; every byte before it is final.
 */
#ifndef RAVELOG_KQ_IO_STREAM_H
#define RAVELOG_KQ_IO_STREAM_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kqio {

/* ---- A window onto a file --------------------------------------------------- */

class FileWindow {
 public:
  FileWindow() = default;
  ~FileWindow();
  FileWindow(const FileWindow &) = delete;
  FileWindow &operator=(const FileWindow &) = delete;

  /* Opens name for reading; false when it can't be opened. */
  bool Open(const char *name);

  /* The bytes at offset (a file offset, the GFile header included) and in
   * *avail how many of them the window holds from there, at least one when
   * the file has a byte at offset; null with *avail 0 when it hasn't. */
  const uint8_t *At(uint64_t offset, size_t *avail) {
    if (offset >= start_ && offset - start_ < valid_) {
      *avail = start_ + valid_ - offset;
      return bytes_.data() + (offset - start_);
    }
    return AtAfterRefill(offset, avail);
  }

  /* Makes sure the window holds `need` bytes from offset, reading more of
   * the file (and growing the window when need is larger than it).  False,
   * without allocating, when the file has fewer bytes there. */
  bool Extend(uint64_t offset, size_t need);

  /* Drops every byte at or behind offset: the next read of them comes from
   * the file. */
  void ForgetFrom(uint64_t offset);

 private:
  const uint8_t *AtAfterRefill(uint64_t offset, size_t *avail);

  /* Refills the window so that it starts at offset, keeping what it holds
   * from there on, and reads as much as fits (at least `need` bytes when the
   * file has them).  False when the file has fewer than need bytes there. */
  bool Refill(uint64_t offset, size_t need);

  int fd_ = -1;
  std::vector<uint8_t> bytes_;
  uint64_t start_ = 0;  // file offset of bytes_[0]
  size_t valid_ = 0;    // bytes of bytes_ that hold the file's bytes
};

/* ---- Packet parsers ------------------------------------------------------------
 * Each takes the bytes behind a packet's tag (`at`, `avail` of them) and
 * answers kOk with the packet's size, kNeedMore with the number of bytes it
 * needs at least (behind the tag) to go on, or kDamage (an event whose
 * changes hold an unknown tag: DamageText says which). */

enum class Parse { kOk, kNeedMore, kDamage };

struct ParseResult {
  Parse outcome = Parse::kOk;
  size_t size = 0;  // kOk: bytes behind the tag; kNeedMore: bytes needed;
                    // kDamage: the unknown change tag
};

/* What a kDamage result found, as text. */
std::string DamageText(const ParseResult &result);

/* An event packet, with its changes and their end tag. */
struct EventPacket {
  uint64_t time = 0;
  uint32_t length = 0;
  uint16_t type = 0;
  uint16_t subtype = 0;
  size_t payloadOffset = 0;  // from `at`
  size_t changesOffset = 0;  // from `at`
  size_t changesLength = 0;  // bytes of the records, without the end tag
  uint32_t numChanges = 0;
};
ParseResult ParseEvent(const uint8_t *at, size_t avail, EventPacket *event);

/* A state save or OBJUSED packet: its size and the number of objects. */
ParseResult ParseStateSave(const uint8_t *at, size_t avail, uint32_t *count);
ParseResult ParseObjUsed(const uint8_t *at, size_t avail, uint32_t *count);

/* Runs parse (a parser above, as a callable of the bytes behind the tag
 * and their count) on the packet whose tag stands at offset of window,
 * reading more of the file as it asks, the window growing geometrically.
 * True with *at on the tag and *size the packet's size with its tag; false
 * with *why the damage (DamageText) or "packet cut short by the end of the
 * file". */
template <typename ParseFn>
bool ParsePacketAt(FileWindow &window, uint64_t offset, ParseFn parse, const uint8_t **at,
                   size_t *size, std::string *why) {
  for (;;) {
    size_t avail = 0;
    const uint8_t *bytes = window.At(offset, &avail);
    const ParseResult result =
        bytes != nullptr ? parse(bytes + 1, avail - 1) : ParseResult{Parse::kNeedMore, 1};
    if (result.outcome == Parse::kOk) {
      *at = bytes;
      *size = 1 + result.size;
      return true;
    }
    if (result.outcome == Parse::kDamage) {
      *why = DamageText(result);
      return false;
    }
    const size_t need = 1 + result.size;
    if (!window.Extend(offset, need > 2 * avail ? need : 2 * avail) && !window.Extend(offset, need)) {
      *why = "packet cut short by the end of the file";
      return false;
    }
  }
}

/* Big-endian numbers. */
inline uint16_t Be16(const uint8_t *p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
inline uint32_t Be32(const uint8_t *p) {
  return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
         static_cast<uint32_t>(p[2]) << 8 | p[3];
}
inline uint64_t Be64(const uint8_t *p) {
  return static_cast<uint64_t>(Be32(p)) << 32 | Be32(p + 4);
}

}  // namespace kqio

#endif /* RAVELOG_KQ_IO_STREAM_H */
