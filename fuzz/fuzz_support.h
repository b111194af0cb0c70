/*
 * fuzz_support.h - what the fuzz targets share: quiet messages, a check
 * that ends the run with a reason, a reader that takes numbers off the
 * front of an input, and a directory in memory (/dev/shm) where a target
 * lays out the three files of a database and opens it.
 */
#ifndef RAVELOG_FUZZ_SUPPORT_H
#define RAVELOG_FUZZ_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "kq_io.h"

namespace fuzzsupport {

/* Sends standard output to /dev/null and makes every message of the
 * foundation (gen_error, gen_errorexit, ...) be formatted, so that its
 * format and arguments are exercised, and then dropped. */
void QuietProgram();

/* Prints "fuzz check failed: <what>" and aborts, which libFuzzer reports as
 * a crash with the input that caused it. */
[[noreturn]] void Fail(const char *file, int line, const char *what);

#define FUZZ_CHECK(condition, what)                                              \
  do {                                                                           \
    if (!(condition)) ::fuzzsupport::Fail(__FILE__, __LINE__, (what));           \
  } while (0)

/* Reads the front of an input: numbers big-endian, and what is missing at
 * the end reads as zero bytes. */
class Input {
 public:
  Input(const uint8_t *data, size_t size) : data_(data), size_(size) {}
  uint8_t U1() { return at_ < size_ ? data_[at_++] : 0; }
  uint32_t U4() {
    uint32_t value = 0;
    for (int i = 0; i < 4; i++) value = (value << 8) | U1();
    return value;
  }
  /* The next n bytes, or as many as remain; moves past them. */
  const uint8_t *Take(size_t n, size_t *got) {
    *got = n < size_ - at_ ? n : size_ - at_;
    const uint8_t *bytes = data_ + at_;
    at_ += *got;
    return bytes;
  }
  size_t Left() const { return size_ - at_; }

 private:
  const uint8_t *data_;
  size_t size_;
  size_t at_ = 0;
};

/* A directory of this process in /dev/shm (removed when the process ends)
 * holding one database, base name "db". */
class DatabaseDir {
 public:
  DatabaseDir();
  /* Splits an input into the three files: a U4 length of .kqv and one of
   * .kqs in front (each cut to what the input holds), then .kqv, .kqs, and
   * the rest as .kqi.  Writes them over the files there before.  Sets
   * *streamLength to the bytes of .kqs.  False when a file can't be
   * written (the run can't go on). */
  bool Write(const uint8_t *data, size_t size, size_t *streamLength);
  const char *Base() const { return base_.c_str(); }

 private:
  std::string dir_;
  std::string base_;
};

/* Lays an input out as a database in the process's one DatabaseDir (set up
 * quietly on the first call) and opens it for use: null when it doesn't
 * open.  Sets *streamLength as DatabaseDir::Write does. */
kq_DB *OpenDatabase(const uint8_t *data, size_t size, size_t *streamLength);

} // namespace fuzzsupport

#endif /* RAVELOG_FUZZ_SUPPORT_H */
