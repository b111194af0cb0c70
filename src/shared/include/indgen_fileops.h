/*
 * indgen_fileops.h - whole-file operations above the viewpath wrappers of
 * indview.h: stream calls with standard messages (the gen_safe_ family),
 * line and token readers that grow their own buffers, whole-file readers,
 * tests, mode changes, creation, removal, renaming, copying and moving,
 * directory walks, file identity, comparison and checksums, and finding
 * the running program.
 *
 * Unless a comment says otherwise a function reaches the file system
 * through gen_stat, gen_access, gen_open, gen_creat, gen_fopen and
 * gen_unlink, and so sees through a viewpath when one is active.
 *
 * Errors: the usual result is 0 for success and -1 for failure, with errno
 * as the system left it.  Only the gen_safe_ family prints (and its open and
 * seek failures end the program with status 1), and gen_binarydifffiles
 * reports a file it can't open.  Ownership of returned memory is as in
 * indgen_string.h: new strings and arrays come from gen_alloc and are freed
 * with gen_free.
 *
 * Sources: indgen_fileops.cpp (tests, modes, identity, comparison),
 * indgen_fileops_read.cpp (safe calls and readers), indgen_fileops_change.cpp
 * (creation, removal, copies and times), indgen_fileops_dir.cpp (directory
 * walks), indgen_fileops_exec.cpp (finding programs).
 */
#ifndef RAVELOG_INDGEN_FILEOPS_H
#define RAVELOG_INDGEN_FILEOPS_H

#include <dirent.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#include "indgeninit.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types ---------------------------------------------------------------- */

/* The state of one directory walk, owned by the caller (usually on its
 * stack).  gen_dir_open fills it, gen_dir_next_entry moves it on,
 * gen_dir_close releases what it holds.  name and fullname stay valid until
 * the next call of gen_dir_next_entry or gen_dir_close. */
typedef struct GenDir {
  char *path;                /* the directory (heap copy)                     */
  const char *name;          /* current entry, owned by the directory stream  */
  const char *fullname;      /* gen_dconcat(path, name), owned by the walk    */
  unsigned char isdir;       /* the entry counts as a directory               */
  unsigned char islink;      /* st_mode says symbolic link                    */
  struct stat st;            /* gen_stat of the entry; zeroes if not taken    */
  unsigned char no_files;    /* don't return files                            */
  unsigned char no_dirs;     /* don't return directories                      */
  unsigned char no_dots;     /* don't return "." and ".." (set by open)       */
  unsigned char no_cvs;      /* don't return a directory named "CVS"          */
  char *suffix;              /* when set, only names with this suffix         */
  unsigned char optimize;    /* class entries by name, without gen_stat       */
  DIR *dir;                  /* the system's stream; null when closed         */
  char *fullname_store;      /* owns the text of fullname                     */
} GenDir;

/* The identity of a file: inode number, then device. */
typedef struct fileid {
  uint32_t inode;
  uint32_t device;
} fileid;

/* ---- Safe stream calls ------------------------------------------------------
 * Each reports a failure at level 2 with the system's text (see
 * gen_perror).  A null name gives the anonymous form of the message ("file"
 * in place of the name); a role (a word such as a file's purpose) turns the
 * name into "role 'name'" where the message shows it. */

/* gen_fopen(name, mode).  On failure ends the program through
 * gen_perrorexit(1) with "Unable to open NAME for output: " (mode with 'a'
 * or 'w' before any 'r') or "... for input: ". */
FILE *gen_safe_fopen(const char *name, const char *role, const char *mode);
/* fread; returns its count.  A count below 1 reports
 * "Error reading from 'NAME'" (or "Error reading from file").  A null buf
 * reports the error "internal: null buffer passed to gen_safe_fread" and
 * gives -1. */
long gen_safe_fread(const char *name, void *buf, size_t size, size_t count, FILE *stream);
/* One fread of one item of size bytes into buf, or into a new zeroed block
 * (gen_free) when buf is null; returns the block also after a short read,
 * which reports as gen_safe_fread does.  A size of 0 reads nothing and
 * returns buf. */
