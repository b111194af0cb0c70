/*
 * indconfig.cpp - source roots (from a list or from the viewpath) and the
 * three configuration directories.  Contracts: indconfig.h.
 */
#include "indconfig.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>

#include "indgen_canon.h"
#include "indgen_filename.h"
#include "indgen_fileops.h"
#include "indgen_string.h"
#include "indgeninit.h"
#include "indview.h"

/* ======================================================================
 * State
 * ====================================================================== */

char **sourceroots = nullptr;
char **alt_sourceroots = nullptr;
int nsourceroots = 0;
int allow_fake_roots = 0;
int use_vp_as_src_root = 0;
char *user_configuration_directory = nullptr;
char *site_configuration_directory = nullptr;
char *site_default_configuration_directory = nullptr;

namespace {

bool is_separator(char c) { return c == '/' || c == '\\'; }

/* Length of the list entry at text: up to ':', ';', ',' or the end, not
 * counting the ':' of a leading drive prefix such as "c:/". */
size_t entry_length(const char *text) {
  size_t skip = 0;
  if (isalnum(static_cast<unsigned char>(text[0])) && text[1] == ':' && is_separator(text[2]))
    skip = 3;
  return skip + strcspn(text + skip, ":;,");
}

/* Adds one list entry as the next root. */
void add_root(std::string entry) {
  while (entry.size() > 1 && is_separator(entry.back())) entry.pop_back();
  char *real = realpath(entry.c_str(), nullptr);
  char *root;
  if (real != nullptr) {
    root = gen_copy(real);
    free(real);
  } else {
    root = gen_copy(entry.c_str());
    allow_fake_roots = 1;
  }
  const bool alternate = gen_absolutefilename(entry.c_str()) && entry != root;
  sourceroots[nsourceroots] = root;
  alt_sourceroots[nsourceroots] = alternate ? gen_copy(entry.c_str()) : nullptr;
  nsourceroots++;
}

/* A new string with name relative to root, or null when root doesn't hold
 * it. */
char *relative_to(const char *root, const char *name) {
  const size_t length = strlen(root);
  if (strncmp(root, name, length) != 0) return nullptr;
  const char *rest = name + length;
  if (*rest == '\0') return gen_copy(".");
  if (!is_separator(*rest) && !(length > 0 && is_separator(root[length - 1]))) return nullptr;
  while (is_separator(*rest)) rest++;
  return gen_copy(*rest != '\0' ? rest : ".");
}

/* Stores a new directory in *cache when it is still empty; returns it. */
const char *cached_dir(char **cache, const char *sub) {
  if (*cache == nullptr) *cache = gen_sconcat(gen_getprogdir(), sub);
  return *cache;
}

/* A new dir/name when that file passes gen_access(mode) and is no
 * directory, else null. */
char *found_in(const char *dir, const char *name, int mode) {
  char *file = gen_sconcat(dir, name);
  if (gen_access(file, mode) == 0 && !gen_isdir(file)) return file;
  gen_free(file);
  return nullptr;
}

/* True when gen_stat finds name. */
bool exists(const char *name) {
  struct stat info;
  return gen_stat(name, &info) == 0;
}

}  // namespace

/* ======================================================================
 * Source roots
 * ====================================================================== */

extern "C" int gen_sourceroot_init(const char *list) {
  if (list == nullptr || list[0] == '\0') return 0;
  gen_sourceroot_cleanup();
  sourceroots = static_cast<char **>(gen_alloc(GEN_MAXSOURCEROOTS + 1, sizeof(char *)));
  alt_sourceroots = static_cast<char **>(gen_alloc(GEN_MAXSOURCEROOTS + 1, sizeof(char *)));
  nsourceroots = 0;
  allow_fake_roots = 0;
  const char *text = list;
  while (*text != '\0' && nsourceroots < GEN_MAXSOURCEROOTS) {
    const size_t length = entry_length(text);
    if (length > 0) add_root(std::string(text, length));
    text += length;
    if (*text != '\0') text++; /* the separator */
  }
  /* The arrays came zeroed: the entry behind the last root is null. */
  return nsourceroots;
}

extern "C" void gen_sourceroot_initfromviewpath(void) { use_vp_as_src_root = 1; }

extern "C" void gen_sourceroot_cleanup(void) {
  for (int i = 0; i < nsourceroots; i++) {
    if (sourceroots != nullptr) gen_free(sourceroots[i]);
    if (alt_sourceroots != nullptr) gen_free(alt_sourceroots[i]);
  }
  gen_free(sourceroots);
  gen_free(alt_sourceroots);
  sourceroots = alt_sourceroots = nullptr;
  nsourceroots = 0;
}

