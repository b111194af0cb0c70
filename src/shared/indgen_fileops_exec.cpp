/*
 * indgen_fileops_exec.cpp - finding executables along PATH and the
 * directory of the running program (the global gen_progdir of
 * indgeninit.h).  Contracts: indgen_fileops.h.
 */
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "indgen_filename.h"
#include "indgen_fileops.h"
#include "indgen_string.h"
#include "indgeninit.h"

namespace {

/* dir joined to name when that is an executable, else null. */
char *executable_in(const char *dir, const char *name) {
  char *candidate = gen_sconcat(dir, name);
  if (gen_canexec(candidate) == 1) return candidate;
  gen_free(candidate);
  return nullptr;
}

/* The first entry of the ':'-separated PATH under which name is an
 * executable; an empty entry tries name as it stands. */
char *executable_on_path(const char *name) {
  const char *path = getenv("PATH");
  if (path == nullptr) return nullptr;
  char *entries = gen_copy(path);
  char *found = nullptr;
  for (char *entry = entries; found == nullptr && entry != nullptr;) {
    char *colon = strchr(entry, ':');
    if (colon != nullptr) *colon = '\0';
    found = executable_in(entry, name);
    entry = colon != nullptr ? colon + 1 : nullptr;
  }
  gen_free(entries);
  return found;
}

} // namespace

extern "C" char *gen_findexec(const char *name, bool try_progdir, bool resolve) {
  if (name == nullptr || name[0] == '\0') return nullptr;
  char *found = nullptr;
  if (gen_basename(name) != name) {
    /* A name with a directory part is the only candidate. */
    found = gen_expand_filename(name);
    if (gen_canexec(found) != 1) {
      gen_free(found);
      return nullptr;
    }
  }
  if (found == nullptr && try_progdir) {
    const char *progdir = gen_getprogdir();
    if (progdir != nullptr) found = executable_in(progdir, name);
  }
  if (found == nullptr) found = executable_on_path(name);
  if (found == nullptr || !resolve) return found;
  char *real = gen_realpath(found);
  gen_free(found);
  return real;
}

extern "C" char *gen_findexecdir(const char *name, bool try_progdir, bool resolve) {
  char *found = gen_findexec(name, try_progdir, resolve);
  char *dir = gen_dirname(found);
  gen_free(found);
  return dir;
}

extern "C" void gen_changeprogdir(const char *path) {
  gen_free(gen_progdir);
  gen_progdir = gen_realpath(path);
}

extern "C" const char *gen_getprogdir(void) {
  if (gen_progdir == nullptr) gen_progdir = gen_findexecdir(gen_execname, false, true);
  return gen_progdir;
}

extern "C" int gen_is_qo_dev_program(void) {
  static int answer = -1;
  if (answer < 0) {
    const char *progdir = gen_getprogdir();
    answer = 0;
    if (progdir != nullptr) {
      answer = 1;
      for (const char *relative : {"CVS", "../src/target", "../src/configuration"}) {
        char *dir = gen_sconcat(progdir, relative);
        answer = answer && gen_isdir(dir);
        gen_free(dir);
      }
    }
  }
  return answer;
}

extern "C" int gen_is_qo_win32_dev_program(void) { return 0; }
