/*
 * indgen_host.cpp - processes, time, host facts and the environment.
 */
#include "indgen_host.h"

#include <cstdlib>

extern "C" const char *gen_getenv(const char *name, const char *fallback) {
  if (name == nullptr) return fallback;
  const char *value = getenv(name);
  return (value == nullptr || value[0] == '\0') ? fallback : value;
}
