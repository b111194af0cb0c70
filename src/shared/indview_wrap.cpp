/*
 * indview_wrap.cpp - the system calls through the viewpath, their plain
 * twins, the choice of the name an open hands to the system, and the
 * copy-on-write of a later node's file into the local tree.
 *
 * Every wrapper tests the layer once (indview::Active) and, with viewpathing
 * off, is the system call on the caller's name.  The viewpath work sits in
 * the functions of the "Through the viewpath" section, out of the way of
 * that path.  Contracts: indview.h.
 */
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "indgen_filename.h"
#include "indgen_fileops.h"
#include "indgen_string.h"
#include "indgeninit.h"
#include "indview.h"
#include "indview_internal.h"

using indview::Active;
using indview::AnchoredName;
using indview::Debug;
using indview::HeapString;

/* ======================================================================
 * Through the viewpath (only while the layer is active)
 * ====================================================================== */

namespace {

constexpr mode_t kWriteBits = 0222;
constexpr size_t kCopyBlock = 8192;
/* How often one read or write of a copy is tried again after EINVAL (or
 * EINTR) before the copy counts as failed. */
constexpr int kCopyRetries = 16;

/* The viewpath work stays out of line, so that a wrapper with the layer
 * off keeps the plain call's shape: one test, then a tail call. */
#define NOT_INLINED [[gnu::noinline]]

bool missing(int error) { return error == ENOENT || error == ENOTDIR; }

/* The kind of access an open(2) with these flags needs. */
int kind_of_open_flags(int flags) {
  const int access_mode = flags & O_ACCMODE;
  if (access_mode == O_RDWR || (flags & O_APPEND) != 0) return GEN_VP_UPDATE;
  if (access_mode == O_WRONLY) return V_wrcopy ? GEN_VP_UPDATE : GEN_VP_LOCAL;
  return GEN_VP_READ;
}

/* The kind of access an fopen(3) mode string needs: 'a', '+' or a letter
 * outside "wrbcnt" is an update at once; 'w' is a write. */
int kind_of_stream_mode(const char *mode) {
  bool write = false;
  for (const char *c = mode; *c != '\0'; c++) {
    if (*c == 'w') {
      write = true;
    } else if (strchr("rbcnt", *c) == nullptr) {
      return GEN_VP_UPDATE; /* 'a', '+' and anything unknown */
    }
  }
  if (!write) return GEN_VP_READ;
  return V_wrcopy ? GEN_VP_UPDATE : GEN_VP_LOCAL;
}

/* gen_viewpathfilename behind the expansion of '^': a new string. */
char *choose_name(const char *name, int kind) {
  if (kind == GEN_VP_LOCAL || access(name, F_OK) == 0) return gen_copy(name);
  if (kind == GEN_VP_UPDATE) {
    V_getf(name); /* nothing to copy: the open creates the file locally */
    return gen_copy(name);
  }
  HeapString relative(V_getrel(name));
  if (relative.get() == nullptr || V_ndir < 2) return gen_copy(name);
  HeapString candidate;
  for (int i = 1; i < V_ndir; i++) {
    candidate.Reset(gen_sconcat(V_nodes[i], relative.get()));
    if (access(candidate.get(), F_OK) == 0 || !missing(errno)) {
      Debug("Located file: %s", candidate.get());
      break;
    }
  }
  return candidate.release(); /* the last node's name when none had it */
}

/* gen_access for a name whose '^' is already expanded. */
int access_expanded(const char *name, int mode) {
  const int result = access(name, mode);
  if (result == 0) return 0;
  const int error = errno;
  if (!missing(error)) return result;
  if ((mode & W_OK) != 0) {
    /* A later node's file counts as writable: a write will copy it. */
    if (access_expanded(name, F_OK) == 0) return 0;
    errno = error;
    return result;
  }
  HeapString relative(V_getrel(name));
  errno = error;
  if (relative.get() == nullptr) return result;
  int last = result;
  for (int i = 1; i < V_ndir; i++) {
    HeapString candidate(gen_sconcat(V_nodes[i], relative.get()));
    last = access(candidate.get(), mode);
    if (last == 0 || !missing(errno)) break;
  }
  return last;
}

/* gen_stat for a name whose '^' is already expanded. */
int stat_expanded(const char *name, struct stat *buf) {
  V_node = 0;
  int result = stat(name, buf);
  if (result == 0) return 0;
  const int error = errno;
  HeapString relative(V_getrel(name));
  errno = error;
  if (relative.get() == nullptr) return result;
  V_node = 1;
  for (int i = 1; i < V_ndir; i++) {
    HeapString candidate(gen_sconcat(V_nodes[i], relative.get()));
    result = stat(candidate.get(), buf);
    if (result == 0) {
      if (V_wrstat) buf->st_mode |= kWriteBits;
      break;
    }
    V_node++;
  }
  return result;
}

NOT_INLINED int vp_access(const char *name, int mode) {
  AnchoredName anchored(name);
  return access_expanded(anchored.get(), mode);
}

NOT_INLINED int vp_stat(const char *name, struct stat *buf) {
  AnchoredName anchored(name);
  return stat_expanded(anchored.get(), buf);
}

NOT_INLINED int vp_open(const char *name, int flags, int mode) {
  AnchoredName anchored(name);
  const int kind = kind_of_open_flags(flags);
  HeapString chosen(choose_name(anchored.get(), kind));
  const char *target = chosen.get();
  /* A read-only open that may create must not create in a later node. */
  if (kind == GEN_VP_READ && (flags & O_CREAT) != 0 && access(target, F_OK) != 0)
    target = anchored.get();
  return open(target, flags, mode);
}

NOT_INLINED FILE *vp_fopen(const char *name, const char *mode, FILE *stream) {
  AnchoredName anchored(name);
  HeapString chosen(choose_name(anchored.get(), kind_of_stream_mode(mode)));
  return stream != nullptr ? freopen(chosen.get(), mode, stream) : fopen(chosen.get(), mode);
}

NOT_INLINED int vp_creat(const char *name, int mode) {
  AnchoredName anchored(name);
  const int result = creat(anchored.get(), static_cast<mode_t>(mode));
  if (result >= 0) return result;
  const int error = errno;
  HeapString dir(gen_dirname(anchored.get()));
  if (dir.get() != nullptr && access(dir.get(), F_OK) != 0 &&
      access_expanded(dir.get(), F_OK) == 0) {
    const int made = V_mkpath(dir.get());
    if (made != 0) return made;
    return creat(anchored.get(), static_cast<mode_t>(mode));
  }
  errno = error;
  return result;
}

NOT_INLINED int vp_link(const char *existing, const char *new_name) {
  AnchoredName anchored(existing);
  const int result = link(anchored.get(), new_name);
  if (result == 0) return 0;
  const int error = errno;
  if (V_getf(anchored.get()) == 0) return link(anchored.get(), new_name);
  errno = error;
  return result;
}

NOT_INLINED int vp_unlink(const char *name) {
  AnchoredName anchored(name);
  const int result = unlink(anchored.get());
  if (result == 0) return 0;
  int error = errno;
  struct stat info;
  if (stat_expanded(anchored.get(), &info) == 0 && stat(anchored.get(), &info) != 0)
    error = EPERM; /* it lives only in a later node */
  errno = error;
  return result;
}

NOT_INLINED int vp_chdir(const char *name) {
  if (name == nullptr || name[0] == '\0') {
    errno = name == nullptr ? EFAULT : ENOENT;
    return -1;
  }
  AnchoredName anchored(name);
  const char *dir = anchored.get();
  if (chdir(dir) == 0) {
    V_fix_cwd(dir);
    return 0;
  }
  struct stat info;
  if (V2_stat(dir, &info) != 0) {
    errno = ENOENT;
    return -1;
  }
  if (!S_ISDIR(info.st_mode)) {
    errno = ENOTDIR;
    return -1;
  }
  /* A directory of a later node only: make it locally and go there. */
  if (V_mkpath(dir) != 0) {
    errno = EPERM;
    return -1;
  }
  if (chdir(dir) != 0) return -1;
  V_fix_cwd(dir);
  return 0;
}

/* read(2) and write(2) of one block of a copy, tried again after EINVAL
 * or EINTR at most kCopyRetries times in a row. */
ssize_t read_block(int fd, char *buf, size_t size) {
  ssize_t got = -1;
  for (int attempt = 0; attempt <= kCopyRetries; attempt++) {
    got = read(fd, buf, size);
    if (got >= 0 || (errno != EINVAL && errno != EINTR)) break;
  }
  return got;
}

ssize_t write_block(int fd, const char *buf, size_t size) {
  ssize_t put = -1;
  for (int attempt = 0; attempt <= kCopyRetries; attempt++) {
    put = write(fd, buf, size);
    if (put >= 0 || (errno != EINVAL && errno != EINTR)) break;
  }
  return put;
}

/* Copies everything from source to target: true on success. */
bool copy_contents(int source, int target) {
  char block[kCopyBlock];
  for (;;) {
    const ssize_t got = read_block(source, block, sizeof block);
    if (got == 0) return true;
    if (got < 0) return false;
    if (write_block(target, block, static_cast<size_t>(got)) != got) return false;
  }
}

}  // namespace