void *gen_safe_readbytes(const char *name, FILE *stream, void *buf, size_t size);
/* fwrite; returns its count.  A count below `count` reports
 * "Error writing to 'NAME'" (or "Error writing to file"). */
size_t gen_safe_fwrite(const char *name, const void *buf, size_t size, size_t count,
                       FILE *stream);
/* fclose; returns its result.  A failure reports "Error closing NAME: ". */
int gen_safe_fclose(const char *name, const char *role, FILE *stream);
/* fseek; returns its result.  A failure ends the program through
 * gen_perrorexit(1) with "seek failed to OFFSET in 'NAME'" (or "seek failed
 * to OFFSET in file"). */
int gen_safe_fseek(const char *name, FILE *stream, long offset, int whence);

/* ---- Readers ------------------------------------------------------------------
 * gen_getline and gen_gettoken work on a buffer and its size held by the
 * caller, both starting as null and 0; they grow it by 250 bytes at a time
 * through gen_realloc, and the caller frees it with gen_free after the last
 * call. */

/* Reads one line without its end into *buf and returns *buf; null at end of
 * file with nothing read.  A newline, a carriage return or the end of the
 * file ends a line; a carriage return also drops the character behind it,
 * so CR LF counts as one line end. */
char *gen_getline(FILE *stream, char **buf, int *size);
/* Skips white space (gen_isspace), reads one token into *buf, consumes the
 * character that ended it and returns *buf; null at end of file with
 * nothing read. */
char *gen_gettoken(FILE *stream, char **buf, int *size);
/* New string (gen_free) with one whole line of any length, newline
 * included; the empty string at end of file; null only for a null stream. */
char *gen_afgets(FILE *stream);
/* One read of up to size bytes from the start of the file into buf: the
 * count, or a negative value when the file can't be opened or read. */
int gen_getfile(const char *name, char *buf, int size);
/* Reads the whole file into a block from the system's malloc (free it with
 * gen_free or free), terminated by one NUL byte behind the contents.  0 on
 * success with *buf set, and *size when size isn't null; -1 on failure with
 * both untouched. */
int gen_readfile_into_buffer(const char *name, char **buf, int *size);
/* Size of the file in bytes, as a signed 32-bit value; -1 when gen_stat
 * fails (a missing file included).  Prints nothing. */
int gen_filesize(const char *name);
/* Number of newlines, plus 1 when the last line has none; 0 when the file
 * can't be opened. */
int gen_count_lines_in_file(const char *name);
/* New string: the first line of dir/sub/name (gen_dsconcat; with only sub
 * or name, gen_sconcat(dir, that one); with neither, dir itself), or a copy
 * of fallback when the file can't be read or has no line. */
char *gen_getsinglelineasciifile(const char *dir, const char *sub, const char *name,
                                 const char *fallback);
/* New null-terminated array of new strings, one per word of the file (a
 * word is a run of characters that isspace refuses); *count gets the number
 * of words.  Null, with *count 0, for a null name or a file that can't be
 * read.  Free each string and the array with gen_free. */
char **gen_get_words_from_file(const char *name, int *count);
/* Appends the formatted text to the file: 0, or -1 when it can't be
 * opened. */
int gen_append_to_file(const char *name, const char *format, ...) GEN_PRINTF_LIKE(2, 3);

/* ---- Tests ----------------------------------------------------------------------- */
/* True when gen_stat says directory. */
int gen_isdir(const char *name);
/* True when name can be walked and holds nothing but "." and "..". */
int gen_isemptydir(const char *name);
/* True for the exact strings "CVS" and "ovc.log"; false for null. */
int gen_isvcdir(const char *name);
/* By lstat: 1 for a symbolic link, 2 for anything else with at least two
 * hard links (directories included), otherwise 0 (also when lstat fails). */
int gen_islink(const char *name);
/* 1 when the file grants execute permission; 0 for a directory or a file
 * that doesn't; -1 for a null or empty name or a missing file. */
