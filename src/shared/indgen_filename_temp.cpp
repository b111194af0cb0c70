/*
 * indgen_filename_temp.cpp - unique temporary names.  A stem is
 * "qo_" + process id + counter + "." in base 32, so that processes differ by
 * their id and the names of one process by a counter that lasts as long as
 * the process.  A name is taken when gen_stat finds it; nothing reserves a
 * free name until the caller creates the file.  Contracts:
 * indgen_filename.h.
 */
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "indgen_filename.h"
#include "indgen_host.h"
#include "indgen_string.h"
#include "indgeninit.h"
#include "indview.h"

namespace {

/* Directory of the second name, set by tmp2name for one run of
 * xxtmp3names, which clears it. */
const char *file2_in_dir = nullptr;

/* The process-wide temporary-name counter; names use 1 to kMaxCount. */
int cnt = 0;
constexpr int kMaxCount = 0xFFFFF;

/* The digits of base 32. */
constexpr char hexmap[] = "0123456789abcdefghijklmnopqrstuv";

/* The base name a stem starts from; what follows "qo_" is rewritten. */
constexpr char kStemTemplate[] = "qo_XXXXXXXxxxx.yyy";
constexpr size_t kTemplateTail = sizeof kStemTemplate - 1 - 3; /* behind "qo_" */

/* Appends value in base 32: `groups` groups of 5 bits, the first at bit
 * top_bit, leading zero groups left out. */
void append_base32(std::string &out, uint32_t value, int groups, int top_bit) {
  bool started = false;
  for (int shift = top_bit; groups > 0; groups--, shift -= 5) {
    const unsigned digit = (value >> shift) & 31u;
    if (digit != 0 || started) {
      out += hexmap[digit];
      started = true;
    }
  }
}

/* One stem per directory: the joined template or the fixed builder name,
 * without the process id and counter. */
std::string stem_prefix(const char *dir, const char *fixed_name) {
  char *joined = gen_sconcat(dir, fixed_name != nullptr ? fixed_name : kStemTemplate);
  std::string stem(joined);
  gen_free(joined);
  if (fixed_name != nullptr) {
    if (stem.empty() || stem.back() != '.') stem += '.';
  } else {
    stem.erase(stem.size() - kTemplateTail); /* leaves ".../qo_" */
  }
  return stem;
}

/* stem + suffix, or false when it wouldn't fit a name buffer. */
bool make_name(const std::string &stem, const char *suffix, std::string &name) {
  name = stem;
  if (suffix != nullptr) name += suffix;
  return name.size() < GEN_TMPNAME_SIZE;
}

const char *drop_dot(const char *suffix) {
  return (suffix != nullptr && suffix[0] == '.') ? suffix + 1 : suffix;
}

void copy_name(char *buffer, const std::string &name) {
  memcpy(buffer, name.c_str(), name.size() + 1);
}

/* The search of xxtmp3names; fills the names that are wanted and returns
 * whether a free set was found. */
bool find_free_names(const char *dir, const char *const suffix[3], const bool wanted[3],
                     std::string names[3]) {
  const char *fixed = gen_getenv("BUILDER_TEMPORARY_NAME", nullptr);
  const std::string first_stem = stem_prefix(dir, fixed);
  const std::string second_stem =
      file2_in_dir != nullptr ? stem_prefix(file2_in_dir, fixed) : first_stem;

  for (;;) {
    if (cnt >= kMaxCount) return false;
    cnt++;
    std::string unique;
    if (fixed == nullptr) {
      append_base32(unique, static_cast<uint32_t>(getpid()), 7, 30);
      append_base32(unique, static_cast<uint32_t>(cnt), 4, 15);
      unique += '.';
    }
    bool any_used = false;
    for (int i = 0; i < 3; i++) {
      if (!wanted[i]) continue;
      const std::string &stem = (i == 1) ? second_stem : first_stem;
      if (!make_name(stem + unique, suffix[i], names[i])) return false;
      if (gen_alreadyused(names[i].c_str())) any_used = true;
    }
    if (!any_used) return true;
    if (fixed != nullptr) return false; /* a fixed name can't change */
  }
}

} // namespace

