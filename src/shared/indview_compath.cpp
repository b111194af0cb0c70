/*
 * indview_compath.cpp - the two path normalisers of the viewpath layer.
 * V_compath serves names built from V_cwd; V2_compath serves gen_chdir's
 * check of a directory in a later node.  Both work in place in one pass
 * and differ on purpose from canonicalizefilename (indgen_canon.h): they
 * drop a leading "./" and every repeated '/', and V2_compath stops early.
 * Contracts: indview.h.
 */
#include <cstring>

#include "indgeninit.h"
#include "indview.h"

namespace {

/* How one normaliser differs from the other. */
struct CompathRules {
  bool stop_after_removal; /* an ordinary component behind a removed "." or
                              ".." ends the normalisation                   */
  const char *name; /* of the normaliser, for the limit message        */
};

/* Copies the rest of the path, from read position r, behind the write
 * position w, dropping only repeated '/' (w <= r holds throughout). */
size_t copy_squeezing_slashes(char *path, size_t w, size_t r) {
  for (; path[r] != '\0'; r++) {
    if (path[r] == '/' && w > 0 && path[w - 1] == '/') continue;
    path[w++] = path[r];
  }
  return w;
}

/* The one-pass normaliser behind V_compath and V2_compath.
 *
 * Invariant: w <= r, because every character written (a component or the
 * '/' in front of it) stands for one already read, so the work can share
 * the buffer.  start[i] is where output component i begins, dotdot[i]
 * whether it is a kept "..".  The output has no trailing '/' except a
 * leading root. */
char *normalise(char *path, const CompathRules &rules) {
  if (path == nullptr) return nullptr;
  if (path[0] == '\0') {
    strcpy(path, ".");
    return path;
  }
  size_t start[V_MAXCOMPONENTS];
  bool dotdot[V_MAXCOMPONENTS];
  int count = 0;
  const size_t root = path[0] == '/' ? 1 : 0; /* the first character stays */
  size_t w = root;
  size_t r = root;
  bool removed = false;
  while (path[r] != '\0') {
    if (path[r] == '/') {
      r++;
      continue;
    }
    const size_t begin = r;
    while (path[r] != '\0' && path[r] != '/') r++;
    const size_t length = r - begin;
    const bool is_dot = length == 1 && path[begin] == '.';
    const bool is_dotdot = length == 2 && path[begin] == '.' && path[begin + 1] == '.';
    if (is_dot) {
      removed = true;
      continue;
    }
    if (is_dotdot && count > 0 && !dotdot[count - 1]) {
      count--;
      w = start[count] > root ? start[count] - 1 : start[count]; /* its '/' goes too */
      removed = true;
      continue;
    }
    if (count == V_MAXCOMPONENTS) {
      /* Keep the unread rest behind what is done, so the name still means
       * the same file, then report it as it stands. */
      if (w > root) path[w++] = '/';
      memmove(path + w, path + begin, strlen(path + begin) + 1);
      gen_error("[%s]: too many directory components for \"%s\"", rules.name, path);
      return path;
    }
    if (w > root) path[w++] = '/';
    start[count] = w;
    dotdot[count] = is_dotdot;
    count++;
    memmove(path + w, path + begin, length);
    w += length;
    if (rules.stop_after_removal && removed && !is_dotdot) {
      w = copy_squeezing_slashes(path, w, r);
      if (w > 1 && path[w - 1] == '/') w--;
      break;
    }
  }
  path[w] = '\0';
  if (w == 0) strcpy(path, ".");
  return path;
}

}  // namespace

extern "C" char *V_compath(char *path) {
  static const CompathRules rules{false, "V_compath"};
  return normalise(path, rules);
}

extern "C" char *V2_compath(char *path) {
  static const CompathRules rules{true, "V2_compath"};
  if (path == nullptr) return nullptr;
  if (path[0] != '/') {
    gen_perrorexit(1, "INTERNAL ERROR: libvp: chdir: compath2: (1) [%s] not absolute path", path);
    return path; /* only when a replaced gen_exit returns */
  }
  return normalise(path, rules);
}
