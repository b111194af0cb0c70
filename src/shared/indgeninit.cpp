/*
 * indgeninit.cpp - start-up, hooks, memory, scratch buffers, string arrays,
 * messages and signals of the foundation library.  The contracts are in
 * indgeninit.h; the file-system calls used here (gen_access, gen_stat) are
 * the viewpath wrappers of indview.
 */
#include "indgeninit.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "indconfig.h"
#include "indgen_filename.h"
#include "indgen_host.h"
#include "indgen_string.h"
#include "indview.h"

/* ======================================================================
 * Process-wide state
 * ====================================================================== */

extern "C" {

gen_exit_func gen_exit = gen_default_exit;
gen_alloc_func gen_alloc = gen_default_alloc;
gen_realloc_func gen_realloc = gen_default_realloc;
gen_domessage_func gen_domessage = gen_default_domessage;
gen_temp_dir_func gen_temp_dir = gen_default_temp_dir;

char *gen_execname = nullptr;
char *gen_progname = nullptr;
char *gen_progdir = nullptr;
int gen_error_count[7] = {0, 0, 0, 0, 0, 0, 0};
int gen_any_error = 0;
int gen_sigtrap_value = 0;
unsigned char gen_calder_error_msgs = 0;
unsigned char bigendian_host = 0;
int tov_current_version = 6;
unsigned char already_doing_exit = 0;

} /* extern "C" */

namespace {

constexpr int kNumLevels = 7;
constexpr int kHighestVersion = 8;

/* Message prefixes by level; null where a level prints none. */
const char *const prefixes[kNumLevels] = {
    nullptr, "disaster", "fatal", "error", "warning", "info", nullptr};
const char *const calder_prefixes[kNumLevels] = {
    "ERROR", "ERROR: DISASTER", "ERROR: FATAL", "ERROR", "WARNING", "INFO", nullptr};

/* One slot of the scratch-buffer ring. */
struct TempBufSlot {
  unsigned capacity;
  void *buffer;
};
TempBufSlot *temp_bufs = nullptr; /* owned by the ring, never freed */
int num_bufs = 0;
int last_buf_index = -1;

/* The cached choice of gen_default_temp_dir, and the copy of a `preferred`
 * that it may point at. */
const char *temp_dir_choice = nullptr;
char *temp_dir_preferred_copy = nullptr;

bool destructed = false;

/* Writes all of text to descriptor 2, retrying on EINTR; no buffering and
 * no allocation, so it works when memory is gone. */
void write_stderr_raw(const char *text) {
  size_t left = strlen(text);
  while (left > 0) {
    ssize_t written = write(2, text, left);
    if (written < 0) {
      if (errno == EINTR) continue;
      return;
    }
    text += written;
    left -= static_cast<size_t>(written);
  }
}

void message(unsigned code, const char *format, va_list args) {
  gen_domessage(code, format, args);
}

} // namespace

/* ======================================================================
 * Hooks: default implementations
 * ====================================================================== */

extern "C" void gen_default_exit(int status) {
  if (already_doing_exit) _exit(status);
  already_doing_exit = 1;
  exit(status);
}

extern "C" void *gen_default_alloc(unsigned count, unsigned size) {
  if (count == 0) return nullptr;
  void *block = calloc(count, size);
  if (block == nullptr && size != 0) gen_out_of_memory();
  return block;
}

extern "C" void *gen_default_realloc(void *ptr, int size) {
  if (size < 1) {
    free(ptr);
    return nullptr;
  }
  if (ptr == nullptr) return gen_alloc(1, static_cast<unsigned>(size));
  void *block = realloc(ptr, static_cast<size_t>(size));
  if (block == nullptr) gen_out_of_memory();
  return block;
}

extern "C" void gen_default_domessage(unsigned code, const char *format, va_list args) {
  const int saved_errno = errno; /* the text must describe the caller's errno */
  bool want_errno_text = false;
  unsigned level = code;
  if (code > 100) {
    level = code - 100;
    want_errno_text = true;
  }
  const char *prefix = nullptr;
  if (level < kNumLevels) {
    prefix = gen_calder_error_msgs ? calder_prefixes[level] : prefixes[level];
    gen_error_count[level]++;
    if (level < 4) gen_any_error++;
  }
  if (format == nullptr) format = "";

  fflush(stdout);
  if (gen_progname != nullptr && gen_progname[0] != '\0' && level != 6)
    fprintf(stderr, "%s: ", gen_progname);
  if (prefix != nullptr) fprintf(stderr, "%s: ", prefix);
  vfprintf(stderr, format, args);
  size_t format_length = strlen(format);
  if (want_errno_text && saved_errno != 0) {
    fprintf(stderr, ": %s\n", strerror(saved_errno));
    errno = 0;
  } else {
    if (format_length == 0 || format[format_length - 1] != '\n') fputc('\n', stderr);
    errno = saved_errno;
  }
  fflush(stderr);
}

