/*
 * indgen_fileops_change.cpp - operations that change the file system:
 * directories made and removed (also recursively), files removed, renamed,
 * copied, moved and written to a stream, and file times set.  A copy or a
 * move deletes nothing before the copy is whole: a failed copy removes only
 * its partial target.  Contracts: indgen_fileops.h.
 */
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "indgen_filename.h"
#include "indgen_fileops.h"
#include "indgeninit.h"
#include "indview.h"

namespace {

constexpr size_t kBlock = 1024;

/* Whether lstat calls name a symbolic link. */
bool is_symlink(const char *name) {
  struct stat info;
  return lstat(name, &info) == 0 && S_ISLNK(info.st_mode);
}

/* The whole-second value of a time, plus 1 when it has a fraction. */
time_t rounded_up(const struct timespec &time) {
  return time.tv_sec + (time.tv_nsec > 0 ? 1 : 0);
}

/* Copies the open file in to out in blocks; false when a read or a write
 * fails. */
bool copy_contents(int in, int out) {
  char block[kBlock];
  for (;;) {
    const ssize_t got = read(in, block, sizeof block);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) return true;
    if (write(out, block, static_cast<size_t>(got)) != got) return false;
  }
}

} // namespace

/* ======================================================================
 * Directories
 * ====================================================================== */

extern "C" int gen_mkdir(const char *name, int mode) {
  return mkdir(name, static_cast<mode_t>(mode));
}

extern "C" int gen_createdir(const char *name, int mode) {
  struct stat info;
  if (gen_sys_stat(name, &info) == 0) {
    if (S_ISDIR(info.st_mode)) return 0;
    errno = EEXIST;
    return -1;
  }
  return gen_mkdir(name, mode);
}

extern "C" int gen_createdir_recursive(const char *name, int mode) {
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  /* Each parent is shorter than its child, so the recursion ends ("/" is
   * its own parent and always a directory). */
  char *parent = gen_dirname(name);
  if (parent != nullptr && strcmp(parent, name) != 0 && !gen_isdir(parent))
    gen_createdir_recursive(parent, mode);
  gen_free(parent);
  return gen_createdir(name, mode);
}

extern "C" int gen_removestar_recursive(const char *name) {
  GenDir dir;
  if (!gen_dir_open(&dir, name)) return 0;
  gen_dir_restrict_dirs(&dir, 0, 1, 0);
  while (gen_dir_next_entry(&dir) != nullptr) {
    if (is_symlink(dir.fullname))
      gen_unlink(dir.fullname); /* the link goes, never what it points at */
    else if (dir.isdir)
      gen_removedir_recursive(dir.fullname);
    else
      gen_removefile(dir.fullname);
  }
  gen_dir_close(&dir);
  return 0;
}

extern "C" int gen_removedir_recursive(const char *name) {
  gen_removestar_recursive(name);
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return rmdir(name);
}

/* ======================================================================
 * Files
 * ====================================================================== */

extern "C" int gen_removefile(const char *name) {
  if (gen_isdir(name)) {
    errno = EISDIR;
    return -1;
  }
  return gen_unlink(name);
}

extern "C" int gen_renamefile(const char *old_name, const char *new_name) {
  if (old_name == nullptr || new_name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  if (gen_isdir(old_name) || gen_isdir(new_name)) {
    errno = EISDIR;
    return -1;
  }
  if (rename(old_name, new_name) == 0) return 0;
  /* The target may be in the way; a missing source can't be helped, and
   * then the target stays. */
  struct stat info;
  if (lstat(old_name, &info) != 0) return -1;
  gen_removefile(new_name);
  return rename(old_name, new_name);
}

extern "C" int gen_copyfile(const char *from, const char *to) {
  const int in = gen_open(from, O_RDONLY, 0);
  if (in < 0) return -1;
  const int out = gen_creat(to, 0666);
  if (out < 0) {
    close(in);
    return -1;
  }
  const bool copied = copy_contents(in, out);
  close(in);
  if (close(out) != 0 || !copied) {
    const int saved_errno = errno;
    gen_removefile(to);
    errno = saved_errno;
    return -1;
  }
  gen_chmod_sameas(to, from);
  return 0;
}

extern "C" int gen_catfile(const char *name, FILE *stream) {
  const int in = gen_open(name, O_RDONLY, 0);
  if (in < 0) return -1;
  char block[kBlock];
  int result = 0;
  for (;;) {
    const ssize_t got = read(in, block, sizeof block);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    if (fwrite(block, 1, static_cast<size_t>(got), stream) != static_cast<size_t>(got)) {
      result = -1;
      break;
    }
  }
  close(in);
  fflush(stream);
  return result;
}

extern "C" int gen_cattextfile(const char *name, FILE *stream) { return gen_catfile(name, stream); }

extern "C" int gen_movefile(const char *old_name, const char *new_name) {
  if (gen_renamefile(old_name, new_name) == 0) return 0;
  if (gen_copyfile(old_name, new_name) != 0) return -1;
  return gen_removefile(old_name);
}

/* ======================================================================
 * Times
 * ====================================================================== */

extern "C" int gen_touchfile(const char *name) {
  struct stat info;
  if (gen_stat(name, &info) != 0) {
    const int created = gen_open(name, O_CREAT | O_EXCL, 0666);
    if (created < 0) return -1;
    close(created);
    if (gen_stat(name, &info) != 0) return -1;
  }
  const int mode = static_cast<int>(info.st_mode & 07777);

  if (info.st_size > 0) {
    /* Write the first byte back in its place. */
    const int fd = gen_open(name, O_RDWR, mode);
    if (fd < 0) return -1;
    char first;
    errno = 0;
    ssize_t got = read(fd, &first, 1);
    if (got == 0 && errno == EINTR) got = read(fd, &first, 1);
    if (got != 1 || lseek(fd, 0, SEEK_SET) != 0 || write(fd, &first, 1) != 1) {
      close(fd);
      return -1;
    }
    return close(fd) == 0 ? 0 : -1;
  }

  /* An empty file: write one byte, then truncate it away again. */
  int fd = gen_open(name, O_WRONLY, mode);
  if (fd < 0) return -1;
  ssize_t written;
  do {
    written = write(fd, "", 1);
  } while (written < 0 && errno == EINTR);
  close(fd);
  if (written != 1) return -1;
  fd = gen_open(name, O_RDWR | O_TRUNC, mode);
  if (fd < 0) return -1;
  return close(fd) == 0 ? 0 : -1;
}

extern "C" int gen_utime(const char *name, time_t atime, time_t mtime) {
  struct timeval times[2] = {{atime, 0}, {mtime, 0}};
  return utimes(name, times);
}

extern "C" int gen_sametimeas(const char *from, const char *name) {
  const int saved_errno = errno;
  struct stat info;
  if (gen_stat(from, &info) != 0) {
    errno = saved_errno;
    return -1;
  }
  const int result = gen_utime(name, rounded_up(info.st_atim), rounded_up(info.st_mtim));
  errno = saved_errno;
  return result;
}
