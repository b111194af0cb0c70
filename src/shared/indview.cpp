/*
 * indview.cpp - the state of the viewpath layer: start and end, the node
 * list from NVPATH, names relative to the root, the name services and the
 * layer's record of the current directory.  The wrappers are in
 * indview_wrap.cpp, the normalisers in indview_compath.cpp.  Contracts:
 * indview.h.
 */
#include "indview.h"

#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "indgen_host.h"
#include "indgen_string.h"
#include "indgeninit.h"
#include "indview_internal.h"

/* ======================================================================
 * Process-wide state
 * ====================================================================== */

int V_flag = 0;
int V_debug_info = 0;
int V_xsw_flags = 0;
int V_wrcopy = 1;
int V_wrstat = 0;
int V_changed = 1;
int V_ndir = 0;
int V_node = 0;
char **V_nodes = nullptr;
char *V_root = nullptr;
char *V_alt_root = nullptr;
char *V_cwd = nullptr;
char Viewpath[V_PATHSIZE];
char V_pathname[V_PATHSIZE];
const char *V_vpath_variable = "NVPATH";
const char *V_debug_variable = "TOV_VP_DEBUG";
const char *V_slow_variable = "TOV_VP_SLOW";
const char *V_off_variable = "TOV_VP_OFF";
const char *V_xsw_variable = "TOV_VP_XSW";

/* ======================================================================
 * Shared helpers (indview_internal.h)
 * ====================================================================== */

namespace indview {

void Debug(const char *format, ...) {
  if (!V_debug_info) return;
  va_list args;
  va_start(args, format);
  gen_domessage(5, format, args);
  va_end(args);
}

const char *BehindRoot(const char *root, const char *name) {
  if (root == nullptr || name == nullptr) return nullptr;
  const size_t length = strlen(root);
  if (strncmp(root, name, length) != 0) return nullptr;
  const char *rest = name + length;
  const bool root_ends_in_slash = length > 0 && root[length - 1] == '/';
  if (*rest != '\0' && *rest != '/' && !root_ends_in_slash) return nullptr;
  while (*rest == '/') rest++;
  return rest;
}

AnchoredName::AnchoredName(const char *name) : name_(name) {
  if (!Active() || name == nullptr || name[0] != '^') return;
  if (name[1] != '\0' && name[1] != '/') return;
  const char *rest = name + 1;
  while (*rest == '/') rest++;
  owned_.Reset(gen_sconcat(V_nodes[0], rest));
}

}  // namespace indview

using indview::BehindRoot;
using indview::Debug;
using indview::HeapString;

/* ======================================================================
 * Private helpers
 * ====================================================================== */

namespace {

/* The value of the environment variable that *name names, or null when it
 * is missing or empty (or the name pointer is null). */
const char *env_value(const char *name) { return gen_getenv(name, nullptr); }

/* Frees the nodes from last to first and the table itself. */
void release_nodes() {
  if (V_nodes != nullptr) {
    for (int i = V_ndir - 1; i >= 0; i--) gen_free(V_nodes[i]);
    gen_free(V_nodes);
  }
  V_nodes = nullptr;
  V_ndir = 0;
}

/* The process's current directory as new memory of V_PATHSIZE bytes, or
 * null when the system can't tell it. */
char *current_directory() {
  char *buffer = static_cast<char *>(gen_alloc(V_PATHSIZE, 1));
  if (getcwd(buffer, V_PATHSIZE) != nullptr) return buffer;
  gen_free(buffer);
  return nullptr;
}

/* Sets V_root from the first node and, when its text in NVPATH is absolute
 * and spelled otherwise than its real path, V_alt_root (unless bit 0 of
 * V_xsw_flags says to ignore it). */
void set_root(const char *text, const char *real) {
  V_root = gen_copy(real);
  if (text[0] != '/' || strcmp(text, real) == 0) return;
  if (V_xsw_flags & 1) {
    Debug("Ignoring alternate root: %s", text);
    return;
  }
  V_alt_root = gen_copy(text);
  Debug("Using alternate root: %s", V_alt_root);
}

/* Where path lies strictly under node (a path equal to node is not under
 * it): the part behind the separating '/', or null. */
const char *strictly_under(const char *node, const char *path) {
  const size_t length = strlen(node);
  if (strncmp(node, path, length) != 0 || path[length] == '\0') return nullptr;
  const bool node_ends_in_slash = length > 0 && node[length - 1] == '/';
  if (path[length] != '/' && !node_ends_in_slash) return nullptr;
  const char *rest = path + length;
  while (*rest == '/') rest++;
  return rest;
}

/* Owns a path from the system's realpath (malloc memory). */
struct RealPath {
  explicit RealPath(const char *name) : text(realpath(name, nullptr)) {}
  ~RealPath() { free(text); }
  RealPath(const RealPath &) = delete;
  RealPath &operator=(const RealPath &) = delete;
  char *text;
};

}  // namespace

/* ======================================================================
 * Set-up
 * ====================================================================== */