/* ======================================================================
 * Copy-on-write and its helpers
 * ====================================================================== */

extern "C" int V_getf(const char *name) {
  if (name == nullptr) return -1;
  if (access(name, F_OK) == 0) return 0; /* already local: nothing to copy */
  {
    HeapString dir(gen_dirname(name));
    if (dir.get() != nullptr && access(dir.get(), F_OK) != 0) {
      if (gen_access(dir.get(), F_OK) != 0) return -1;
      V_mkpath(dir.get());
    }
  }
  const int source = gen_open(name, O_RDONLY, 0);
  if (source < 0) return -1;
  struct stat info;
  /* Only a regular file is copied: a directory can't be, and reading a
   * device or a pipe might never end. */
  if (fstat(source, &info) != 0 || !S_ISREG(info.st_mode)) {
    close(source);
    return -1;
  }
  const int target = open(name, O_WRONLY | O_CREAT, (info.st_mode & 07777) | kWriteBits);
  if (target < 0) {
    close(source);
    return -1;
  }
  if (copy_contents(source, target)) {
    Debug("Copied file to %s", name);
    close(source);
    close(target);
    return 0;
  }
  if (V_debug_info) gen_perror("Unable to copy file to %s", name);
  close(source);
  close(target);
  unlink(name);
  return -1;
}

