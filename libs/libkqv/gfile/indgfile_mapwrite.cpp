/*
 * indgfile_mapwrite.cpp - the mapped way of writing a GFile: a large file
 * opened for write takes its bytes straight into a shared mapping of the
 * file instead of through stdio, so that a back-patched record costs
 * stores in memory and no system call.  What a caller sees is told in
 * indgfile.h ("Writing through a mapping"); the fast path (PutByte,
 * ReserveBytes, WriteBlock) is inline in indgfile_stream.h.  Here: entering
 * a mapping, making room (growing the file ahead, faulting pages in ahead
 * and letting go of pages far behind), the cursor's tell and seek, leaving
 * for the plain stream, and the cut to the file's length at close and at
 * exit().
 *
 * Order of stores.  On the plain stream a seek flushes: the bytes written
 * before it reach the file (write(2)) before any byte written after it, and
 * the event database builds its visibility rule on that (kq_io_format.h):
 * a record, then its tag.  A mapping has no flush; its stores are in the
 * page cache, and so in the file for every other process, as soon as the
 * processor makes them visible.  So SeekMapped puts a release fence
 * (std::atomic_thread_fence(std::memory_order_release)) before it moves the
 * cursor, and a single byte, which is what a back-patch writes, is stored
 * as an atomic store (StoreByte, relaxed: a plain byte store on every
 * processor).  By the fence rule, whoever observes that byte through an
 * acquiring load observes every store made before the fence; on x86 stores
 * become visible in program order anyway and the fence only keeps the
 * compiler from moving them, on weakly ordered processors (ARM, POWER) it
 * is the store barrier that keeps the record ahead of its tag.  A reader's
 * read(2) copies from the same page cache as before, so it sees the two in
 * the order it saw the plain stream's two write(2) calls.  Durability is
 * the file system's, as before: nothing here syncs.
 *
 * Memory: the whole 2 GiB range that 32-bit positions can reach is mapped
 * once (address space, not memory).  Pages are faulted in a little ahead of
 * the cursor (one system call per step instead of a fault per page) and
 * let go of once far behind it, so the process's resident size stays a few
 * MiB however long the file gets; the page cache keeps the bytes.
 */
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "indgfile.h"
#include "indgfile_stream.h"

#if defined(__linux__) && !defined(MADV_POPULATE_WRITE)
#define MADV_POPULATE_WRITE 23 /* Linux 5.14 on; older kernels answer EINVAL */
#endif