extern "C" const char *gen_default_temp_dir(const char *preferred) {
  if (preferred == nullptr && temp_dir_choice != nullptr) return temp_dir_choice;

  /* Copy before freeing, in case `preferred` is the cached copy itself. */
  char *preferred_copy = gen_copy(preferred);
  gen_free(temp_dir_preferred_copy);
  temp_dir_preferred_copy = nullptr;

  const char *tmpdir = getenv("TMPDIR");
  if (tmpdir != nullptr && tmpdir[0] != '\0' && gen_access(tmpdir, 3) == 0) {
    temp_dir_choice = tmpdir;
  } else if (preferred_copy != nullptr && gen_access(preferred_copy, 3) == 0) {
    temp_dir_preferred_copy = preferred_copy;
    preferred_copy = nullptr;
    temp_dir_choice = temp_dir_preferred_copy;
  } else if (access("/var/tmp/", 3) == 0) {
    temp_dir_choice = "/var/tmp/";
  } else {
    temp_dir_choice = "/tmp";
  }
  gen_free(preferred_copy);
  return temp_dir_choice;
}

/* ======================================================================
 * Start and end
 * ====================================================================== */

extern "C" void gen_init(const char *argv0, int reserved, int viewpath_mode) {
  (void)reserved;
  char *working = nullptr;
  if (argv0 != nullptr) {
    working = gen_copy(argv0);
    size_t length = strlen(working);
    while (length > 1 && working[length - 1] == '/') working[--length] = '\0';
    gen_free(gen_progname);
    gen_progname = gen_copy(gen_basename(working));
    gen_free(gen_execname);
    gen_execname = gen_copy(working);
  }
  trapsetup();
  gen_viewpathing_init(viewpath_mode);
  gen_endian_init();
  gen_free(working);
}

extern "C" void gen_destruct(void) {
  if (destructed) return;
  destructed = true;
  gen_sourceroot_cleanup();
  gen_viewpathing_cleanup();
  gen_free(gen_progname);
  gen_free(gen_execname);
  gen_free(gen_progdir);
  gen_progname = nullptr;
  gen_execname = nullptr;
  gen_progdir = nullptr;
}

extern "C" void gen_endian_init(void) {
  uint16_t tester = 0;
  reinterpret_cast<unsigned char *>(&tester)[0] = 1;
  if (tester == 1)
    bigendian_host = 0;
  else if (tester == 256)
    bigendian_host = 1;
  else
    gen_errorexit(1, "Could not determine host endianness");
}

extern "C" int gen_get_version(void) { return tov_current_version; }
extern "C" int gen_is_at_least_version(int v) { return v <= tov_current_version; }
extern "C" int gen_is_at_most_version(int v) { return tov_current_version <= v; }

extern "C" void gen_set_version(int v) {
  if (v <= kHighestVersion)
    tov_current_version = v;
  else
    gen_error("Attempt to set version to an illegal value");
}

extern "C" void gen_changeprogname(const char *name) {
  gen_free(gen_progname);
  gen_progname = gen_copy(name);
}

extern "C" const char *gen_getprogname(void) { return gen_progname; }

extern "C" char *gen_realpath(const char *path) {
  if (path == nullptr) return nullptr;
  char *resolved = realpath(path, nullptr);
  if (resolved == nullptr) return gen_copy(path);
  char *result = gen_copy(resolved);
  free(resolved);
  return result;
}

/* ======================================================================
 * Memory
 * ====================================================================== */

extern "C" void *gen_allocate(void *ptr, unsigned count, unsigned size) {
  uint64_t bytes = static_cast<uint64_t>(count) * size;
  if (bytes > INT_MAX) gen_out_of_memory(); /* gen_realloc takes an int size */
  return gen_realloc(ptr, static_cast<int>(bytes));
}

extern "C" void gen_free(void *ptr) { free(ptr); }

extern "C" void *gen_structcopy(const void *src, int size) {
  if (src == nullptr) return nullptr;
  if (size < 0) size = 0;
  void *copy = gen_alloc(1, static_cast<unsigned>(size));
  if (copy != nullptr && size > 0) memcpy(copy, src, static_cast<size_t>(size));
  return copy;
}

extern "C" void gen_out_of_memory(void) {
  if (gen_progname != nullptr) {
    write_stderr_raw(gen_progname);
    write_stderr_raw(": ");
  }
  write_stderr_raw("fatal: Out of memory\n");
  gen_exit(3);
}

/* ======================================================================
 * Ring of scratch buffers
 * ====================================================================== */

extern "C" void *gen_get_temp_buf(int ring_size, unsigned size) {
  if (size == 0) return nullptr;
  if (ring_size > num_bufs) {
    temp_bufs = static_cast<TempBufSlot *>(
        gen_allocate(temp_bufs, static_cast<unsigned>(ring_size), sizeof(TempBufSlot)));
    memset(temp_bufs + num_bufs, 0, sizeof(TempBufSlot) * static_cast<size_t>(ring_size - num_bufs));
    num_bufs = ring_size;
  }
  if (num_bufs == 0) return nullptr; /* a ring of no slots has nothing to give */
  if (++last_buf_index >= num_bufs) last_buf_index = 0;
  TempBufSlot &slot = temp_bufs[last_buf_index];
  if (slot.capacity < size) {
    if (size > INT_MAX) gen_out_of_memory();
    slot.buffer = gen_realloc(slot.buffer, static_cast<int>(size));
    slot.capacity = size;
  }
  return slot.buffer;
}

