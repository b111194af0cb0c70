/*
 * indgen_fileops_read.cpp - stream calls with standard messages (the
 * gen_safe_ family, the only part of the file operations that prints) and
 * the readers: lines, tokens, whole lines of any length, whole files,
 * counts, single-line files and word lists.  Contracts: indgen_fileops.h.
 */
#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>

#include "indgen_fileops.h"
#include "indgen_string.h"
#include "indgeninit.h"
#include "indview.h"

namespace {

/* The step by which gen_getline and gen_gettoken grow a buffer. */
constexpr int kGrowth = 250;

/* The name as the safe family's messages show it: "role 'name'" with a
 * role, the name alone without, "file" for no name. */
std::string shown_name(const char *name, const char *role) {
  if (name == nullptr) return "file";
  if (role == nullptr) return name;
  return std::string(role) + " '" + name + "'";
}

void report_read_failure(const char *name) {
  if (name != nullptr)
    gen_perror("Error reading from '%s'", name);
  else
    gen_perror("Error reading from file");
}

/* Grows *buf by kGrowth bytes through gen_realloc. */
void grow(char **buf, int *size) {
  *size += kGrowth;
  *buf = static_cast<char *>(gen_realloc(*buf, *size));
}

} // namespace

/* ======================================================================
 * Safe stream calls
 * ====================================================================== */

extern "C" FILE *gen_safe_fopen(const char *name, const char *role, const char *mode) {
  FILE *stream = gen_fopen(name, mode);
  if (stream == nullptr) {
    const char *first = mode != nullptr ? strpbrk(mode, "raw") : nullptr;
    const char *direction = (first != nullptr && *first != 'r') ? "output" : "input";
    gen_perrorexit(1, "Unable to open %s for %s: ", shown_name(name, role).c_str(), direction);
  }
  return stream;
}

extern "C" long gen_safe_fread(const char *name, void *buf, size_t size, size_t count,
                               FILE *stream) {
  if (buf == nullptr) {
    gen_error("internal: null buffer passed to gen_safe_fread");
    return -1;
  }
  size_t got = 0;
  if (stream != nullptr)
    got = fread(buf, size, count, stream);
  else
    errno = EBADF;
  if (got < 1) report_read_failure(name);
  return static_cast<long>(got);
}

extern "C" void *gen_safe_readbytes(const char *name, FILE *stream, void *buf, size_t size) {
  if (size == 0) return buf;
  void *block = buf != nullptr ? buf : gen_alloc(1, static_cast<unsigned>(size));
  size_t got = 0;
  if (stream != nullptr)
    got = fread(block, size, 1, stream);
  else
    errno = EBADF;
  if (got < 1) report_read_failure(name);
  return block;
}

extern "C" size_t gen_safe_fwrite(const char *name, const void *buf, size_t size, size_t count,
                                  FILE *stream) {
  size_t written = 0;
  if (stream != nullptr && buf != nullptr)
    written = fwrite(buf, size, count, stream);
  else
    errno = EBADF;
  if (written < count) {
    if (name != nullptr)
      gen_perror("Error writing to '%s'", name);
    else
      gen_perror("Error writing to file");
  }
  return written;
}

extern "C" int gen_safe_fclose(const char *name, const char *role, FILE *stream) {
  int result = EOF;
  if (stream != nullptr)
    result = fclose(stream);
  else
    errno = EBADF;
  if (result != 0) gen_perror("Error closing %s: ", shown_name(name, role).c_str());
  return result;
}

extern "C" int gen_safe_fseek(const char *name, FILE *stream, long offset, int whence) {
  int result = -1;
  if (stream != nullptr)
    result = fseek(stream, offset, whence);
  else
    errno = EBADF;
  if (result != 0) {
    if (name != nullptr)
      gen_perrorexit(1, "seek failed to %ld in '%s'", offset, name);
    else
      gen_perrorexit(1, "seek failed to %ld in file", offset);
  }
  return result;
}

/* ======================================================================
 * Line and token readers
 * ====================================================================== */

extern "C" char *gen_getline(FILE *stream, char **buf, int *size) {
  if (stream == nullptr) return nullptr;
  int stored = 0;
  /* Room counted from the start of the buffer.  After growing, the room is
   * counted as one step even if a byte was left over: never more than the
   * buffer really has. */
  int room = *buf != nullptr ? *size : 0;
  int c;
  for (;;) {
    c = getc(stream);
    if (c == '\n' || c == '\r' || c == EOF) break;
    if (room < 2) {
      grow(buf, size);
      room = kGrowth;
    }
    (*buf)[stored++] = static_cast<char>(c);
    room--;
  }
  int last = c;
  if (c == '\r') last = getc(stream); /* CR LF is one line end */
  if (stored == 0 && last == EOF) return nullptr;
  if (*buf == nullptr || stored >= *size) grow(buf, size); /* an empty first line */
  (*buf)[stored] = '\0';
  return *buf;
}

extern "C" char *gen_gettoken(FILE *stream, char **buf, int *size) {
  if (stream == nullptr) return nullptr;
  int c;
  do {
    c = getc(stream);
  } while (c != EOF && gen_isspace(c));
  if (c == EOF) return nullptr;
  int stored = 0;
  for (; c != EOF && !gen_isspace(c); c = getc(stream)) {
    if (*buf == nullptr || stored + 1 >= *size) grow(buf, size);
    (*buf)[stored++] = static_cast<char>(c);
  }
  (*buf)[stored] = '\0';
  return *buf;
}

