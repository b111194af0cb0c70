/*
 * kqv_export.h - what the exports share (kqv_export.cpp, kqv_html.cpp): an
 * output file that appears only whole, the stretches of time each thread
 * spends in one status, and the names of threads.
 */
#ifndef RAVELOG_KQV_EXPORT_H
#define RAVELOG_KQV_EXPORT_H

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <unordered_map>

#include "kqv.h"

namespace kqv {

/* An output file written through a buffer into a temporary file beside it
 * (FILE.tmpPID), renamed to its name by Commit; "-" is standard output.
 * Any failure to write fails (kqv.h) with "Can't write ..." and removes the
 * temporary file, so no file that reads as whole is left; so does an
 * object destroyed without Commit. */
class Output {
 public:
  explicit Output(const std::string &name);
  ~Output();
  Output(const Output &) = delete;
  Output &operator=(const Output &) = delete;

  void Text(const std::string &text) { Text(text.data(), text.size()); }
  void Text(const char *text) { Text(text, strlen(text)); }
  void Text(const char *text, size_t n) {
    buffer_.append(text, n);
    if (buffer_.size() >= kFlushAt) Flush();
  }
  void Char(char c) { buffer_ += c; }
  void Number(uint64_t value);
  void Commit();

 private:
  static constexpr size_t kFlushAt = size_t{1} << 20;
  void Flush();
  void Fail();

  std::string name_;
  std::string temporary_;  // empty for standard output, or once renamed
  FILE *file_ = nullptr;
  std::string buffer_;
};

/* The stretches of a range: a listener of the status walk that calls
 * Stretch for every stretch of one or more ticks a thread spends in one
 * status, in the order they end (so each thread's in time order). */
class Stretches : public StatusWalk::Listener {
 public:
  Stretches(const Database &database, Range range);
  /* Walks the range and closes the stretches open at its end. */
  void Run();
  /* Shows a progress line for a long walk on a terminal. */
  void ShowProgress(const char *what) { walk_.ShowProgress(what); }
  const Range &range() const { return walk_.range(); }

 protected:
  virtual void Stretch(uint32_t id, const TaskStatus &status, uint64_t start, uint64_t end) = 0;
  void Start(uint32_t id, const TaskStatus &status, uint64_t time) override;
  void Change(uint32_t id, const TaskStatus &before, const TaskStatus &after,
              uint64_t time) override;

  const Database &database_;

 private:
  struct Open {
    bool exists = false;
    TaskStatus status;
    uint64_t since = 0;
  };
  void Close(uint32_t id, uint64_t end);

  StatusWalk walk_;
  std::unordered_map<uint32_t, Open> open_;
};

/* The names of the Tasks of the states at the range's start and at the
 * database's end (a name known at both: the later one). */
std::map<uint32_t, std::string> ThreadNames(const Database &database, const Range &range);

/* A status by name, or "unknown" when the Task's status isn't known. */
std::string StatusText(kq_DB *db, const TaskStatus &status);

/* The html export (kqv_html.cpp). */
constexpr uint64_t kDefaultMaxSlices = 1000000;
void WriteHtml(const Database &database, const Range &range, uint64_t maxSlices, Output *out);

}  // namespace kqv

#endif /* RAVELOG_KQV_EXPORT_H */
