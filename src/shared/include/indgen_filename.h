/*
 * indgen_filename.h - file names as text, above the canonical form of
 * indgen_canon.h: splitting a name into directory, base and suffix,
 * expanding it against the home and current directories, comparing names,
 * folding a long name into a short safe one, ':'-separated name lists, and
 * unique temporary names.
 *
 * Almost everything here works on strings alone.  The file system is asked
 * only by gen_samefile, gen_expand_filename (user lookup and the current
 * directory), gen_getcwd, gen_alreadyused and the temporary-name functions.
 * The separator is '/'; functions with "msw" or "anyhost" in their names
 * also know '\' and a drive letter with ':'.
 *
 * Ownership: a result described as "new" comes from gen_alloc and is freed
 * by the caller with gen_free; a result described as a pointer into an
 * argument allocates nothing.  Nothing here prints, except that gen_getcwd
 * ends the program when it can find no directory at all.
 */
#ifndef RAVELOG_INDGEN_FILENAME_H
#define RAVELOG_INDGEN_FILENAME_H

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Canonical and absolute -------------------------------------------- */
/* True when name is neither null nor empty and holds no '/'. */
int gen_is_basename(const char *name);
/* New string: name relative to the absolute base, when name begins with the
 * whole of base and goes on behind a '/' (base's own final '/' or the next
 * character of name).  Null otherwise, for a null argument, and for name
 * equal to a base without a final '/'.  With resolve set, a null answer is
 * tried once more on the real paths of both. */
char *gen_relative_filename(const char *base, const char *name, int resolve);
/* New absolute, canonical name: "~" and "~/..." expand to gen_gethomedir(),
 * "~user..." to that user's home; an absolute name (a '~' name whose user is
 * unknown included) is copied and made canonical; a relative name is joined
 * to gen_getcwd().  Null gives null, "" a new "". */
char *gen_expand_filename(const char *name);
/* As gen_expand_filename with cwd as the current directory: null name gives
 * null, "" a new "", a null cwd or a name beginning with '~' goes to
 * gen_expand_filename, an absolute name gets a canonical copy, anything else
 * is gen_sconcat(cwd, name). */
char *gen_expand_filename_using_cwd(const char *cwd, const char *name);

/* ---- Directory and base ------------------------------------------------ */
/* Pointer into name behind its last '/'; name itself when there is none;
 * null for null. */
const char *gen_basename(const char *name);
/* Pointer into name behind its last '/', '\' or ':'; null for null. */
const char *gen_msw_basename(const char *name);
/* The same as gen_msw_basename. */
const char *gen_basename_anyhost(const char *name);
/* New string up to the last '/', without it; a '/' at the very start stays
 * ("/a" gives "/").  Null when name is null or has no '/'. */
char *gen_dirname(const char *name);
/* New string up to the last '/', '\' or ':'; that separator stays when it is
 * the first character, is a ':', or follows a ':'.  Null when there is none
 * or name is null. */
char *gen_dirname_anyhost(const char *name);
/* New string: the first component behind any leading '/', ending at '/',
 * '\' or ':' (a ':' stays in it).  Null for null. */
char *gen_topdir(const char *name);
/* Pointer into name to the '/' that ends the first component (leading '/'
 * skipped); with no further '/', the last leading '/'; null when there is
 * none of either or name is null. */
const char *gen_popdir(const char *name);
/* True when a and b agree up to and including their last '/', so that they
 * name things in the same directory; two names without '/' match.  False
 * for a null argument. */
int gen_dirmatch(const char *a, const char *b);
/* True when dir is a textual prefix of name and name goes on with any
 * number of '/' (none included) and then exactly one non-empty component.
 * False for a null argument. */
int gen_dir_contains_file(const char *dir, const char *name);
/* True when dir is a textual prefix of name and either name goes on with
 * '/' or dir ends in '/'.  False for a null argument. */
int gen_tree_contains_file(const char *dir, const char *name);
/* True when sub is dir or lies below it: for identical strings, or when the
 * canonical dir is a prefix of the canonical sub and is one character long,
 * or sub ends there or goes on with '/' or '\'.  False for a null
 * argument. */