extern "C" int V_mkpath(const char *dir) {
  if (dir == nullptr) {
    errno = EFAULT;
    return -1;
  }
  struct stat info;
  const int mode = gen_stat(dir, &info) == 0 ? static_cast<int>(info.st_mode & 07777) : 0777;
  return gen_createdir(dir, mode);
}

extern "C" int V2_stat(const char *name, struct stat *buf) {
  if (name == nullptr || buf == nullptr) {
    errno = EFAULT;
    return -1;
  }
  AnchoredName anchored(name);
  const char *full = anchored.get();
  const int result = stat(full, buf);
  if (result == 0 || !Active()) return result;
  const int error = errno;
  if (full[0] != '/') {
    const size_t cwd_length = V_cwd != nullptr ? strlen(V_cwd) : 0;
    if (V_cwd == nullptr || cwd_length + 1 + strlen(full) >= sizeof V_pathname) {
      errno = V_cwd == nullptr ? error : ENAMETOOLONG;
      return result;
    }
    V_cat(V_pathname, V_cwd, "/", full, static_cast<const char *>(nullptr));
    full = V2_compath(V_pathname);
  }
  const char *rest = indview::BehindRoot(V_nodes[0], full);
  if (rest == nullptr || V_ndir < 2) {
    errno = error;
    return result;
  }
  if (*rest == '\0') rest = ".";
  int last = result;
  for (int i = 1; i < V_ndir; i++) {
    HeapString candidate(gen_sconcat(V_nodes[i], rest));
    last = stat(candidate.get(), buf);
    if (last == 0) break;
  }
  return last;
}

