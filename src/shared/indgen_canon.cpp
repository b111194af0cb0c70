/*
 * indgen_canon.cpp - canonical file names as text, and the tests for an
 * absolute name.  The rule itself is described in indgen_canon.h; the steps
 * below are numbered in the order they run.
 */
#include "indgen_canon.h"

#include <cstring>

namespace {

/* Removes count characters at `at`, closing the gap (terminator included). */
void erase(char *at, size_t count) { memmove(at, at + count, strlen(at + count) + 1); }

bool is_dot_component(const char *c) { return c[0] == '.' && (c[1] == '/' || c[1] == '\0'); }

bool is_dotdot_component(const char *c) {
  return c[0] == '.' && c[1] == '.' && (c[2] == '/' || c[2] == '\0');
}

bool is_ascii_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

/* The quick test: a work area in which no '/' or '.' stands directly behind
 * another '/' or '.' (a leading "./" aside) is already canonical. */
bool needs_no_work(const char *area) {
  const char *c = area;
  if (c[0] == '.' && c[1] == '/') c++;
  for (; *c != '\0'; c++)
    if ((*c == '/' || *c == '.') && (c[1] == '/' || c[1] == '.')) return false;
  return true;
}

/* Canonicalises the work area: the part of the name behind any leading
 * "/", drive or server prefix.  Every rule that restarts the walk has
 * shortened the text first, so the walk ends. */
void canonicalize_area(char *area) {
  if (needs_no_work(area)) return;
  size_t length = strlen(area);
  const bool keep_final_slash = length > 1 && area[length - 1] == '/';

  char *p = area;
  for (;;) {
    char *slash = strchr(p, '/');
    if (slash == nullptr) break;
    char *behind = slash + 1;
    if (slash == p) {                       /* empty component */
      erase(p, 1);
      p = area;
    } else if (is_dot_component(behind)) {  /* "x/." */
      erase(slash, 2);
    } else if (strncmp(p, "../", 3) == 0) { /* a leading ".." stays */
      p = behind;
    } else if (strncmp(p, "./..", 4) == 0 && (p[4] == '/' || p[4] == '\0')) {
      erase(p, 2);
      p = area;
    } else if (is_dotdot_component(behind)) { /* "x/.." */
      erase(p, static_cast<size_t>(behind + 2 - p));
      p = area;
    } else {
      p = behind;
    }
  }

  length = strlen(area);
  if (!keep_final_slash && length >= 2 && area[length - 1] == '/') area[length - 1] = '\0';
}

/* In the other host's form: '\' becomes '/', and the part that the rule
 * leaves alone ("//server" or a drive "X:") is skipped.  Returns where the
 * rest of the name begins. */
char *skip_msw_prefix(char *name) {
  for (char *c = name; *c != '\0'; c++)
    if (*c == '\\') *c = '/';
  if (name[0] == '/' && name[1] == '/') {
    char *server_end = strchr(name + 2, '/');
    return server_end != nullptr ? server_end : name + strlen(name);
  }
  if (is_ascii_letter(name[0]) && name[1] == ':') {
    if (name[0] >= 'a' && name[0] <= 'z') name[0] = static_cast<char>(name[0] - 'a' + 'A');
    return name + 2;
  }
  return name;
}

} // namespace

extern "C" char *canonicalizefilename(char *name, int msw) {
  if (name == nullptr) return nullptr;
  char *area = msw ? skip_msw_prefix(name) : name;
  if (*area == '/') area++;
  canonicalize_area(area);
  return name;
}

extern "C" char *gen_canonicalfilename(char *name) { return canonicalizefilename(name, 0); }

extern "C" char *gen_unix_canonicalfilename(char *name) { return canonicalizefilename(name, 0); }

extern "C" char *gen_msw_canonicalfilename(char *name) { return canonicalizefilename(name, 1); }

extern "C" int gen_absolutefilename(const char *name) {
  return name != nullptr && (name[0] == '/' || name[0] == '~');
}

extern "C" int gen_absolute_msw_filename(const char *name) {
  if (name == nullptr || name[0] == '\0') return 0;
  return name[0] == '/' || name[0] == '\\' || name[0] == '~' || name[1] == ':';
}
