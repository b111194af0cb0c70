/*
 * indgeninit.h - the floor of the foundation library: start-up, the
 * replaceable hooks, memory, the ring of scratch buffers, string arrays,
 * messages with their counters, signal handling and the process-wide names
 * of the running program.
 *
 * Error convention of the foundation library: functions return 0 or a
 * pointer for success and -1 or null for failure, with errno as the system
 * left it, and print only where their comment says so.  Out of memory is the
 * exception: the default allocators end the process with status 3, so a
 * caller of gen_alloc or gen_realloc never tests the result for failure (a
 * null result means only a zero count or size).
 *
 * Heap strings: a function that returns a new string returns memory from
 * gen_alloc; the caller frees it with gen_free, which accepts null.
 */
#ifndef RAVELOG_INDGENINIT_H
#define RAVELOG_INDGENINIT_H

#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__) || defined(__clang__)
#define GEN_PRINTF_LIKE(fmt, first) __attribute__((format(printf, fmt, first)))
#else
#define GEN_PRINTF_LIKE(fmt, first)
#endif

/* ---- Hooks ------------------------------------------------------------
 * Every allocation, exit and message of the library goes through these
 * global function pointers.  A host program (or a test) replaces one by
 * storing another function in it; the defaults are:
 *
 *   gen_exit       gen_default_exit      exit(status); _exit(status) when
 *                                        entered again from an exit handler
 *   gen_alloc      gen_default_alloc     zeroed calloc; count 0 gives null;
 *                                        failure ends with status 3
 *   gen_realloc    gen_default_realloc   size < 1 frees and gives null; a
 *                                        null pointer allocates zeroed
 *   gen_domessage  gen_default_domessage one line on stderr:
 *                                        "prog: level: text"
 *   gen_temp_dir   gen_default_temp_dir  TMPDIR, preferred, /var/tmp/, /tmp
 */
typedef void (*gen_exit_func)(int status);
typedef void *(*gen_alloc_func)(unsigned count, unsigned size);
typedef void *(*gen_realloc_func)(void *ptr, int size);
typedef void (*gen_domessage_func)(unsigned code, const char *format, va_list args);
typedef const char *(*gen_temp_dir_func)(const char *preferred);

extern gen_exit_func gen_exit;
extern gen_alloc_func gen_alloc;
extern gen_realloc_func gen_realloc;
extern gen_domessage_func gen_domessage;
extern gen_temp_dir_func gen_temp_dir;

void gen_default_exit(int status);
void *gen_default_alloc(unsigned count, unsigned size);
void *gen_default_realloc(void *ptr, int size);
/* Prints one message.  code 0..6 is the level (see below); a code above 100
 * is level code-100 followed by ": strerror(errno)" when errno is nonzero,
 * after which errno is 0.  A newline is added unless the format ends in one
 * (or the errno text was printed).  Levels 0..6 are counted in
 * gen_error_count, levels 0..3 also in gen_any_error. */
void gen_default_domessage(unsigned code, const char *format, va_list args);
/* The directory for temporary files, cached: TMPDIR when it is set, non
 * empty and writable; else `preferred` when writable (a copy is cached);
 * else "/var/tmp/" when writable; else "/tmp".  A null `preferred` returns
 * the cached choice when there is one. */
const char *gen_default_temp_dir(const char *preferred);

/* ---- Process-wide state ---------------------------------------------- */
extern char *gen_execname;          /* argv[0] without trailing '/'           */
extern char *gen_progname;          /* last component of gen_execname         */
extern char *gen_progdir;           /* directory of the program, found lazily */
extern int gen_error_count[7];      /* messages printed, per level            */
extern int gen_any_error;           /* messages printed at levels 0..3        */
extern int gen_sigtrap_value;       /* signal that is ending the program      */
extern unsigned char gen_calder_error_msgs; /* nonzero: alternative prefixes  */
extern unsigned char bigendian_host;        /* set by gen_endian_init         */
extern int tov_current_version;     /* behaviour version, 6 at start          */
extern unsigned char already_doing_exit;    /* set by the first gen_default_exit */

/* ---- Start and end ---------------------------------------------------- */
/* Takes the program's names from argv0 (null leaves them null), installs the
 * signal handlers, starts viewpathing in viewpath_mode (0 off, 1 slow,
 * 2 fast) and checks the host's byte order.  `reserved` has no effect. */