extern "C" int gen_alreadyused(const char *name) {
  const int saved_errno = errno;
  struct stat info;
  const int used = gen_stat(name, &info) == 0;
  errno = saved_errno;
  return used;
}

extern "C" char *xxtmp3names(const char *dir, char *name1, const char *suffix1, char *name2,
                             const char *suffix2, char *name3, const char *suffix3) {
  const char *suffix[3] = {drop_dot(suffix1), drop_dot(suffix2), drop_dot(suffix3)};
  const bool wanted[3] = {true, name2 != nullptr, name3 != nullptr};
  std::string names[3];
  const bool found = find_free_names(dir, suffix, wanted, names);
  file2_in_dir = nullptr;
  if (!found) return nullptr;

  if (name2 != nullptr) copy_name(name2, names[1]);
  if (name3 != nullptr) copy_name(name3, names[2]);
  if (name1 == nullptr) return gen_copy(names[0].c_str());
  copy_name(name1, names[0]);
  return name1;
}

extern "C" char *xtmp3names(const char *preferred, char *name1, const char *suffix1,
                            char *name2, const char *suffix2, char *name3,
                            const char *suffix3) {
  return xxtmp3names(gen_temp_dir(preferred), name1, suffix1, name2, suffix2, name3, suffix3);
}

extern "C" char *tmp1name(const char *preferred, char *name1, const char *suffix1) {
  return xtmp3names(preferred, name1, suffix1, nullptr, nullptr, nullptr, nullptr);
}

extern "C" char *tmp2name(const char *preferred, char *name1, const char *suffix1,
                          const char *dir2, const char *suffix2) {
  char twin[GEN_TMPNAME_SIZE];
  file2_in_dir = dir2;
  return xtmp3names(preferred, name1, suffix1, twin, suffix2, nullptr, nullptr);
}

extern "C" char *gen_tempname(const char *path, const char *suffix) {
  char *dir = gen_dirname(path);
  char *name = xxtmp3names(dir, nullptr, suffix, nullptr, nullptr, nullptr, nullptr);
  gen_free(dir);
  return name;
}

namespace {
/* Steps one counting character of a directory name: a..z, then 0..9, then
 * back to 'a' with a carry (returned as true). */
bool step_counting_char(char &c) {
  if (c == 'z') {
    c = '0';
  } else if (c == '9') {
    c = 'a';
    return true;
  } else {
    c++;
  }
  return false;
}
} // namespace

extern "C" char *gen_tmpdirname(const char *preferred) {
  char base[16];
  snprintf(base, sizeof base, "qo%04Xaa", static_cast<unsigned>(getpid()) & 0xFFFFu);
  char *name = gen_sconcat(gen_temp_dir(preferred), base);
  const size_t length = strlen(name);
  struct stat info;
  while (gen_sys_stat(name, &info) == 0) {
    if (!step_counting_char(name[length - 1])) continue;
    if (name[length - 2] == '9') {
      gen_free(name);
      return nullptr;
    }
    step_counting_char(name[length - 2]);
  }
  return name;
}

extern "C" char *gen_createtmpdir(const char *preferred, int mode) {
  char *name = gen_tmpdirname(preferred);
  if (name != nullptr && mkdir(name, static_cast<mode_t>(mode)) != 0) {
    gen_free(name);
    return nullptr;
  }
  return name;
}

extern "C" int gen_mkstemp(char *name_template) { return mkstemp(name_template); }

extern "C" FILE *gen_mkstempfp(char *name_template, const char *mode) {
  const int fd = mkstemp(name_template);
  if (fd < 0) return nullptr;
  FILE *stream = fdopen(fd, mode);
  if (stream == nullptr) close(fd);
  return stream;
}
