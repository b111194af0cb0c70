/*
 * indview.cpp - viewpath wrappers of the system calls.  Viewpathing is off
 * here, so every wrapper passes straight to the system.
 */
#include "indview.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

extern "C" void gen_viewpathing_init(int mode) { (void)mode; }
extern "C" void gen_viewpathing_cleanup(void) {}

extern "C" FILE *gen_fopen(const char *name, const char *mode) {
  if (name == nullptr) return nullptr;
  return fopen(name, mode);
}

extern "C" int gen_sys_stat(const char *name, struct stat *buf) {
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return stat(name, buf);
}

extern "C" int gen_stat(const char *name, struct stat *buf) { return gen_sys_stat(name, buf); }

extern "C" int gen_access(const char *name, int mode) {
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return access(name, mode);
}

extern "C" int gen_open(const char *name, int flags, int mode) {
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return open(name, flags, mode);
}

extern "C" int gen_creat(const char *name, int mode) {
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return creat(name, static_cast<mode_t>(mode));
}

extern "C" int gen_unlink(const char *name) {
  if (name == nullptr) {
    errno = EFAULT;
    return -1;
  }
  return unlink(name);
}