extern "C" char *gen_sourceroot_getrelname(const char *name, int *index) {
  if (index != nullptr) *index = -1;
  if (name == nullptr) return nullptr;
  if (use_vp_as_src_root && gen_isviewpathing()) {
    if (index != nullptr) *index = 0;
    return V_getrel(name);
  }
  if (nsourceroots == 0) return nullptr;
  return gen_get_relative(sourceroots, alt_sourceroots, nsourceroots, name, index);
}

extern "C" int gen_sourceroot_getroots(char ***roots, char ***alt_roots) {
  if (roots != nullptr) *roots = sourceroots;
  if (alt_roots != nullptr) *alt_roots = alt_sourceroots;
  return nsourceroots;
}

extern "C" char *gen_get_relative(char *const *roots, char *const *alt_roots, int count,
                                  const char *name, int *index) {
  if (index != nullptr) *index = -1;
  if (name == nullptr || roots == nullptr) return nullptr;
  char *joined = nullptr;
  if (!gen_absolutefilename(name) && !allow_fake_roots)
    name = joined = gen_sconcat(gen_getcwd(), name);
  char *result = nullptr;
  for (int i = 0; i < count && result == nullptr; i++) {
    if (roots[i] != nullptr) result = relative_to(roots[i], name);
    if (result == nullptr && alt_roots != nullptr && alt_roots[i] != nullptr)
      result = relative_to(alt_roots[i], name);
    if (result != nullptr && index != nullptr) *index = i;
  }
  gen_free(joined);
  return result;
}

/* ======================================================================
 * Configuration directories
 * ====================================================================== */

extern "C" const char *gen_getuserconfigdir(int create, char **error) {
  if (error != nullptr) *error = nullptr;
  if (user_configuration_directory == nullptr)
    user_configuration_directory = gen_sconcat(gen_gethomedir(), ".tov");
  if (create && gen_createdir(user_configuration_directory, 0755) != 0 && error != nullptr)
    *error = gen_concat("Couldn't create user config directory: ", user_configuration_directory);
  return user_configuration_directory;
}

extern "C" void gen_setuserconfigdir(const char *dir) {
  if (dir == nullptr || dir[0] == '\0') return;
  user_configuration_directory = gen_fcopy(user_configuration_directory, dir);
}

extern "C" const char *gen_getsiteconfigdir(void) {
  return cached_dir(&site_configuration_directory, gen_is_qo_win32_dev_program()
                                                       ? "../src/configuration/tov_internal"
                                                       : "config");
}

extern "C" const char *gen_getsitedefaultconfigdir(void) {
  return cached_dir(&site_default_configuration_directory,
                    gen_is_qo_win32_dev_program() ? "../src/configuration/defaults" : "defaults");
}

extern "C" char *gen_searchfileinconfigdirs(const char *name, int mode, int defaults_only,
                                            char **error) {
  if (error != nullptr) *error = nullptr;
  if (name == nullptr) return nullptr;
  if (gen_absolutefilename(name))
    return gen_access(name, mode) == 0 && !gen_isdir(name) ? gen_copy(name) : nullptr;
  char *found = nullptr;
  if (!defaults_only) {
    found = found_in(gen_getuserconfigdir(0, error), name, mode);
    if (found == nullptr) found = found_in(gen_getsiteconfigdir(), name, mode);
  }
  if (found == nullptr) found = found_in(gen_getsitedefaultconfigdir(), name, mode);
  return found;
}

extern "C" void gen_cleanupconfigdirs(void) {
  gen_free(user_configuration_directory);
  gen_free(site_configuration_directory);
  gen_free(site_default_configuration_directory);
  user_configuration_directory = site_configuration_directory =
      site_default_configuration_directory = nullptr;
}

extern "C" char *gen_createconfigfilename(const char *dir, const char *name, int fallback_to_name,
                                          int check_override) {
  char *config_name = name != nullptr ? gen_changesuffix(name, ".cfg") : nullptr;
  if (check_override && config_name != nullptr) {
    char *override_dir = gen_dconcat(dir, "override");
    char *candidate = gen_sconcat(override_dir, config_name);
    gen_free(override_dir);
    if (exists(candidate)) {
      gen_free(config_name);
      return candidate;
    }
    gen_free(candidate);
  }
  char *shared = gen_sconcat(dir, "tov.cfg");
  if (config_name == nullptr || !fallback_to_name || exists(shared)) {
    gen_free(config_name);
    return shared;
  }
  gen_free(shared);
  char *own = gen_sconcat(dir, config_name);
  gen_free(config_name);
  return own;
}
