/*
 * fuzz_support.cpp - the helpers of fuzz_support.h.
 */
#include "fuzz_support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "indgeninit.h"

namespace fuzzsupport {

namespace {

void FormatAndDrop(unsigned code, const char *format, va_list args) {
  char text[4096];
  vsnprintf(text, sizeof text, format, args);
}

std::string removeAtExit;

void RemoveDir() {
  if (removeAtExit.empty()) return;
  for (const char *suffix : {".kqv", ".kqs", ".kqi"}) unlink((removeAtExit + "/db" + suffix).c_str());
  rmdir(removeAtExit.c_str());
}

bool WriteFile(const std::string &path, const uint8_t *bytes, size_t size) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (fd < 0) return false;
  size_t done = 0;
  while (done < size) {
    const ssize_t wrote = write(fd, bytes + done, size - done);
    if (wrote <= 0) break;
    done += static_cast<size_t>(wrote);
  }
  return close(fd) == 0 && done == size;
}

} // namespace

void QuietProgram() {
  if (freopen("/dev/null", "w", stdout) == nullptr) Fail(__FILE__, __LINE__, "no /dev/null");
  gen_domessage = FormatAndDrop;
}

void Fail(const char *file, int line, const char *what) {
  fprintf(stderr, "fuzz check failed at %s:%d: %s\n", file, line, what);
  fflush(stderr);
  abort();
}

DatabaseDir::DatabaseDir() {
  dir_ = "/dev/shm/ravelog-fuzz-" + std::to_string(getpid());
  if (mkdir(dir_.c_str(), 0700) != 0 && access(dir_.c_str(), W_OK) != 0) {
    Fail(__FILE__, __LINE__, "can't make a directory in /dev/shm");
  }
  base_ = dir_ + "/db";
  if (removeAtExit.empty()) {
    removeAtExit = dir_;
    atexit(RemoveDir);
  }
}

bool DatabaseDir::Write(const uint8_t *data, size_t size, size_t *streamLength) {
  Input input(data, size);
  const uint32_t headerLength = input.U4();
  const uint32_t streamWanted = input.U4();
  size_t got[3];
  const uint8_t *header = input.Take(headerLength, &got[0]);
  const uint8_t *stream = input.Take(streamWanted, &got[1]);
  const uint8_t *index = input.Take(input.Left(), &got[2]);
  *streamLength = got[1];
  return WriteFile(base_ + ".kqv", header, got[0]) && WriteFile(base_ + ".kqs", stream, got[1]) &&
         WriteFile(base_ + ".kqi", index, got[2]);
}

kq_DB *OpenDatabase(const uint8_t *data, size_t size, size_t *streamLength) {
  static DatabaseDir *dir = [] {
    QuietProgram();
    return new DatabaseDir;
  }();
  FUZZ_CHECK(dir->Write(data, size, streamLength), "can't write the files");
  return kq_OpenForUse(dir->Base());
}

} // namespace fuzzsupport