int gen_canexec(const char *name);
/* 1 when a was modified later than b (seconds, then nanoseconds), else 0;
 * -1 when a can't be examined, 1 when only b can't. */
int gen_newerthan(const char *a, const char *b);
/* Follows a chain of at most 257 symbolic links from name.  A relative
 * target is taken from the directory of the link.  When at least one link
 * was followed, the last name is copied into out with strncpy(out, ...,
 * size) and the result is 1; otherwise -1 with out untouched.  A name that
 * would not fit the 1024-byte work buffers ends the chain. */
int gen_readlink(const char *name, char *out, int size);

/* ---- Modes -------------------------------------------------------------------------
 * Each function sets the file's permission bits with the plain chmod,
 * starting from its mode argument or, when that is 0, from the file's own
 * mode, and returns what gen_getmode returned. */
/* st_mode, or 0 when gen_stat fails.  When mode isn't null and *mode is 0,
 * also stores st_mode there, or octal 664 when gen_stat fails. */
int gen_getmode(const char *name, int *mode);
int gen_chmod_minusw(const char *name, int mode); /* AND NOT 0222           */
int gen_chmod_plusw(const char *name, int mode);  /* OR 0220                */
int gen_chmod_plusx(const char *name);            /* own mode OR 0110       */
int gen_chmod_plusrw(const char *name, int mode); /* OR 0660                */
int gen_chmod_pluswu(const char *name, int mode); /* AND NOT 022, OR 0200   */
/* Gives name the mode of other and returns other's st_mode; 0 and nothing
 * done when other can't be examined. */
int gen_chmod_sameas(const char *name, const char *other);

/* ---- Creation and removal ----------------------------------------------------------- */
/* The system's mkdir. */
int gen_mkdir(const char *name, int mode);
/* In the local tree only (gen_sys_stat): 0 for an existing directory, -1
 * for an existing other file, else gen_mkdir. */
int gen_createdir(const char *name, int mode);
/* Creates the missing parents, then gen_createdir(name, mode), whose result
 * it returns. */
int gen_createdir_recursive(const char *name, int mode);
/* -1 for a directory (errno EISDIR), otherwise gen_unlink. */
int gen_removefile(const char *name);
/* Removes what the directory holds, then the directory; the result of the
 * final rmdir.  Failures on entries show only there.  A symbolic link is
 * removed itself, never followed. */
int gen_removedir_recursive(const char *name);
/* As gen_removedir_recursive, keeping the directory itself; returns 0. */
int gen_removestar_recursive(const char *name);
/* -1 when either name is a directory.  Otherwise rename; when that fails
 * and old_name exists, gen_removefile(new_name) and a second rename, whose
 * result is returned (a missing old_name leaves new_name alone). */
int gen_renamefile(const char *old_name, const char *new_name);
/* Copies the contents to `to` (created with mode 0666, then given the mode
 * of `from`): 0, or -1.  A failed read or write removes the partial `to`;
 * `from` is never touched. */
int gen_copyfile(const char *from, const char *to);
/* Copies the file to stream in blocks of 1024 bytes and flushes: 0, or -1
 * when it can't be opened or a write is short. */
int gen_catfile(const char *name, FILE *stream);
/* The same as gen_catfile. */
int gen_cattextfile(const char *name, FILE *stream);
/* gen_renamefile; when that fails, gen_copyfile and, once the copy is
 * whole, gen_removefile(old_name).  0 on success; a failed copy leaves
 * old_name alone.  When the copy succeeds but old_name can't be removed the
 * result is -1 and both files exist. */
int gen_movefile(const char *old_name, const char *new_name);
/* Gives the file the current time by writing its first byte back (or, for
 * an empty file, writing and truncating one byte); a missing file is
 * created empty.  0, or -1. */
int gen_touchfile(const char *name);
/* utimes with whole seconds. */
int gen_utime(const char *name, time_t atime, time_t mtime);
/* Copies the access and modification times of from to name, each rounded
 * up to a whole second.  The result of utimes, or -1 when from can't be
 * examined; errno is left as it was. */