int gen_isDirSubdirOfDir(const char *sub, const char *dir);

/* ---- Suffixes -------------------------------------------------------------
 * The suffix is what follows the last '.' of the base name.  A suffix
 * argument may carry a leading '.'; one leading '.' is dropped. */
/* Pointer into name to its suffix, or null when the base name has no '.'.
 * A versioned shared library ("libx.so.1.2", "libx.sa.3.4") gives the
 * static string "so" or "sa"; note that "libx.so.1" gives "1". */
const char *gen_getsuffix(const char *name);
/* False when name has no suffix; true when suffix is null; otherwise
 * whether the two are equal byte for byte. */
int gen_issuffix(const char *name, const char *suffix);
/* New string: name with its suffix replaced by suffix, or removed together
 * with its '.' when suffix is null.  A null name gives a copy of suffix. */
char *gen_changesuffix(const char *name, const char *suffix);
/* New string: name, ".", suffix, whatever suffix name has already.  A null
 * suffix gives a copy of name, a null name a copy of suffix. */
char *gen_addsuffix(const char *name, const char *suffix);
/* New string: dir, '/', the base name of name without its suffix, infix,
 * ".", suffix.  No directory part for a null or empty dir; no infix for a
 * null or empty one; no "." and suffix for a null suffix (an empty one
 * leaves a final "."); made canonical unless dir is null.  A null name
 * gives gen_sconcat(dir, suffix). */
char *gen_changedirandsuffix(const char *dir, const char *name, const char *infix,
                             const char *suffix);
/* Number of characters of name before its last '.', or its length when it
 * has none; 0 for null. */
int gen_basenamelen(const char *name);
/* True when the base names of a and b without their suffixes are equal byte
 * for byte; false for a null argument. */
int gen_basenamematch(const char *a, const char *b);
/* gen_changesuffix(gen_basename(name), suffix). */
char *gen_makeshort(const char *name, const char *suffix);
/* New string: name, ".", then ORBEXSYM (or "sym" when that is missing or
 * empty) less one leading '.'.  name keeps its own suffix. */
char *gen_symfilename(const char *name);

/* ---- Identity and folding ------------------------------------------------ */
/* True when b is the tail of a in whole components, after both are made
 * canonical: "x/foo" has the tail "foo", "xfoo" hasn't.  exact compares
 * byte for byte, otherwise folded.  False for a null argument. */
int gen_FilenameTailCmp(const char *a, const char *b, int exact);
/* True when a and b name the same file.  Different non-empty base names are
 * different files without a look at the file system; equal strings are the
 * same.  Otherwise device and inode decide, of the files or, when neither
 * exists, of their directories; when those don't exist either, the real
 * paths are compared.  False for a null argument. */
int gen_samefile(const char *a, const char *b);
/* Rotate-left-7 hash of the bytes of name; 0 for null.  "abc" gives
 * 0x187163. */
uint32_t gen_manglefilename_hashfunc(const char *name);
/* New block of length bytes holding at most length - 1 characters: the
 * hash as "%08x" (of the tail when hash_tail is set, else of the whole
 * name) followed by the last length - 9 characters of name, with every '/',
 * '\' and ':' turned into '@'.  Null for a null name or a length of 9 or
 * less. */
char *gen_manglefilename_length(const char *name, int length, int hash_tail);
/* gen_manglefilename_length(name, 64, 1). */
char *gen_manglefilename(const char *name);

/* ---- Home and current directory ----------------------------------------- */
/* New string with the login name of the real user (looked up once); null
 * when there is none or it is empty. */
char *gen_getusername(void);
/* HOME, or the user's home directory from the password file, kept from the
 * first call.  Not the caller's; may be null. */
const char *gen_gethomedir(void);
/* The current directory, cached until gen_invalidate_cwd.  When the system
 * can't tell it, the home directory (cut to 1024 bytes) stands in; with no
 * home directory either the program ends with
 * "Could not get current working directory.".  Not the caller's. */
