/*
 * indgen_fileops_dir.cpp - directory walks with restrictions, whole
 * directory listings and the search for a file in a tree.  Entries come in
 * the order of the system's directory stream.  Contracts: indgen_fileops.h.
 */
#include <dirent.h>
#include <sys/stat.h>

#include <cstring>
#include <utility>
#include <vector>

#include "indgen_filename.h"
#include "indgen_fileops.h"
#include "indgen_string.h"
#include "indgeninit.h"
#include "indview.h"

namespace {

bool is_dot_or_dotdot(const char *name) {
  return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

/* Classes the current entry of a walk: isdir, islink and st.  Returns
 * whether the entry may pass the suffix restriction at all. */
bool classify_entry(GenDir *dir) {
  memset(&dir->st, 0, sizeof dir->st);
  dir->isdir = 0;
  dir->islink = 0;
  if (dir->suffix != nullptr && !gen_issuffix(dir->name, dir->suffix))
    return false; /* counts as a file, unlooked at */
  if (dir->optimize) {
    dir->isdir = is_dot_or_dotdot(dir->name) || gen_getsuffix(dir->name) == nullptr;
  } else if (gen_stat(dir->fullname, &dir->st) == 0) {
    dir->isdir = S_ISDIR(dir->st.st_mode);
    dir->islink = S_ISLNK(dir->st.st_mode);
  } else {
    memset(&dir->st, 0, sizeof dir->st);
  }
  return true;
}

bool entry_passes(const GenDir *dir, bool suffix_matches) {
  if (!dir->isdir) return !dir->no_files && suffix_matches;
  if (dir->no_dirs) return false;
  if (dir->no_dots && is_dot_or_dotdot(dir->name)) return false;
  if (dir->no_cvs && strcmp(dir->name, "CVS") == 0) return false;
  return true;
}

/* A directory by device and inode, to keep a search from entering a
 * directory that is already on its way down (a loop through a link). */
using DirId = std::pair<dev_t, ino_t>;

char *find_in_tree(const char *dir, const char *name, int mode, bool recursive,
                   std::vector<DirId> &way_down) {
  char *candidate = gen_sconcat(dir, name);
  if (gen_access(candidate, mode) == 0 && !gen_isdir(candidate)) return candidate;
  gen_free(candidate);
  if (!recursive) return nullptr;

  GenDir walk;
  if (!gen_dir_open(&walk, dir)) return nullptr;
  gen_dir_restrict_files(&walk, 1, nullptr);
  char *found = nullptr;
  while (found == nullptr && gen_dir_next_entry(&walk) != nullptr) {
    const DirId id{walk.st.st_dev, walk.st.st_ino};
    bool on_the_way = false;
    for (const DirId &seen : way_down) on_the_way = on_the_way || seen == id;
    if (on_the_way) continue;
    way_down.push_back(id);
    found = find_in_tree(walk.fullname, name, mode, true, way_down);
    way_down.pop_back();
  }
  gen_dir_close(&walk);
  return found;
}

} // namespace

/* ======================================================================
 * Walks
 * ====================================================================== */

extern "C" int gen_dir_open(GenDir *dir, const char *path) {
  memset(dir, 0, sizeof *dir);
  if (path == nullptr) return 0;
  dir->dir = opendir(path);
  if (dir->dir == nullptr) return 0;
  dir->path = gen_copy(path);
  dir->no_dots = 1;
  return 1;
}

extern "C" void gen_dir_optimize_search(GenDir *dir, int flag) {
  dir->optimize = flag != 0;
}

extern "C" void gen_dir_restrict_files(GenDir *dir, int no_files, const char *suffix) {
  dir->no_files = no_files != 0;
  gen_strchange(&dir->suffix, suffix);
}

extern "C" void gen_dir_restrict_dirs(GenDir *dir, int no_dirs, int no_dots, int no_cvs) {
  dir->no_dirs = no_dirs != 0;
  dir->no_dots = no_dots != 0;
  dir->no_cvs = no_cvs != 0;
}

extern "C" const char *gen_dir_next_entry(GenDir *dir) {
  if (dir == nullptr || dir->dir == nullptr) return nullptr;
  for (;;) {
    const struct dirent *entry = readdir(dir->dir);
    if (entry == nullptr) return nullptr;
    dir->name = entry->d_name;
    gen_free(dir->fullname_store);
    dir->fullname_store = gen_dconcat(dir->path, entry->d_name);
    dir->fullname = dir->fullname_store;
    const bool suffix_matches = classify_entry(dir);
    if (entry_passes(dir, suffix_matches)) return dir->name;
  }
}

extern "C" void gen_dir_close(GenDir *dir) {
  gen_free(dir->path);
  gen_free(dir->suffix);
  if (dir->dir != nullptr) closedir(dir->dir);
  gen_free(dir->fullname_store);
  memset(dir, 0, sizeof *dir);
}

/* ======================================================================
 * Listings and searches
 * ====================================================================== */

extern "C" int gen_read_directory(const char *path, char ***names) {
  DIR *stream = path != nullptr ? opendir(path) : nullptr;
  if (stream == nullptr) {
    if (names != nullptr) *names = nullptr;
    return 0;
  }
  int count = 0;
  int capacity = 32;
  char **array = nullptr;
  if (names != nullptr)
    array = static_cast<char **>(gen_alloc(static_cast<unsigned>(capacity), sizeof(char *)));
  while (const struct dirent *entry = readdir(stream)) {
    if (array != nullptr) {
      if (count + 1 >= capacity) { /* keep a slot for the terminator */
        capacity *= 2;
        array = static_cast<char **>(
            gen_realloc(array, capacity * static_cast<int>(sizeof(char *))));
      }
      array[count] = gen_copy(entry->d_name);
    }
    count++;
  }
  closedir(stream);
  if (array != nullptr) {
    array[count] = nullptr;
    *names = array;
  }
  return count;
}

extern "C" char *gen_find_file(const char *dir, const char *name, int mode, int recursive) {
  if (!gen_is_basename(name) || !gen_isdir(dir)) return nullptr;
  std::vector<DirId> way_down;
  struct stat info;
  if (gen_stat(dir, &info) == 0) way_down.emplace_back(info.st_dev, info.st_ino);
  return find_in_tree(dir, name, mode, recursive != 0, way_down);
}