extern "C" char *gen_afgets(FILE *stream) {
  if (stream == nullptr) return nullptr;
  int size = 2048;
  int length = 0;
  char *block = static_cast<char *>(gen_alloc(1, static_cast<unsigned>(size)));
  for (;;) {
    block[size - 2] = '\0';
    if (fgets(block + length, size - length, stream) == nullptr) {
      block[length] = '\0';
      break;
    }
    if (block[size - 2] == '\0' || block[size - 2] == '\n') break;
    length = size - 1; /* the block is full up to its terminator */
    size *= 2;
    block = static_cast<char *>(gen_realloc(block, size));
  }
  return block;
}

/* ======================================================================
 * Whole files
 * ====================================================================== */

extern "C" int gen_getfile(const char *name, char *buf, int size) {
  const int fd = gen_open(name, O_RDONLY, 0);
  if (fd < 0) return fd;
  const ssize_t got = read(fd, buf, size > 0 ? static_cast<size_t>(size) : 0);
  close(fd);
  return static_cast<int>(got);
}

extern "C" int gen_readfile_into_buffer(const char *name, char **buf, int *size) {
  const int fd = gen_open(name, O_RDONLY, 0);
  if (fd < 0) return -1;
  size_t capacity = 4096;
  size_t length = 0;
  char *block = static_cast<char *>(malloc(capacity + 1));
  for (;;) {
    if (block == nullptr) break;
    const ssize_t got = read(fd, block + length, capacity - length);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 || length + static_cast<size_t>(got) > 0x7FFFFFFFu) {
      free(block);
      block = nullptr;
      break;
    }
    if (got == 0) break;
    length += static_cast<size_t>(got);
    if (length == capacity) {
      capacity *= 2;
      char *bigger = static_cast<char *>(realloc(block, capacity + 1));
      if (bigger == nullptr) free(block);
      block = bigger;
    }
  }
  close(fd);
  if (block == nullptr) return -1;
  block[length] = '\0';
  *buf = block;
  if (size != nullptr) *size = static_cast<int>(length);
  return 0;
}

extern "C" int gen_count_lines_in_file(const char *name) {
  FILE *stream = gen_fopen(name, "r");
  if (stream == nullptr) return 0;
  int lines = 0;
  int last = '\n';
  for (int c; (c = getc(stream)) != EOF; last = c)
    if (c == '\n') lines++;
  fclose(stream);
  return last == '\n' ? lines : lines + 1;
}

extern "C" char *gen_getsinglelineasciifile(const char *dir, const char *sub, const char *name,
                                            const char *fallback) {
  char *path;
  if (sub != nullptr && name != nullptr)
    path = gen_dsconcat(dir, sub, name);
  else if (sub != nullptr || name != nullptr)
    path = gen_sconcat(dir, sub != nullptr ? sub : name);
  else
    path = gen_copy(dir);

  char *line = nullptr;
  int size = 0;
  FILE *stream = gen_fopen(path, "r");
  gen_free(path);
  if (stream != nullptr) {
    const char *got = gen_getline(stream, &line, &size);
    fclose(stream);
    if (got != nullptr) return line;
  }
  gen_free(line);
  return gen_copy(fallback);
}

extern "C" char **gen_get_words_from_file(const char *name, int *count) {
  int ignored = 0;
  if (count == nullptr) count = &ignored;
  *count = 0;
  if (name == nullptr) return nullptr;
  const int size = gen_filesize(name);
  if (size < 0) return nullptr;
  const int fd = gen_open(name, O_RDONLY, 0);
  if (fd < 0) return nullptr;
  char *text = static_cast<char *>(gen_alloc(1, static_cast<unsigned>(size) + 3));
  size_t length = 0;
  while (length < static_cast<size_t>(size)) {
    const ssize_t got = read(fd, text + length, static_cast<size_t>(size) - length);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      if (got < 0) length = SIZE_MAX; /* failed: nothing to trust */
      break;
    }
    length += static_cast<size_t>(got);
  }
  close(fd);
  if (length == SIZE_MAX) {
    gen_free(text);
    return nullptr;
  }
  text[length] = '\0';
  length = strlen(text); /* the text ends at its first NUL */

  auto is_space = [](char c) { return isspace(static_cast<unsigned char>(c)) != 0; };
  int words = 0;
  for (size_t i = 0; i < length; i++)
    if (!is_space(text[i]) && (i == 0 || is_space(text[i - 1]))) words++;

  char **array = static_cast<char **>(gen_alloc(static_cast<unsigned>(words) + 2, sizeof(char *)));
  int next = 0;
  for (size_t i = 0; i < length;) {
    if (is_space(text[i])) {
      i++;
      continue;
    }
    size_t end = i;
    while (end < length && !is_space(text[end])) end++;
    array[next++] = gen_copyn(text + i, static_cast<int>(end - i));
    i = end;
  }
  array[next] = nullptr;
  gen_free(text);
  *count = words;
  return array;
}

extern "C" int gen_append_to_file(const char *name, const char *format, ...) {
  FILE *stream = gen_fopen(name, "a");
  if (stream == nullptr) return -1;
  va_list args;
  va_start(args, format);
  vfprintf(stream, format, args);
  va_end(args);
  fclose(stream);
  return 0;
}
