/*
 * indgen_filename.cpp - file names as text: parts, suffixes, expansion
 * against the home and current directories, comparison, mangling and name
 * lists.  Temporary names are in indgen_filename_temp.cpp.  Contracts:
 * indgen_filename.h.
 */
#include "indgen_filename.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "indgen_canon.h"
#include "indgen_host.h"
#include "indgen_string.h"
#include "indgeninit.h"
#include "indview.h"

/* ======================================================================
 * Private state and helpers
 * ====================================================================== */

namespace {

/* The separator of names on this host. */
constexpr char favorite_slash = '/';

/* Room for the current directory: 1024 characters and the terminator.
 * Empty means "not known". */
char cached_cwd[1025];

bool is_empty(const char *s) { return s == nullptr || s[0] == '\0'; }

bool is_digit(char c) { return c >= '0' && c <= '9'; }

/* A new heap string holding the first length characters of text. */
char *copy_of(const char *text, size_t length) { return gen_copyn(text, static_cast<int>(length)); }

/* A canonical std::string copy of name. */
std::string canonical(const char *name) {
  char *copy = gen_copy(name);
  gen_canonicalfilename(copy);
  std::string result(copy);
  gen_free(copy);
  return result;
}

/* A suffix argument without its one optional leading '.'. */
const char *without_dot(const char *suffix) { return suffix[0] == '.' ? suffix + 1 : suffix; }

/* The base name of name without its suffix, as (start, length). */
std::string stem_of_base(const char *name) {
  const char *base = gen_basename(name);
  const char *dot = strrchr(base, '.');
  return std::string(base, dot != nullptr ? static_cast<size_t>(dot - base) : strlen(base));
}

/* The last of the characters in `set` within name, or null. */
const char *last_of(const char *name, const char *set) {
  const char *last = nullptr;
  for (const char *c = name; *c != '\0'; c++)
    if (strchr(set, *c) != nullptr) last = c;
  return last;
}

bool same_file(const struct stat &a, const struct stat &b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/* The directory of name for gen_samefile: "." for a name without one. */
char *directory_or_dot(const char *name) {
  char *dir = gen_dirname(name);
  return dir != nullptr ? dir : gen_copy(".");
}

/* The relative part of name under the absolute base; see
 * gen_relative_filename. */
char *relative_without_resolving(const char *base, const char *name) {
  if (base == nullptr || name == nullptr || !gen_absolutefilename(base)) return nullptr;
  const size_t base_length = strlen(base);
  if (strncmp(name, base, base_length) != 0) return nullptr;
  const char *rest = name + base_length;
  if (base_length > 0 && base[base_length - 1] == '/') return gen_copy(rest);
  if (rest[0] == '/') return gen_copy(rest + 1);
  return nullptr;
}

/* The home directory named by a leading "~" or "~user" of name (whose
 * first character is '~'), stored in home; false when there is none. */
bool home_of_tilde(const char *name, std::string &home) {
  const char *user_end = name + 1 + strcspn(name + 1, "/");
  if (user_end == name + 1) {
    const char *own = gen_gethomedir();
    if (own == nullptr) return false;
    home = own;
    return true;
  }
  const std::string user(name + 1, user_end);
  const struct passwd *entry = getpwnam(user.c_str());
  if (entry == nullptr || entry->pw_dir == nullptr) return false;
  home = entry->pw_dir;
  return true;
}

} // namespace

/* ======================================================================
 * Canonical and absolute
 * ====================================================================== */

extern "C" int gen_is_basename(const char *name) {
  return !is_empty(name) && strchr(name, '/') == nullptr;
}

extern "C" char *gen_relative_filename(const char *base, const char *name, int resolve) {
  if (base == nullptr || name == nullptr) return nullptr;
  char *result = relative_without_resolving(base, name);
  if (result != nullptr || !resolve) return result;
  char *real_base = gen_realpath(base);
  char *real_name = gen_realpath(name);
  result = relative_without_resolving(real_base, real_name);
  gen_free(real_base);
  gen_free(real_name);
  return result;
}

extern "C" char *gen_expand_filename(const char *name) {
  if (name == nullptr) return nullptr;
  if (name[0] == '\0') return gen_copy("");
  if (name[0] == '~') {
    std::string home;
    if (home_of_tilde(name, home)) {
      const char *slash = strchr(name, '/');
      const char *rest = slash != nullptr ? slash + 1 : "";
      char *result = rest[0] != '\0' ? gen_sconcat(home.c_str(), rest) : gen_copy(home.c_str());
      return gen_canonicalfilename(result);
    }
  }
  if (gen_absolutefilename(name)) return gen_canonicalfilename(gen_copy(name));
  return gen_sconcat(gen_getcwd(), name);
}

extern "C" char *gen_expand_filename_using_cwd(const char *cwd, const char *name) {
  if (name == nullptr) return nullptr;
  if (name[0] == '\0') return gen_copy("");
  if (cwd == nullptr || name[0] == '~') return gen_expand_filename(name);
  if (gen_absolutefilename(name)) return gen_canonicalfilename(gen_copy(name));
  return gen_sconcat(cwd, name);
}

/* ======================================================================
 * Directory and base
 * ====================================================================== */

extern "C" const char *gen_basename(const char *name) {
  if (name == nullptr) return nullptr;
  const char *slash = strrchr(name, '/');
  return slash != nullptr ? slash + 1 : name;
}

extern "C" const char *gen_msw_basename(const char *name) {
  if (name == nullptr) return nullptr;
  const char *separator = last_of(name, "/\\:");
  return separator != nullptr ? separator + 1 : name;
}

extern "C" const char *gen_basename_anyhost(const char *name) { return gen_msw_basename(name); }

extern "C" char *gen_dirname(const char *name) {
  if (name == nullptr) return nullptr;
  const char *slash = strrchr(name, '/');
  if (slash == nullptr) return nullptr;
  return copy_of(name, slash == name ? 1 : static_cast<size_t>(slash - name));
}

extern "C" char *gen_dirname_anyhost(const char *name) {
  if (name == nullptr) return nullptr;
  const char *separator = last_of(name, "/\\:");
  if (separator == nullptr) return nullptr;
  const bool keep = separator == name || *separator == ':' || separator[-1] == ':';
  return copy_of(name, static_cast<size_t>(separator - name) + (keep ? 1 : 0));
}

extern "C" char *gen_topdir(const char *name) {
  if (name == nullptr) return nullptr;
  while (*name == '/') name++;
  size_t length = strcspn(name, "/\\:");
  if (name[length] == ':') length++;
  return copy_of(name, length);
}

extern "C" const char *gen_popdir(const char *name) {
  if (name == nullptr) return nullptr;
  const char *first = name;
  while (*first == '/') first++;
  const char *slash = strchr(first, '/');
  if (slash != nullptr) return slash;
  return first > name ? first - 1 : nullptr;
}

extern "C" int gen_dirmatch(const char *a, const char *b) {
  if (a == nullptr || b == nullptr) return 0;
  const size_t a_dir = static_cast<size_t>(gen_basename(a) - a);
  const size_t b_dir = static_cast<size_t>(gen_basename(b) - b);
  return a_dir == b_dir && memcmp(a, b, a_dir) == 0;
}

extern "C" int gen_dir_contains_file(const char *dir, const char *name) {
  if (dir == nullptr || name == nullptr) return 0;
  const size_t length = strlen(dir);
  if (strncmp(name, dir, length) != 0) return 0;
  const char *rest = name + length;
  while (*rest == '/') rest++;
  return rest[0] != '\0' && strchr(rest, '/') == nullptr;
}

extern "C" int gen_tree_contains_file(const char *dir, const char *name) {
  if (dir == nullptr || name == nullptr) return 0;
  const size_t length = strlen(dir);
  if (strncmp(name, dir, length) != 0) return 0;
  return name[length] == '/' || (length > 0 && dir[length - 1] == '/');
}

extern "C" int gen_isDirSubdirOfDir(const char *sub, const char *dir) {
  if (sub == nullptr || dir == nullptr) return 0;
  if (strcmp(sub, dir) == 0) return 1;
  const std::string canonical_sub = canonical(sub);
  const std::string canonical_dir = canonical(dir);
  const size_t length = canonical_dir.size();
  if (canonical_sub.compare(0, length, canonical_dir) != 0) return 0;
  if (length == 1) return 1;
  const char next = canonical_sub.c_str()[length];
  return next == '\0' || next == '/' || next == '\\';
}

/* ======================================================================
 * Suffixes
 * ====================================================================== */

extern "C" const char *gen_getsuffix(const char *name) {
  if (name == nullptr) return nullptr;
  const char *dot = strrchr(gen_basename(name), '.');
  if (dot == nullptr) return nullptr;
  const char *suffix = dot + 1;
  /* A versioned shared library: "lib.so.1.2" is a "so", found by stepping
   * back over the digits in front of the last '.' to a ".so." or ".sa.". */
  if (is_digit(*suffix) && suffix - name >= 7) {
    const char *run = dot;
    while (run > name && is_digit(run[-1])) run--;
    if (run - name >= 5) {
      if (strncmp(run - 4, ".so.", 4) == 0) return "so";
      if (strncmp(run - 4, ".sa.", 4) == 0) return "sa";
    }
  }
  return suffix;
}

extern "C" int gen_issuffix(const char *name, const char *suffix) {
  const char *own = gen_getsuffix(name);
  if (own == nullptr) return 0;
  if (suffix == nullptr) return 1;
  return strcmp(own, without_dot(suffix)) == 0;
}

extern "C" char *gen_changesuffix(const char *name, const char *suffix) {
  if (name == nullptr) return gen_copy(suffix);
  const char *dot = strrchr(gen_basename(name), '.');
  std::string result(name, dot != nullptr ? static_cast<size_t>(dot - name) : strlen(name));
  if (suffix != nullptr) {
    result += '.';
    result += without_dot(suffix);
  }
  return gen_copy(result.c_str());
}

extern "C" char *gen_addsuffix(const char *name, const char *suffix) {
  if (suffix == nullptr) return gen_copy(name);
  if (name == nullptr) return gen_copy(suffix);
  return gen_concat3(name, ".", without_dot(suffix));
}

extern "C" char *gen_changedirandsuffix(const char *dir, const char *name, const char *infix,
                                        const char *suffix) {
  if (name == nullptr) return gen_sconcat(dir, suffix);
  std::string result;
  if (!is_empty(dir)) {
    result = dir;
    result += '/';
  }
  result += stem_of_base(name);
  if (!is_empty(infix)) result += infix;
  if (suffix != nullptr) {
    result += '.';
    result += without_dot(suffix);
  }
  char *joined = gen_copy(result.c_str());
  return dir != nullptr ? gen_canonicalfilename(joined) : joined;
}

extern "C" int gen_basenamelen(const char *name) {
  if (name == nullptr) return 0;
  const char *dot = strrchr(name, '.');
  return static_cast<int>(dot != nullptr ? static_cast<size_t>(dot - name) : strlen(name));
}

extern "C" int gen_basenamematch(const char *a, const char *b) {
  if (a == nullptr || b == nullptr) return 0;
  return stem_of_base(a) == stem_of_base(b);
}

extern "C" char *gen_makeshort(const char *name, const char *suffix) {
  return gen_changesuffix(gen_basename(name), suffix);
}

extern "C" char *gen_symfilename(const char *name) {
  return gen_addsuffix(name, gen_getenv("ORBEXSYM", ".sym"));
}

/* ======================================================================
 * Identity and folding
 * ====================================================================== */

extern "C" int gen_FilenameTailCmp(const char *a, const char *b, int exact) {
  if (a == nullptr || b == nullptr) return 0;
  std::string whole = canonical(a);
  std::string tail = canonical(b);
  if (whole.size() < tail.size()) return 0;
  /* A separator in front of the tail makes the match fall on a component
   * boundary. */
  if (whole.empty() || whole[0] != favorite_slash) whole.insert(0, 1, favorite_slash);
  if (tail.empty() || tail[0] != favorite_slash) tail.insert(0, 1, favorite_slash);
  if (whole.size() < tail.size()) return 0;
  const char *end_of_whole = whole.c_str() + (whole.size() - tail.size());
  return exact ? strcmp(end_of_whole, tail.c_str()) == 0 : gen_strequal(end_of_whole, tail.c_str());
}

extern "C" int gen_samefile(const char *a, const char *b) {
  if (a == nullptr || b == nullptr) return 0;
  const char *base_a = gen_basename(a);
  const char *base_b = gen_basename(b);
  if (base_a[0] != '\0' && base_b[0] != '\0' && strcmp(base_a, base_b) != 0) return 0;
  if (strcmp(a, b) == 0) return 1;

  struct stat info_a;
  struct stat info_b;
  const bool found_a = gen_stat(a, &info_a) == 0;
  const bool found_b = gen_stat(b, &info_b) == 0;
  if (found_a && found_b) return same_file(info_a, info_b);
  if (found_a || found_b) return 0;

  char *dir_a = directory_or_dot(a);
  char *dir_b = directory_or_dot(b);
  const bool dir_found_a = gen_stat(dir_a, &info_a) == 0;
  const bool dir_found_b = gen_stat(dir_b, &info_b) == 0;
  gen_free(dir_a);
  gen_free(dir_b);
  if (dir_found_a && dir_found_b) return same_file(info_a, info_b);
  if (dir_found_a || dir_found_b) return 0;

  char *real_a = gen_realpath(a);
  char *real_b = gen_realpath(b);
  const int same = strcmp(real_a, real_b) == 0;
  gen_free(real_a);
  gen_free(real_b);
  return same;
}

extern "C" uint32_t gen_manglefilename_hashfunc(const char *name) {
  if (name == nullptr) return 0;
  uint32_t hash = 0;
  for (const unsigned char *c = reinterpret_cast<const unsigned char *>(name); *c != '\0'; c++)
    hash = ((hash << 7) | (hash >> 25)) ^ *c;
  return hash;
}

extern "C" char *gen_manglefilename_length(const char *name, int length, int hash_tail) {
  if (name == nullptr || length <= 9) return nullptr;
  const size_t tail_room = static_cast<size_t>(length) - 9;
  const size_t name_length = strlen(name);
  const char *tail = name_length > tail_room ? name + (name_length - tail_room) : name;
  char *result = static_cast<char *>(gen_alloc(1, static_cast<unsigned>(length)));
  snprintf(result, static_cast<size_t>(length), "%08x%s",
           static_cast<unsigned>(gen_manglefilename_hashfunc(hash_tail ? tail : name)), tail);
  for (char *c = result; *c != '\0'; c++)
    if (*c == '/' || *c == '\\' || *c == ':') *c = '@';
  return result;
}

extern "C" char *gen_manglefilename(const char *name) {
  return gen_manglefilename_length(name, 64, 1);
}

/* ======================================================================
 * Home and current directory
 * ====================================================================== */

extern "C" char *gen_getusername(void) {
  static char *cached_username = nullptr;
  static bool looked_up = false;
  if (!looked_up) {
    looked_up = true;
    const struct passwd *entry = getpwuid(getuid());
    if (entry != nullptr && !is_empty(entry->pw_name)) cached_username = gen_copy(entry->pw_name);
  }
  return gen_copy(cached_username);
}

extern "C" const char *gen_gethomedir(void) {
  static char *homeDir = nullptr;
  static bool looked_up = false;
  if (!looked_up) {
    looked_up = true;
    const char *home = gen_getenv("HOME", nullptr);
    if (home == nullptr) {
      const struct passwd *entry = getpwuid(getuid());
      if (entry != nullptr) home = entry->pw_dir;
    }
    homeDir = gen_copy(home);
  }
  return homeDir;
}

extern "C" const char *gen_getcwd(void) {
  if (cached_cwd[0] != '\0') return cached_cwd;
  if (getcwd(cached_cwd, sizeof cached_cwd - 1) == nullptr) {
    cached_cwd[0] = '\0';
    const char *home = gen_gethomedir();
    if (home == nullptr) {
      gen_errorexit(1, "Could not get current working directory.");
      return cached_cwd;
    }
    strncpy(cached_cwd, home, sizeof cached_cwd - 1);
    cached_cwd[sizeof cached_cwd - 1] = '\0';
  }
  return cached_cwd;
}

extern "C" void gen_invalidate_cwd(void) { cached_cwd[0] = '\0'; }

extern "C" const char *gen_getdot(void) {
  static const char Dot[] = ".";
  return Dot;
}

extern "C" const char *gen_getdevice(void) { return nullptr; }

extern "C" const char *gen_getdevdot(void) {
  static char *devdot = nullptr;
  if (devdot == nullptr) devdot = gen_concat_sep(gen_getdevice(), ':', gen_getdot());
  return devdot;
}

/* ======================================================================
 * Name lists
 * ====================================================================== */

extern "C" const char *gen_getpath(const char *list, char *buffer, int size) {
  if (list == nullptr) return nullptr;
  while (*list == ':') list++;
  if (*list == '\0') return nullptr;
  const size_t entry_length = strcspn(list, ":");
  const size_t room = size > 0 ? static_cast<size_t>(size) : 0;
  const size_t copied = entry_length < room ? entry_length : room;
  memcpy(buffer, list, copied);
  buffer[copied] = '\0';
  return list + entry_length;
}

extern "C" const char *gen_addpath(const char *name, char **current) {
  if (name == nullptr) return nullptr;
  if (gen_dirmatch(name, *current)) return gen_basename(name);
  char *replacement;
  if (strchr(name, '/') == nullptr) {
    char *current_dir = gen_dirname(*current);
    const bool current_is_dot = current_dir != nullptr && strcmp(current_dir, ".") == 0;
    gen_free(current_dir);
    if (current_is_dot) return name;
    replacement = gen_sconcat(gen_getdevdot(), name);
  } else {
    replacement = gen_copy(name);
  }
  gen_free(*current);
  *current = replacement;
  return replacement;
}