extern "C" void *gen_get_zeroed_temp_buf(int ring_size, int size) {
  if (size <= 0) return nullptr;
  void *buffer = gen_get_temp_buf(ring_size, static_cast<unsigned>(size));
  if (buffer != nullptr) memset(buffer, 0, static_cast<size_t>(size));
  return buffer;
}

extern "C" char *gen_temp_copy(int ring_size, const char *s) {
  if (s == nullptr) return nullptr;
  size_t length = strlen(s);
  char *buffer = static_cast<char *>(gen_get_temp_buf(ring_size, static_cast<unsigned>(length + 1)));
  if (buffer != nullptr) memcpy(buffer, s, length + 1);
  return buffer;
}

/* ======================================================================
 * String arrays
 * ====================================================================== */

extern "C" void gen_strarray_init(char ***array, int *count) {
  *array = nullptr;
  *count = 0;
}

namespace {
void strarray_append(char ***array, int *count, char *owned) {
  *array = static_cast<char **>(
      gen_allocate(*array, static_cast<unsigned>(*count + 1), sizeof(char *)));
  (*array)[*count] = owned;
  (*count)++;
}
} // namespace

extern "C" void gen_strarray_add_str(char ***array, int *count, const char *s) {
  strarray_append(array, count, gen_copy(s));
}

extern "C" void gen_strarray_add_strn(char ***array, int *count, const char *s, int n) {
  strarray_append(array, count, gen_copyn(s, n));
}

extern "C" void gen_strarray_free(char ***array, int *count) {
  if (*array == nullptr) return;
  for (int i = 0; i < *count; i++) gen_free((*array)[i]);
  gen_free(*array);
  *array = nullptr;
  *count = 0;
}

/* ======================================================================
 * Messages and exit
 * ====================================================================== */

#define GEN_MESSAGE_BODY(code)  \
  va_list args;                 \
  va_start(args, format);       \
  message((code), format, args); \
  va_end(args)

extern "C" void gen_error(const char *format, ...) { GEN_MESSAGE_BODY(3); }
extern "C" void gen_warning(const char *format, ...) { GEN_MESSAGE_BODY(4); }
extern "C" void gen_info(const char *format, ...) { GEN_MESSAGE_BODY(5); }
extern "C" void gen_printf(const char *format, ...) { GEN_MESSAGE_BODY(6); }
extern "C" void gen_perror(const char *format, ...) { GEN_MESSAGE_BODY(102); }

extern "C" void gen_errorexit(int status, const char *format, ...) {
  GEN_MESSAGE_BODY(status != 0 ? 2 : 0);
  gen_exit(status);
}

extern "C" void gen_perrorexit(int status, const char *format, ...) {
  GEN_MESSAGE_BODY(102);
  gen_exit(status);
}

#undef GEN_MESSAGE_BODY

extern "C" void gen_successexit(void) { gen_exit(0); }

extern "C" void __Assert(int condition, const char *text, const char *file, int line, int extra) {
  if (condition) return;
  fflush(stdout);
  fputs("Assertion ", stderr);
  if (text != nullptr && strcmp(text, "x") != 0) fprintf(stderr, "(%s) ", text);
  if (extra != 0) fprintf(stderr, "[%d] ", extra);
  fprintf(stderr, "failed in '%s' on line %d", file != nullptr ? file : "", line);
  if (gen_progname != nullptr && gen_progname[0] != '\0') fprintf(stderr, " in %s", gen_progname);
  fputc('\n', stderr);
  fflush(stderr);
  exit(1);
}

/* ======================================================================
 * Signals
 * ====================================================================== */

extern "C" void trapsetup(void) {
  signal(SIGHUP, sigtrap);
  signal(SIGINT, sigtrap);
  signal(SIGQUIT, sigtrap);
  signal(SIGTERM, sigtrap);
  signal(SIGPIPE, sigpipetrap);
  signal(SIGXCPU, siglimitexceeded);
}

extern "C" void sigtrap(int sig) {
  if (already_doing_exit) _exit(2);
  gen_sigtrap_value = sig;
  fflush(stdout);
  if (sig == SIGINT)
    gen_error("Halted");
  else if (sig != SIGTERM)
    gen_error("Interrupt (%d)", sig);
  gen_exit(2);
}

extern "C" void sigpipetrap(int sig) {
  static bool entered = false;
  if (!entered) {
    entered = true;
    signal(SIGPIPE, sigpipetrap);
    gen_error("Halted by a SIGPIPE.");
    gen_exit(2);
    return;
  }
  /* The message itself hit the broken pipe: stop writing altogether. */
  close(1);
  close(2);
  gen_exit(2);
  (void)sig;
}

extern "C" void siglimitexceeded(int sig) {
  gen_sigtrap_value = sig;
  fflush(stdout);
  if (sig == SIGXCPU)
    gen_error("Cpu Limit Exceeded");
  else
    gen_error("Resource Limit exceeded");
  gen_exit(2);
}
