/*
 * indgen_fileops.cpp - questions about files and their modes: tests, the
 * mode family, symbolic-link chains, file identity, comparison of contents
 * and the checksum.  Contracts: indgen_fileops.h.
 */
#include "indgen_fileops.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "indgeninit.h"
#include "indview.h"

namespace {

/* A descriptor that closes itself. */
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

/* How often a read that fails with EINVAL is tried again. */
constexpr int kEinvalRetries = 16;

/* Reads up to count bytes, as many as the file has, trying a read that
 * fails with EINVAL again a bounded number of times.  The count read, or -1
 * on failure. */
ssize_t read_block(int fd, char *buf, size_t count) {
  size_t done = 0;
  int retries = 0;
  while (done < count) {
    const ssize_t got = read(fd, buf + done, count - done);
    if (got < 0) {
      if ((errno == EINVAL && retries++ < kEinvalRetries) || errno == EINTR) continue;
      return -1;
    }
    if (got == 0) break;
    done += static_cast<size_t>(got);
  }
  return static_cast<ssize_t>(done);
}

/* Sets name's permission bits to change(mode), mode being the argument or
 * the file's own mode; returns gen_getmode's result. */
template <typename Change>
int chmod_from(const char *name, int mode, Change change) {
  int base = mode;
  const int result = gen_getmode(name, &base);
  chmod(name, static_cast<mode_t>(change(base) & 07777));
  return result;
}

/* Opens name for reading for gen_binarydifffiles; reports and gives -1
 * when it can't be examined or opened. */
int open_for_diff(const char *name, struct stat *info) {
  int fd = -1;
  if (gen_stat(name, info) != 0 || (fd = gen_open(name, O_RDONLY, 0)) < 0) {
    gen_error("Could not open file: %s", name);
    return -1;
  }
  return fd;
}

} // namespace

/* ======================================================================
 * Sizes and tests
 * ====================================================================== */

extern "C" int gen_filesize(const char *name) {
  struct stat info;
  if (gen_stat(name, &info) != 0) return -1;
  return static_cast<int>(info.st_size);
}

extern "C" int gen_isdir(const char *name) {
  struct stat info;
  return gen_stat(name, &info) == 0 && S_ISDIR(info.st_mode);
}

extern "C" int gen_isemptydir(const char *name) {
  GenDir dir;
  if (!gen_dir_open(&dir, name)) return 0;
  const bool empty = gen_dir_next_entry(&dir) == nullptr;
  gen_dir_close(&dir);
  return empty;
}

extern "C" int gen_isvcdir(const char *name) {
  return name != nullptr && (strcmp(name, "CVS") == 0 || strcmp(name, "ovc.log") == 0);
}

extern "C" int gen_islink(const char *name) {
  struct stat info;
  if (name == nullptr || lstat(name, &info) != 0) return 0;
  if (S_ISLNK(info.st_mode)) return 1;
  return info.st_nlink >= 2 ? 2 : 0;
}

extern "C" int gen_canexec(const char *name) {
  if (name == nullptr || name[0] == '\0') return -1;
  struct stat info;
  if (gen_stat(name, &info) != 0) return -1;
  if (S_ISDIR(info.st_mode)) return 0;
  return gen_access(name, X_OK) == 0 ? 1 : 0;
}

extern "C" int gen_newerthan(const char *a, const char *b) {
  struct stat info_a;
  struct stat info_b;
  if (gen_stat(a, &info_a) != 0) return -1;
  if (gen_stat(b, &info_b) != 0) return 1;
  if (info_a.st_mtim.tv_sec != info_b.st_mtim.tv_sec)
    return info_a.st_mtim.tv_sec > info_b.st_mtim.tv_sec;
  return info_a.st_mtim.tv_nsec > info_b.st_mtim.tv_nsec;
}

