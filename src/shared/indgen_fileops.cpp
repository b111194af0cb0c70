/*
 * indgen_fileops.cpp - operations on whole files.
 */
#include "indgen_fileops.h"

#include <sys/stat.h>

#include "indview.h"

extern "C" int gen_filesize(const char *name) {
  struct stat info;
  if (gen_stat(name, &info) != 0) return -1;
  return static_cast<int>(info.st_size);
}
