/*
 * indsharedlib.cpp - the shared-library layer of indsharedlib.h over
 * <dlfcn.h>.
 */
#include "indsharedlib.h"

#include <dlfcn.h>

#include "indgeninit.h"

extern "C" void *tov_open_shared_library(const char *file, int flags) {
  return dlopen(file, flags);
}

extern "C" const char *tov_last_shared_library_error(void) { return dlerror(); }

extern "C" int tov_close_shared_library(void *handle) { return 1; }

extern "C" void *tov_get_shared_library_func_ptr(void *handle, const char *symbol) {
  if (symbol == nullptr) return nullptr;
  return dlsym(handle, symbol);
}

extern "C" void *tov_must_get_shared_library_func_ptr(void *handle, const char *symbol) {
  void *address = tov_get_shared_library_func_ptr(handle, symbol);
  if (address == nullptr) gen_error("Could not resolve \"%s\"", symbol != nullptr ? symbol : "");
  return address;
}