extern "C" int gen_viewpathing_init(int mode) {
  const int saved_errno = errno;
  const char *xsw = env_value(V_xsw_variable);
  if (xsw != nullptr) V_xsw_flags = atoi(xsw);
  if (env_value(V_debug_variable) != nullptr) V_debug_info = 1;
  if (mode != 0 && env_value(V_off_variable) != nullptr) {
    Debug("Disabling viewpathing mode \n\tbecause environment variable (%s) is set.",
          V_off_variable);
    mode = 0;
  }
  if (mode == 2 && env_value(V_slow_variable) != nullptr) {
    Debug("Disabling FAST viewpathing mode \n\tbecause environment variable (%s) is set.",
          V_slow_variable);
    mode = 1;
  }
  switch (mode) {
    case 0:
      Debug("Viewpathing support is OFF.");
      gen_viewpathing_cleanup();
      errno = saved_errno;
      return mode;
    case 1:
      Debug("Viewpathing support is ON (SLOW).");
      V_wrcopy = 1;
      break;
    case 2:
      Debug("Viewpathing support is ON (FAST).");
      V_wrcopy = 0;
      break;
    default:
      gen_error("Illegal viewpath option passed to gen_viewpathing");
      Debug("Viewpathing support is OFF.");
      gen_viewpathing_cleanup();
      errno = saved_errno;
      return mode;
  }
  if (!V_flag) {
    V_get_vpath();
    if (V_ndir > 0) {
      gen_free(V_cwd);
      V_cwd = current_directory();
      V_flag = 1;
    }
  }
  errno = saved_errno;
  return mode;
}

extern "C" void gen_viewpathing_cleanup(void) {
  /* Everything is released whether or not V_flag is set: a node list in
   * which no node resolved still holds its table. */
  release_nodes();
  gen_free(V_cwd);
  gen_free(V_root);
  gen_free(V_alt_root);
  V_cwd = V_root = V_alt_root = nullptr;
  V_flag = 0;
}

extern "C" int gen_isviewpathing(void) { return V_flag != 0 && V_ndir > 0; }

extern "C" const char *gen_getviewpathenv(void) { return env_value(V_vpath_variable); }

extern "C" char **gen_getviewpathnodes(int *count) {
  gen_error("[gen_getviewpathnodes]: not implemented");
  if (count != nullptr) *count = 0;
  return nullptr;
}

extern "C" void V_get_vpath(void) {
  if (!V_changed) return;
  V_changed = 0;
  release_nodes();
  gen_free(V_root);
  gen_free(V_alt_root);
  V_root = V_alt_root = nullptr;
  Viewpath[0] = '\0';

  const char *value = env_value(V_vpath_variable);
  if (value == nullptr) return;
  const size_t length = strlen(value);
  if (length >= sizeof Viewpath) {
    gen_warning("V_get_vpath:  Value of %s is too long (%zu characters, at most %zu); "
                "no viewpath node",
                V_vpath_variable, length, sizeof Viewpath - 1);
    return;
  }
  memcpy(Viewpath, value, length + 1);
  V_nodes = static_cast<char **>(gen_alloc(V_MAXNODES, sizeof(char *)));

  char *next = Viewpath;
  while (*next != '\0' && V_ndir < V_MAXNODES) {
    char *text = next;
    next += strcspn(next, ":;");
    if (*next != '\0') *next++ = '\0';
    char real[PATH_MAX] = {}; /* what realpath leaves here names a failure */
    if (realpath(text, real) == nullptr) {
      gen_warning("V_get_vpath:  Cannot resolve vpath node '%s', error near '%s'", text, real);
      continue;
    }
    V_nodes[V_ndir++] = gen_copy(real);
    Debug("Adding viewpath node %d: %s", V_ndir, real);
    if (V_ndir == 1) set_root(text, real);
  }
}

/* ======================================================================
 * Names relative to the root, and the name services
 * ====================================================================== */

extern "C" char *V_getrel(const char *name) {
  if (name == nullptr || V_nodes == nullptr || V_ndir == 0) return nullptr;
  HeapString joined;
  const char *full = name;
  if (name[0] != '/') {
    joined.Reset(gen_sconcat(V_cwd, name));
    full = V_compath(const_cast<char *>(joined.get()));
  }
  const char *rest = BehindRoot(V_nodes[0], full);
  if (rest == nullptr && V_alt_root != nullptr) rest = BehindRoot(V_alt_root, full);
  if (rest == nullptr) return nullptr;
  return gen_copy(*rest != '\0' ? rest : ".");
}

extern "C" char *gen_viewpathlocalname(const char *name) {
  if (name == nullptr) return nullptr;
  if (!gen_isviewpathing()) return gen_copy(name);
  RealPath real(name);
  if (real.text == nullptr) return gen_copy(name);
  for (int i = 0; i < V_ndir; i++) {
    const char *rest = strictly_under(V_nodes[i], real.text);
    if (rest == nullptr) continue;
    return i == 0 ? gen_copy(real.text) : gen_sconcat(V_nodes[0], rest);
  }
  return nullptr;
}

extern "C" char *gen_viewpathnextname(const char *name) {
  if (name == nullptr || !gen_isviewpathing()) return nullptr;
  RealPath real(name);
  if (real.text == nullptr) return nullptr;
  for (int i = 0; i + 1 < V_ndir; i++) {
    const char *rest = strictly_under(V_nodes[i], real.text);
    if (rest == nullptr) continue;
    char *candidate = gen_sconcat(V_nodes[i + 1], rest);
    if (access(candidate, F_OK) == 0) return candidate;
    gen_free(candidate);
  }
  return nullptr;
}

/* ======================================================================
 * The layer's current directory, and V_cat
 * ====================================================================== */

extern "C" void V_fix_cwd(const char *dir) {
  if (dir == nullptr) return;
  char *next = dir[0] == '/' ? gen_copy(dir) : gen_sconcat(V_cwd, dir);
  V_compath(next);
  gen_free(V_cwd);
  V_cwd = next;
}

extern "C" char *V_cat(char *dst, ...) {
  if (dst == nullptr) return nullptr;
  va_list args;
  va_start(args, dst);
  char *end = dst;
  for (const char *s = va_arg(args, const char *); s != nullptr; s = va_arg(args, const char *)) {
    const size_t length = strlen(s);
    memcpy(end, s, length);
    end += length;
  }
  va_end(args);
  *end = '\0';
  return dst;
}