namespace {

/* ---- Settings ------------------------------------------------------------ */

constexpr uint32_t kDefaultThreshold = 64 * 1024;
constexpr uint32_t kNeverMap = UINT32_MAX;
constexpr const char *kPlainSwitch = "GFILE_WRITE_STDIO";

/* All offsets that a 32-bit position can name: [0, 2^31). */
constexpr uint64_t kReservation = uint64_t{1} << 31;
/* The unit of the mapping's work: the size of a huge page on x86-64 and
 * ARM64.  The mapping starts at an address aligned to it, so that the
 * kernel can map the file's large folios whole (one entry for 2 MiB
 * instead of 512, which made writing a GiB four times faster on the
 * benchmark machine); faulting in and letting go go by whole units. */
constexpr uint64_t kUnit = uint64_t{2} << 20;
/* The file grows by its own length, at least one unit and at most 64 MiB. */
constexpr uint64_t kMinGrowth = kUnit;
constexpr uint64_t kMaxGrowth = uint64_t{64} << 20;
/* Pages are faulted in up to this far ahead of a write, in one system call. */
constexpr uint64_t kPopulateAhead = kUnit;
/* Pages this far behind the cursor are let go of, this many at a time. */
constexpr uint64_t kKeepBehind = kUnit;
constexpr uint64_t kReleaseBatch = 2 * kUnit;

uint32_t &Threshold() {
  static uint32_t threshold = [] {
    const char *plain = getenv(kPlainSwitch);
    const bool stdioOnly = plain != nullptr && *plain != '\0' && strcmp(plain, "0") != 0;
    return stdioOnly ? kNeverMap : kDefaultThreshold;
  }();
  return threshold;
}

/* Marks a file whose mapping failed once: it stays on the plain stream.
 * Its cursor and limit are equal, so the fast path always asks MakeRoom,
 * which says no. */
gf_write_mapping refused{};

bool populateWorks = true; /* MADV_POPULATE_WRITE known to the kernel */

uint64_t RoundDown(uint64_t value, uint64_t unit) { return value / unit * unit; }
uint64_t RoundUp(uint64_t value, uint64_t unit) { return (value + unit - 1) / unit * unit; }

/* ---- Open mappings, for exit() ------------------------------------------------ */

gf_write_mapping *openMappings = nullptr;

/* The file's length: what earlier seeks recorded, or the cursor when
 * writes since the last seek took it beyond that.  A seek alone, as on the
 * plain stream, makes the file no longer. */
uint64_t Length(const gf_write_mapping *m) {
  const auto cursor = static_cast<uint64_t>(m->cursor - m->start);
  return cursor > m->seek_mark ? std::max(m->high, cursor) : m->high;
}

/* exit() with files still open (a fatal message, a signal) leaves each as
 * gf_close would: cut to its length.  Only in the process that mapped it:
 * a child that inherited the mapping and exits must not cut a file that
 * its parent goes on writing. */
void CutOpenFilesAtExit() {
  const int self = static_cast<int>(getpid());
  for (gf_write_mapping *m = openMappings; m != nullptr; m = m->next_open) {
    if (m->owner_pid == self) (void)!ftruncate(m->fd, static_cast<off_t>(Length(m)));
  }
}

void AddToOpenList(gf_write_mapping *m) {
  static const bool registered = [] { return atexit(CutOpenFilesAtExit) == 0; }();
  (void)registered;
  m->next_open = openMappings;
  openMappings = m;
}

void RemoveFromOpenList(gf_write_mapping *m) {
  for (gf_write_mapping **link = &openMappings; *link != nullptr; link = &(*link)->next_open) {
    if (*link == m) {
      *link = m->next_open;
      return;
    }
  }
}

/* ---- Entering and leaving ---------------------------------------------------- */

/* A second descriptor of the stream's file, open for reading and writing
 * (a shared writable mapping needs both; the stream has mode "w").  Through
 * /proc, so that it is the same file whatever its name leads to now.  -1
 * when that can't be had. */
int ReopenReadWrite(FILE *fp) {
#ifdef __linux__
  const int fd = fileno(fp);
  if (fd < 0) return -1;
  char path[64];
  snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
  const int rw = open(path, O_RDWR | O_CLOEXEC);
  if (rw < 0) return -1;
  struct stat mine {}, theirs {};
  if (fstat(fd, &theirs) != 0 || fstat(rw, &mine) != 0 || !S_ISREG(mine.st_mode) ||
      mine.st_dev != theirs.st_dev || mine.st_ino != theirs.st_ino) {
    close(rw);
    return -1;
  }
  return rw;
#else
  (void)fp;
  return -1;
#endif
}

/* Maps the first `length` bytes of fd shared, for reading and writing, at
 * an address aligned to kUnit, and asks for huge pages there (a hint: the
 * mapping works without).  MAP_FAILED when it can't be mapped. */
void *MapAligned(int fd, uint64_t length) {
  const size_t span = static_cast<size_t>(length + kUnit);
  void *area = mmap(nullptr, span, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (area == MAP_FAILED) return MAP_FAILED;
  const auto base = reinterpret_cast<uintptr_t>(area);
  const uintptr_t aligned = (base + kUnit - 1) & ~static_cast<uintptr_t>(kUnit - 1);
  void *start = mmap(reinterpret_cast<void *>(aligned), static_cast<size_t>(length),
                     PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, fd, 0);
  if (start == MAP_FAILED) {
    munmap(area, span);
    return MAP_FAILED;
  }
  /* The parts of the reserved area around the mapping. */
  if (aligned > base) munmap(area, aligned - base);
  const uintptr_t end = aligned + static_cast<uintptr_t>(length);
  if (base + span > end) munmap(reinterpret_cast<void *>(end), base + span - end);
#ifdef MADV_HUGEPAGE
  madvise(start, static_cast<size_t>(length), MADV_HUGEPAGE);
#endif
  return start;
}

/* Unmaps, cuts the file to its length and closes the descriptor.  False,
 * with errno from the first failure, when the cut or the close failed. */
bool Release(gf_write_mapping *m) {
  const uint64_t length = Length(m);
  munmap(m->start, m->reserved);
  int failure = 0;
  if (ftruncate(m->fd, static_cast<off_t>(length)) != 0) failure = errno;
  if (close(m->fd) != 0 && failure == 0) failure = errno;
  RemoveFromOpenList(m);
  delete m;
  if (failure != 0) errno = failure;
  return failure == 0;
}

/* ---- Making room -------------------------------------------------------------- */

/* Makes the file at least `end` bytes long, growing it in large steps.
 * The new part is a hole: its pages get their space on the disk when
 * Populate claims them.  False when the file can't be extended. */
bool Grow(gf_write_mapping *m, uint64_t end) {
  const uint64_t step = std::clamp(m->file_size, kMinGrowth, kMaxGrowth);
  const uint64_t size = std::min(RoundUp(end + step, kMinGrowth), m->reserved);
  if (ftruncate(m->fd, static_cast<off_t>(size)) != 0) return false;
  m->file_size = size;
  return true;
}

/* Gives the bytes from `from` to `to` of the file their space on the disk
 * and their pages in memory, so that no store there can fault for want of
 * either: by faulting the pages in for writing with one system call, or,
 * on a kernel without that, by allocating the range.  False when the space
 * or the memory can't be had (a full disk, typically).  A hole is used
 * rather than allocating as the file grows: on ext4 a write fault on an
 * allocated but unwritten range costs several times one on a hole. */
bool Claim(gf_write_mapping *m, uint64_t from, uint64_t to) {
#ifdef MADV_POPULATE_WRITE
  while (populateWorks) {
    if (madvise(m->start + from, static_cast<size_t>(to - from), MADV_POPULATE_WRITE) == 0) return true;
    if (errno == EINTR || errno == EAGAIN) continue;
    if (errno != EINVAL) return false;
    populateWorks = false;
  }
#endif
#ifdef __linux__
  if (fallocate(m->fd, 0, static_cast<off_t>(from), static_cast<off_t>(to - from)) == 0) return true;
  /* A file system that can't allocate ahead: stores meet its limits. */
  return errno == EOPNOTSUPP || errno == ENOSYS;
#else
  return true;
#endif
}

/* Claims the bytes not claimed yet up to kPopulateAhead beyond `end`,
 * within the file; then lets go of the pages far behind `at` (the page
 * cache keeps their bytes).  False when the claim fails. */
bool Populate(gf_write_mapping *m, uint64_t at, uint64_t end) {
  const uint64_t from = m->populated;
  const uint64_t to = std::min(RoundUp(end + kPopulateAhead, kUnit), m->file_size);
  if (to > from && !Claim(m, from, to)) return false;
  m->populated = std::max(m->populated, to);

  const uint64_t keep = RoundDown(at, kUnit);
  if (keep > kKeepBehind && keep - kKeepBehind >= m->released + kReleaseBatch) {
    const uint64_t upTo = keep - kKeepBehind;
    madvise(m->start + m->released, static_cast<size_t>(upTo - m->released), MADV_DONTNEED);
    m->released = upTo;
  }
  return true;
}

}  // namespace

/* ---- Settings for tests ---------------------------------------------------------- */

extern "C" uint32_t gf_get_write_mapping_threshold(void) { return Threshold(); }

extern "C" void gf_set_write_mapping_threshold(uint32_t bytes) { Threshold() = bytes; }

extern "C" int gf_is_write_mapped(const GFile *gf) {
  return gf != nullptr && gfile_stream::IsMapped(gf) ? 1 : 0;
}

namespace gfile_stream {

bool MakeRoom(GFile *gf, size_t n) {
  gf_write_mapping *m = gf->write_map;
  if (m->start == nullptr) return false;  // refused before
  const uint64_t at = static_cast<uint64_t>(m->cursor - m->start);
  const uint64_t end = at + n;
  if (end > m->reserved || (end > m->file_size && !Grow(m, end)) ||
      (end > m->populated && !Populate(m, at, end))) {
    LeaveMapping(gf);  // beyond 2 GiB, or no room on the disk: the stream takes over
    return false;
  }
  m->limit = m->start + std::min(m->file_size, m->populated);
  return true;
}

void MaybeEnterMapping(GFile *gf, int64_t offset) {
  if (gf->write_map != nullptr) return;  // mapped, or refused before
  if (!gf->writing || !gf->owns_fp || gf->base != 0 || gf->fp == nullptr) return;
  const uint32_t threshold = Threshold();
  if (threshold == kNeverMap || offset < static_cast<int64_t>(threshold)) return;
  if (offset < 0 || static_cast<uint64_t>(offset) > kReservation) return;
  /* A stream that failed keeps its error indicator, so it stays where
   * gf_got_error looks. */
  if (ferror(gf->fp) != 0) return;

  gf->write_map = &refused;  // until the mapping stands
  const int fd = ReopenReadWrite(gf->fp);
  if (fd < 0) return;
  struct stat status {};
  if (fstat(fd, &status) != 0 || static_cast<uint64_t>(status.st_size) > kReservation) {
    close(fd);
    return;
  }
  void *start = MapAligned(fd, kReservation);
  if (start == MAP_FAILED) {
    close(fd);
    return;
  }
  auto *m = new gf_write_mapping{};
  m->start = static_cast<unsigned char *>(start);
  m->reserved = kReservation;
  m->file_size = static_cast<uint64_t>(status.st_size);
  m->high = m->file_size;  // everything written so far is in the file
  m->cursor = m->start + offset;
  m->seek_mark = static_cast<uint64_t>(offset);
  m->limit = m->start;  // the first store makes room
  m->fd = fd;
  m->owner_pid = static_cast<int>(getpid());
  AddToOpenList(m);
  gf->write_map = m;
}

void LeaveMapping(GFile *gf) {
  if (!IsMapped(gf)) return;
  gf_write_mapping *m = gf->write_map;
  const auto at = static_cast<long>(m->cursor - m->start);
  gf->write_map = &refused;  // it stays on the stream from now on
  if (!Release(m)) gf_set_got_error(gf, 1);
  if (gf->fp != nullptr && fseek(gf->fp, at, SEEK_SET) != 0) gf_set_got_error(gf, 1);
}

bool EndMapping(GFile *gf) {
  gf_write_mapping *m = gf->write_map;
  gf->write_map = nullptr;
  if (m == nullptr || m->start == nullptr) return true;
  return Release(m);
}

int64_t TellMapped(const GFile *gf) {
  return static_cast<int64_t>(gf->write_map->cursor - gf->write_map->start);
}

int SeekMapped(GFile *gf, int64_t offset) {
  if (offset < 0) {
    errno = EINVAL;  // as lseek(2) answers
    return -1;
  }
  gf_write_mapping *m = gf->write_map;
  /* The plain stream's flush: every byte stored so far becomes visible no
   * later than any byte stored after this point (see the top of the file). */
  std::atomic_thread_fence(std::memory_order_release);
  m->high = Length(m);
  m->cursor = m->start + offset;  // offset < 2^31 = reserved: inside the mapping
  m->seek_mark = static_cast<uint64_t>(offset);
  return 0;
}

}  // namespace gfile_stream