int gen_sametimeas(const char *from, const char *name);

/* ---- Directory walks ------------------------------------------------------------------
 * Entries come in the order of the system's directory stream.  Each entry
 * is classed as a directory or a file (see gen_dir_next_entry) and returned
 * only if the restrictions let it pass. */
/* Clears *dir and opens path: true on success, with no_dots set. */
int gen_dir_open(GenDir *dir, const char *path);
/* With flag set, entries are classed by name alone: "." and ".." and names
 * without a suffix are directories, everything else a file; st stays
 * zeroed. */
void gen_dir_optimize_search(GenDir *dir, int flag);
/* Sets no_files, and a suffix (copied; null for none) that a returned name
 * must have.  An entry without that suffix counts as a file and is not
 * looked at. */
void gen_dir_restrict_files(GenDir *dir, int no_files, const char *suffix);
/* Sets no_dirs, no_dots and no_cvs. */
void gen_dir_restrict_dirs(GenDir *dir, int no_dirs, int no_dots, int no_cvs);
/* The next entry's name (valid until the next call), or null at the end. */
const char *gen_dir_next_entry(GenDir *dir);
/* Releases what the walk holds and clears *dir. */
void gen_dir_close(GenDir *dir);
/* Number of entries of the directory, "." and ".." included; 0 when it
 * can't be opened.  Unless names is null, *names gets a new null-terminated
 * array of new strings (null when the directory can't be opened). */
int gen_read_directory(const char *path, char ***names);
/* New name dir/name when it passes gen_access(mode) and is no directory;
 * otherwise, with recursive set, the first such name in the subdirectories,
 * depth first in directory order (a directory already on the way down is
 * not entered again).  Null when there is none, when name isn't a bare base
 * name or when dir isn't a directory. */
char *gen_find_file(const char *dir, const char *name, int mode, int recursive);

/* ---- File identity --------------------------------------------------------------------- */
/* The identity by the plain stat, in a static record overwritten by the
 * next call; null when stat fails. */
fileid *gen_fileid_from_filename(const char *name);
/* New copy (gen_free); null for null. */
fileid *gen_duplicate_fileid(const fileid *id);
/* True when both are given and agree. */
int gen_compare_fileids(const fileid *a, const fileid *b);

/* ---- Comparison ------------------------------------------------------------------------- */
/* 0 for equal contents, 1 for different ones (different sizes without a
 * read), -1 for a failure.  A file that can't be examined or opened is
 * reported as the error "Could not open file: NAME". */
int gen_binarydifffiles(const char *a, const char *b);
/* 32-bit CRC of size bytes at buf, most significant bit first, generator
 * 0x10211021, starting from *sum and without a final XOR, so blocks can be
 * chained.  Stores the sum back and returns the address behind the last
 * byte.  "abc" from 0 gives 0x8065FD10. */
const void *gen_cksum(const void *buf, int size, uint32_t *sum);

/* ---- Finding the program ----------------------------------------------------------------- */
/* New name of an executable: a name with a directory part is expanded
 * (gen_expand_filename) and is the only candidate; otherwise the program's
 * directory (with try_progdir) and then each entry of PATH (an empty entry
 * meaning the name as it stands) are tried until gen_canexec answers 1.
 * With resolve the result is its real path.  Null when nothing is found. */
char *gen_findexec(const char *name, bool try_progdir, bool resolve);
/* gen_dirname of gen_findexec's result, or null. */
char *gen_findexecdir(const char *name, bool try_progdir, bool resolve);
/* Replaces gen_progdir by gen_realpath(path). */
void gen_changeprogdir(const char *path);
/* gen_progdir, found on first use as gen_findexecdir(gen_execname, 0, 1);
 * may be null.  Not the caller's. */
const char *gen_getprogdir(void);
/* True when "CVS", "../src/target" and "../src/configuration" are all
 * directories relative to gen_getprogdir(); worked out once. */
int gen_is_qo_dev_program(void);
/* False on this host. */
int gen_is_qo_win32_dev_program(void);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDGEN_FILEOPS_H */
