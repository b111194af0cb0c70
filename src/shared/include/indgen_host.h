/*
 * indgen_host.h - processes, time, host facts and the environment.
 *
 * Most functions are one system call under a library name, so that a
 * program above needs no host headers; they pass on the system's result and
 * errno and print nothing.  The few with logic of their own say so.  The
 * static results (host names) are unprotected and are overwritten by the
 * next call.
 */
#ifndef RAVELOG_INDGEN_HOST_H
#define RAVELOG_INDGEN_HOST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Processes and time ------------------------------------------------ */

/* gen_systemex(command, ""). */
int gen_system(const char *command);
/* Runs command through system(3) and returns what system returns.  When
 * flags (null counts as "") holds the letter 'q' anywhere, ">/dev/null" is
 * first appended directly to the command, so its standard output is
 * discarded; other letters are ignored. */
int gen_systemex(const char *command, const char *flags);
/* execvp(3): returns only on failure, with -1 and errno. */
int gen_execvp(const char *file, char *const argv[]);
/* sleep(3): the seconds left unslept. */
unsigned gen_sleep(unsigned seconds);
/* Sleeps ms milliseconds (usleep of ms * 1000; a negative ms sleeps 0).
 * Returns 0. */
int gen_millisleep(int ms);
/* Waits at most ms milliseconds for input on the count descriptors of fds;
 * entries of -1 are skipped.  With no descriptor left it sleeps ms and
 * returns ms.  Otherwise it returns ms when nothing became readable in time,
 * and else (input ready, or select failed) the milliseconds that passed,
 * at least 1 and at most ms.  Descriptors must lie below 1024 (FD_SETSIZE):
 * any other entry but -1 gives -1 with errno EINVAL, without waiting. */
int gen_millisleep_or_select(int ms, int count, const int *fds);
/* Gives up the processor (sched_yield).  Returns 0. */
int gen_yield(void);
/* nice(2): the new niceness, or -1 with errno. */
int gen_nice(int increment);
/* True unless kill(pid, 0) fails with ESRCH: a process that exists but may
 * not be signalled by the caller counts as existing. */
int gen_doeslocalprocessexist(int pid);
/* Sets the soft RLIMIT_CPU to seconds; 0 or less means 0x7FFFFFFF.  The
 * hard limit is kept when it allows the value and is otherwise set to it.
 * Returns the value used (whether setrlimit succeeded or not). */
int gen_set_cpu_time_limit(int seconds);
/* Sets both the soft and the hard RLIMIT_AS to bytes; 0 or less means
 * 0x7FFFFFFF.  A hard limit can't be raised again without privilege.
 * Returns the value used (whether setrlimit succeeded or not). */
int64_t gen_set_memory_limit(int64_t bytes);

/* ---- Host facts ------------------------------------------------------------ */

/* The host's name from gethostname(2), read afresh on every call into a
 * static buffer of 256 bytes; a failure leaves what the buffer held.  The
 * result is not the caller's and changes with the next call. */
const char *gen_gethostname(void);
/* The host's fully qualified name, worked out once and kept in a static
 * buffer of 1024 bytes: the short name when it holds a '.', else the
 * official name from gethostbyname(3) (cut to 1023 characters), else the
 * short name.  Not the caller's. */
const char *gen_getfullyqualifiedhostname(void);
/* New heap string from uname(2): system name, blank, release, blank,
 * version; the caller frees it with gen_free.  Null when uname fails. */
char *gen_gethostosname(void);
/* Bytes available to an unprivileged user on the file system of path
 * (f_bavail * f_frsize of statvfs); 0 when statvfs fails. */
uint64_t gen_freediskspace(const char *path);
/* True when path exists and lies on a file system of type "mvfs" (a
 * ClearCase versioned file system).  On hosts whose statvfs doesn't name
 * the type, the type comes from the mount table entry of path's device. */
int gen_in_clearcase_mvfs(const char *path);
/* truncate(2): 0, or -1 with errno. */
int gen_truncate(const char *name, int64_t length);
/* strtoul(3). */
unsigned long gen_strtoul(const char *text, char **end, int base);

/* ---- Environment --------------------------------------------------------- */

/* The value of the environment variable name, or fallback when it is
 * missing or the empty string.  The result is not the caller's. */
const char *gen_getenv(const char *name, const char *fallback);
/* The value of name; null for a null or empty name and for a variable that
 * is missing or empty.  Not the caller's. */
const char *gen_get_env_variable(const char *name);
/* Sets name to value (null counts as "") with putenv(3).  False for a null
 * or empty name; otherwise true when putenv succeeds.  The "name=value"
 * string stays allocated for the rest of the process, as putenv needs. */
int gen_put_env_variable(const char *name, const char *value);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDGEN_HOST_H */