extern "C" char *gen_viewpathfilename(const char *name, int kind) {
  if (name == nullptr) return nullptr;
  if (!Active()) return gen_copy(name);
  AnchoredName anchored(name);
  return choose_name(anchored.get(), kind);
}

/* ======================================================================
 * Wrappers: one test of the layer, then the plain call
 * ====================================================================== */

extern "C" int gen_access(const char *name, int mode) {
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  if (Active()) [[unlikely]]
    return vp_access(name, mode);
  return access(name, mode);
}

extern "C" int gen_chdir(const char *name) {
  gen_invalidate_cwd();
  if (Active()) [[unlikely]]
    return vp_chdir(name);
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return chdir(name);
}

extern "C" int gen_creat(const char *name, int mode) {
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  if (Active()) [[unlikely]]
    return vp_creat(name, mode);
  return creat(name, static_cast<mode_t>(mode));
}

extern "C" FILE *gen_fopen(const char *name, const char *mode) {
  if (name == nullptr) return nullptr;
  if (mode == nullptr) {
    errno = EINVAL;
    return nullptr;
  }
  if (Active()) [[unlikely]]
    return vp_fopen(name, mode, nullptr);
  return fopen(name, mode);
}

extern "C" FILE *gen_freopen(const char *name, const char *mode, FILE *stream) {
  if (name == nullptr) return nullptr;
  if (mode == nullptr || stream == nullptr) {
    errno = EINVAL;
    return nullptr;
  }
  if (Active()) [[unlikely]]
    return vp_fopen(name, mode, stream);
  return freopen(name, mode, stream);
}

extern "C" int gen_link(const char *existing, const char *new_name) {
  if (existing == nullptr || new_name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  if (Active()) [[unlikely]]
    return vp_link(existing, new_name);
  return link(existing, new_name);
}

extern "C" int gen_open(const char *name, int flags, int mode) {
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  if (Active()) [[unlikely]]
    return vp_open(name, flags, mode);
  return open(name, flags, mode);
}

extern "C" int gen_stat(const char *name, struct stat *buf) {
  if (name == nullptr || buf == nullptr) {
    errno = EFAULT;
    return -1;
  }
  if (Active()) [[unlikely]]
    return vp_stat(name, buf);
  return stat(name, buf);
}

extern "C" int gen_unlink(const char *name) {
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  if (Active()) [[unlikely]]
    return vp_unlink(name);
  return unlink(name);
}

/* ======================================================================
 * Plain calls
 * ====================================================================== */

extern "C" int gen_sys_access(const char *name, int mode) {
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return access(name, mode);
}

extern "C" int gen_sys_chdir(const char *name) {
  gen_invalidate_cwd();
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return chdir(name);
}

extern "C" int gen_sys_creat(const char *name, int mode) {
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return creat(name, static_cast<mode_t>(mode));
}

extern "C" int gen_sys_link(const char *existing, const char *new_name) {
  if (existing == nullptr || new_name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return link(existing, new_name);
}

extern "C" int gen_sys_open(const char *name, int flags, int mode) {
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return open(name, flags, mode);
}

extern "C" FILE *gen_sys_fopen(const char *name, const char *mode) {
  if (name == nullptr) return nullptr;
  if (mode == nullptr) {
    errno = EINVAL;
    return nullptr;
  }
  return fopen(name, mode);
}

extern "C" FILE *gen_sys_freopen(const char *name, const char *mode, FILE *stream) {
  if (name == nullptr) return nullptr;
  if (mode == nullptr || stream == nullptr) {
    errno = EINVAL;
    return nullptr;
  }
  return freopen(name, mode, stream);
}

extern "C" int gen_sys_stat(const char *name, struct stat *buf) {
  if (name == nullptr || buf == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return stat(name, buf);
}

extern "C" int gen_sys_unlink(const char *name) {
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return unlink(name);
}