extern "C" int gen_readlink(const char *name, char *out, int size) {
  constexpr size_t kRoom = 1024;
  constexpr int kMaxLinks = 257;
  char names[2][kRoom];
  const char *current = name;
  int followed = 0;
  for (int which = 0; current != nullptr && followed < kMaxLinks; which ^= 1) {
    const int saved_errno = errno;
    char target[kRoom];
    const ssize_t length = readlink(current, target, kRoom - 1);
    if (length < 0) {
      if (errno == EINVAL) errno = saved_errno; /* not a link: the chain ends */
      break;
    }
    target[length] = '\0';
    char *next = names[which];
    const char *slash = strrchr(current, '/');
    const size_t dir_length =
        (target[0] != '/' && slash != nullptr) ? static_cast<size_t>(slash - current) + 1 : 0;
    if (dir_length >= kRoom) {
      memcpy(next, target, static_cast<size_t>(length) + 1);
    } else if (dir_length + static_cast<size_t>(length) < kRoom) {
      memcpy(next, current, dir_length); /* current is name or the other buffer */
      memcpy(next + dir_length, target, static_cast<size_t>(length) + 1);
    } else {
      break; /* the joined name would not fit */
    }
    current = next;
    followed++;
  }
  if (followed == 0) return -1;
  if (size > 0) strncpy(out, current, static_cast<size_t>(size));
  return 1;
}

/* ======================================================================
 * Modes
 * ====================================================================== */

extern "C" int gen_getmode(const char *name, int *mode) {
  struct stat info;
  const bool found = gen_stat(name, &info) == 0;
  const int result = found ? static_cast<int>(info.st_mode) : 0;
  if (mode != nullptr && *mode == 0) *mode = found ? result : 0664;
  return result;
}

extern "C" int gen_chmod_minusw(const char *name, int mode) {
  return chmod_from(name, mode, [](int m) { return m & ~0222; });
}

extern "C" int gen_chmod_plusw(const char *name, int mode) {
  return chmod_from(name, mode, [](int m) { return m | 0220; });
}

extern "C" int gen_chmod_plusx(const char *name) {
  return chmod_from(name, 0, [](int m) { return m | 0110; });
}

extern "C" int gen_chmod_plusrw(const char *name, int mode) {
  return chmod_from(name, mode, [](int m) { return m | 0660; });
}

extern "C" int gen_chmod_pluswu(const char *name, int mode) {
  return chmod_from(name, mode, [](int m) { return (m & ~022) | 0200; });
}

extern "C" int gen_chmod_sameas(const char *name, const char *other) {
  struct stat info;
  if (gen_stat(other, &info) != 0) return 0;
  chmod(name, info.st_mode & 07777);
  return static_cast<int>(info.st_mode);
}

/* ======================================================================
 * File identity
 * ====================================================================== */

extern "C" fileid *gen_fileid_from_filename(const char *name) {
  static fileid id;
  struct stat info;
  if (name == nullptr || stat(name, &info) != 0) return nullptr;
  id.inode = static_cast<uint32_t>(info.st_ino);
  id.device = static_cast<uint32_t>(info.st_dev);
  return &id;
}

extern "C" fileid *gen_duplicate_fileid(const fileid *id) {
  return static_cast<fileid *>(gen_structcopy(id, sizeof *id));
}

extern "C" int gen_compare_fileids(const fileid *a, const fileid *b) {
  return a != nullptr && b != nullptr && a->inode == b->inode && a->device == b->device;
}

/* ======================================================================
 * Comparison and checksum
 * ====================================================================== */

extern "C" int gen_binarydifffiles(const char *a, const char *b) {
  struct stat info_a;
  struct stat info_b;
  Descriptor file_a(open_for_diff(a, &info_a));
  if (file_a.get() < 0) return -1;
  Descriptor file_b(open_for_diff(b, &info_b));
  if (file_b.get() < 0) return -1;
  if (info_a.st_size != info_b.st_size) return 1;

  char block_a[1024];
  char block_b[1024];
  for (;;) {
    const ssize_t got_a = read_block(file_a.get(), block_a, sizeof block_a);
    if (got_a < 0) return -1;
    if (got_a == 0) return 0;
    const ssize_t got_b = read_block(file_b.get(), block_b, static_cast<size_t>(got_a));
    if (got_b != got_a) return -1;
    if (memcmp(block_a, block_b, static_cast<size_t>(got_a)) != 0) return 1;
  }
}

extern "C" const void *gen_cksum(const void *buf, int size, uint32_t *sum) {
  constexpr uint32_t kGenerator = 0x10211021u;
  const unsigned char *byte = static_cast<const unsigned char *>(buf);
  const unsigned char *end = byte + (size > 0 ? size : 0);
  uint32_t crc = *sum;
  for (; byte < end; byte++) {
    uint32_t x = static_cast<uint32_t>(*byte) << 24;
    for (int bit = 0; bit < 8; bit++) {
      crc = ((crc ^ x) & 0x80000000u) ? (crc << 1) ^ kGenerator : crc << 1;
      x <<= 1;
    }
  }
  *sum = crc;
  return end;
}
