/*
 * indgen_filename.cpp - splitting file names into their parts.
 */
#include "indgen_filename.h"

#include <cstring>

extern "C" const char *gen_basename(const char *path) {
  if (path == nullptr) return nullptr;
  const char *slash = strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}
