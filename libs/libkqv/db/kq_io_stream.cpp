/*
 * kq_io_stream.cpp - the window onto a growing file and the packet parsers
 * of kq_io_stream.h.
 */
#include "kq_io_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "kq_io_format.h"

namespace kqio {

namespace {

/* A window reads this much at a time: large enough that a pass makes few
 * system calls, small enough to stay in the caches. */
constexpr size_t kWindowSize = size_t{1} << 20;
/* The first window of a file: small files never need more. */
constexpr size_t kFirstWindow = size_t{1} << 14;

}  // namespace

/* ---- FileWindow ------------------------------------------------------------------ */

FileWindow::~FileWindow() {
  if (fd_ >= 0) close(fd_);
}

bool FileWindow::Open(const char *name) {
  fd_ = open(name, O_RDONLY | O_CLOEXEC);
  return fd_ >= 0;
}

const uint8_t *FileWindow::AtAfterRefill(uint64_t offset, size_t *avail) {
  if (!Refill(offset, 1)) {
    *avail = 0;
    return nullptr;
  }
  *avail = start_ + valid_ - offset;
  return bytes_.data() + (offset - start_);
}

bool FileWindow::Extend(uint64_t offset, size_t need) {
  if (offset >= start_ && offset - start_ + need <= valid_) return true;
  return Refill(offset, need);
}

void FileWindow::ForgetFrom(uint64_t offset) {
  if (offset < start_) {
    valid_ = 0;
  } else if (offset - start_ < valid_) {
    valid_ = offset - start_;
  }
}

bool FileWindow::Refill(uint64_t offset, size_t need) {
  if (fd_ < 0) return false;
  if (need > bytes_.size() || valid_ == bytes_.size()) {
    /* Grow: to what is needed, and (doubling) towards a whole window while
     * reads keep filling it.  A small file gets a small window, and nothing
     * is allocated for bytes the file hasn't got, so a damaged length can't
     * make a large buffer. */
    struct stat st;
    if (fstat(fd_, &st) != 0 || offset + need > static_cast<uint64_t>(st.st_size)) return false;
    const size_t grown = std::min(std::max<size_t>(2 * bytes_.size(), kFirstWindow), kWindowSize);
    if (need > bytes_.size() || bytes_.size() < kWindowSize) bytes_.resize(std::max(need, grown));
  }
  /* Keep what the window holds from offset on. */
  size_t kept = 0;
  if (offset >= start_ && offset < start_ + valid_) {
    kept = start_ + valid_ - offset;
    memmove(bytes_.data(), bytes_.data() + (offset - start_), kept);
  }
  start_ = offset;
  valid_ = kept;
  while (valid_ < bytes_.size()) {
    const ssize_t got = pread(fd_, bytes_.data() + valid_, bytes_.size() - valid_,
                              static_cast<off_t>(start_ + valid_));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    valid_ += static_cast<size_t>(got);
  }
  return valid_ >= need;
}

/* ---- Parsers ----------------------------------------------------------------------- */

namespace {

ParseResult NeedMore(size_t bytes) { return ParseResult{Parse::kNeedMore, bytes}; }
ParseResult Whole(size_t size) { return ParseResult{Parse::kOk, size}; }

/* Bytes of a change record's fields behind its tag, by kind. */
constexpr size_t kNewFields = 2 + 4 + 2;
constexpr size_t kModFields = 2 + 4 + 2 + 1;
constexpr size_t kDelFields = 2 + 4;
constexpr size_t kEventFields = 8 + 4 + 2 + 2;

}  // namespace

std::string DamageText(const ParseResult &result) {
  return "unknown state change tag " + std::to_string(result.size);
}

ParseResult ParseEvent(const uint8_t *at, size_t avail, EventPacket *event) {
  if (avail < kEventFields) return NeedMore(kEventFields);
  event->time = Be64(at);
  event->length = Be32(at + 8);
  event->type = Be16(at + 12);
  event->subtype = Be16(at + 14);
  event->payloadOffset = kEventFields;
  size_t here = kEventFields + static_cast<size_t>(event->length);
  event->changesOffset = here;
  event->numChanges = 0;
  for (;;) {
    if (avail < here + 1) return NeedMore(here + 1);
    const uint8_t tag = at[here];
    size_t size = 1;
    switch (tag) {
      case KQ_CHANGE_END:
        event->changesLength = here - event->changesOffset;
        return Whole(here + 1);
      case KQ_CHANGE_NEW:
        if (avail < here + 1 + kNewFields) return NeedMore(here + 1 + kNewFields);
        size += kNewFields + Be16(at + here + 1 + 6);
        break;
      case KQ_CHANGE_MOD:
        if (avail < here + 1 + kModFields) return NeedMore(here + 1 + kModFields);
        size += kModFields + at[here + 1 + 8];
        break;
      case KQ_CHANGE_DEL:
        size += kDelFields;
        break;
      default:
        return ParseResult{Parse::kDamage, tag};
    }
    here += size;
    event->numChanges++;
  }
}

ParseResult ParseStateSave(const uint8_t *at, size_t avail, uint32_t *count) {
  if (avail < 4) return NeedMore(4);
  *count = Be32(at);
  size_t here = 4;
  for (uint32_t i = 0; i < *count; i++) {
    if (avail < here + 10) return NeedMore(here + 10);
    here += 10 + static_cast<size_t>(Be32(at + here + 6));
  }
  if (avail < here) return NeedMore(here);
  return Whole(here);
}

ParseResult ParseObjUsed(const uint8_t *at, size_t avail, uint32_t *count) {
  if (avail < 4) return NeedMore(4);
  *count = Be32(at);
  const size_t size = 4 + 6 * static_cast<size_t>(*count);
  if (avail < size) return NeedMore(size);
  return Whole(size);
}

}  // namespace kqio