void gen_init(const char *argv0, int reserved, int viewpath_mode);
/* Releases what gen_init and later calls built up.  Works once. */
void gen_destruct(void);
/* Sets bigendian_host; ends the program if the byte order is neither. */
void gen_endian_init(void);
int gen_get_version(void);
int gen_is_at_least_version(int v); /* v <= tov_current_version */
int gen_is_at_most_version(int v);  /* tov_current_version <= v */
/* Stores v when v <= 8; otherwise reports an error and keeps the version. */
void gen_set_version(int v);
/* Replaces gen_progname by a copy of name. */
void gen_changeprogname(const char *name);
/* gen_progname; not the caller's to free. */
const char *gen_getprogname(void);
/* New heap string: realpath(path), or a copy of path where that fails. */
char *gen_realpath(const char *path);

/* ---- Memory ----------------------------------------------------------- */
/* Resizes ptr to count*size bytes through gen_realloc. */
void *gen_allocate(void *ptr, unsigned count, unsigned size);
/* Frees through the system allocator; accepts null. */
void gen_free(void *ptr);
/* New block of size bytes holding a copy of src; null for a null src. */
void *gen_structcopy(const void *src, int size);
/* Writes "prog: fatal: Out of memory" straight to descriptor 2 and calls
 * gen_exit(3). */
void gen_out_of_memory(void);

/* ---- Ring of scratch buffers ------------------------------------------
 * A buffer from the ring is not freed by the caller.  It stays valid for the
 * next ring_size calls of any of these three functions, since the ring is
 * shared and its length is the largest ring_size anyone asked for. */
/* A buffer of at least size bytes; null when size is 0. */
void *gen_get_temp_buf(int ring_size, unsigned size);
/* As gen_get_temp_buf, with the first size bytes cleared. */
void *gen_get_zeroed_temp_buf(int ring_size, int size);
/* s copied into a ring buffer; null for a null s. */
char *gen_temp_copy(int ring_size, const char *s);

/* ---- String arrays -----------------------------------------------------
 * A string array is a pointer to heap strings and a count, both held by the
 * caller; the array has no spare capacity. */
void gen_strarray_init(char ***array, int *count);
void gen_strarray_add_str(char ***array, int *count, const char *s);
void gen_strarray_add_strn(char ***array, int *count, const char *s, int n);
/* Frees the strings and the array and zeroes both; a null array is left. */
void gen_strarray_free(char ***array, int *count);

/* ---- Messages and exit ---------------------------------------------------
 * Levels: 0 gen_errorexit(0,...) (no prefix), 1 "disaster", 2 "fatal"
 * (gen_errorexit with a nonzero status, gen_perror, gen_perrorexit),
 * 3 "error", 4 "warning", 5 "info", 6 gen_printf (bare text, no program
 * name).  With gen_calder_error_msgs set the prefixes are "ERROR",
 * "ERROR: DISASTER", "ERROR: FATAL", "ERROR", "WARNING", "INFO". */
void gen_error(const char *format, ...) GEN_PRINTF_LIKE(1, 2);
void gen_warning(const char *format, ...) GEN_PRINTF_LIKE(1, 2);
void gen_info(const char *format, ...) GEN_PRINTF_LIKE(1, 2);
void gen_printf(const char *format, ...) GEN_PRINTF_LIKE(1, 2);
/* Level 2 with the errno text; the program goes on. */
void gen_perror(const char *format, ...) GEN_PRINTF_LIKE(1, 2);
/* Prints at level 2 (status nonzero) or 0 (status 0), then gen_exit(status).
 * Returns only if a replaced gen_exit returns. */
void gen_errorexit(int status, const char *format, ...) GEN_PRINTF_LIKE(2, 3);
/* Prints at level 2 with the errno text, then gen_exit(status). */
void gen_perrorexit(int status, const char *format, ...) GEN_PRINTF_LIKE(2, 3);
/* gen_exit(0), printing nothing. */
void gen_successexit(void);
/* Returns when condition is nonzero; otherwise prints
 * "Assertion (text) [extra] failed in 'file' on line N in prog" to stderr
 * and calls exit(1) directly. */
void __Assert(int condition, const char *text, const char *file, int line, int extra);

/* ---- Signals -------------------------------------------------------------
 * trapsetup installs sigtrap for SIGHUP, SIGINT, SIGQUIT and SIGTERM,
 * sigpipetrap for SIGPIPE and siglimitexceeded for SIGXCPU.  Each handler
 * prints its line at level 3 and ends the program with status 2. */
void trapsetup(void);
void sigtrap(int sig);
void sigpipetrap(int sig);
void siglimitexceeded(int sig);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDGENINIT_H */