const char *gen_getcwd(void);
/* Forgets the cached current directory (gen_chdir calls it). */
void gen_invalidate_cwd(void);
/* ".". */
const char *gen_getdot(void);
/* The device part of names; null on this host. */
const char *gen_getdevice(void);
/* The device and ".", worked out once: "." on this host.  Not the
 * caller's. */
const char *gen_getdevdot(void);

/* ---- Name lists ----------------------------------------------------------- */
/* Takes the next entry of the ':'-separated list: skips leading ':', copies
 * at most size characters of the entry into buffer (which holds size + 1)
 * and terminates it; a longer entry is cut.  Returns where the entry ends,
 * to be passed again, or null when no entry is left (or list is null). */
const char *gen_getpath(const char *list, char *buffer, int size);
/* Shortens name against *current, the previous name of a list: its base
 * name (pointer into name) when both lie in one directory; "./name" for a
 * name without directory behind one whose directory isn't "."; name itself
 * when that directory is "."; otherwise a copy of name.  A new result also
 * replaces *current (a heap string owned by the caller, freed here when
 * replaced) and is owned through it.  Null for a null name. */
const char *gen_addpath(const char *name, char **current);

/* ---- Temporary names -------------------------------------------------------
 * A temporary name is "qo_" + the process id in base 32 + a process-wide
 * counter in base 32 + "." + the suffix, e.g. "qo_16i1.tmp" for process
 * 1234.  A name is free when nothing of that name exists; nothing reserves
 * it until the caller creates the file.  Suffixes drop one leading '.'; a
 * null suffix adds nothing behind the final '.'.  The environment variable
 * BUILDER_TEMPORARY_NAME, when set and non-empty, replaces the stem
 * ("qo_..." without suffix); such a name has no counter, so when it is
 * taken the call fails. */

/* Room of a caller's name buffer for the functions below. */
#define GEN_TMPNAME_SIZE 256

/* Finds one stem for which every requested name in dir is free.  name1 to
 * name3 are caller's buffers of GEN_TMPNAME_SIZE bytes, or null: name2 and
 * name3 are filled only when given, name2 under the directory left by
 * tmp2name (or dir).  Returns name1, or a new heap copy of the first name
 * when name1 is null; null on failure (counter exhausted, name taken under
 * BUILDER_TEMPORARY_NAME, or a name that doesn't fit GEN_TMPNAME_SIZE),
 * with the buffers untouched. */
char *xxtmp3names(const char *dir, char *name1, const char *suffix1, char *name2,
                  const char *suffix2, char *name3, const char *suffix3);
/* xxtmp3names in gen_temp_dir(preferred). */
char *xtmp3names(const char *preferred, char *name1, const char *suffix1, char *name2,
                 const char *suffix2, char *name3, const char *suffix3);
/* xtmp3names with one name. */
char *tmp1name(const char *preferred, char *name1, const char *suffix1);
/* A first name whose twin (same stem, suffix2) in dir2 is free too. */
char *tmp2name(const char *preferred, char *name1, const char *suffix1, const char *dir2,
               const char *suffix2);
/* New temporary name with suffix in the directory of path (the current
 * directory when path has none); null on failure. */
char *gen_tempname(const char *path, const char *suffix);
/* True when gen_stat succeeds on name; errno is left as it was. */
int gen_alreadyused(const char *name);
/* New name of a directory that doesn't exist yet in gen_temp_dir(preferred):
 * "qoPPPPaa" with the low 16 bits of the process id in hexadecimal, the last
 * two characters counting a..z, 0..9 each; null after "99". */
char *gen_tmpdirname(const char *preferred);
/* gen_tmpdirname, created with mkdir and mode; the new name, or null. */
char *gen_createtmpdir(const char *preferred, int mode);
/* mkstemp(name_template). */
int gen_mkstemp(char *name_template);
/* mkstemp wrapped by fdopen with mode; null when either fails. */
FILE *gen_mkstempfp(char *name_template, const char *mode);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDGEN_FILENAME_H */
