/*
 * indconfig.h - source roots and configuration directories, two small
 * services for tools that read a source tree and per-user settings.
 *
 * Source roots are a list of directories against which a file name is
 * turned into a name relative to its root, together with the root's number.
 * They come from an explicit list (gen_sourceroot_init) or from the
 * viewpath, whose root then stands in for the list
 * (gen_sourceroot_initfromviewpath, indview.h).
 *
 * Configuration directories are three places searched in this order for a
 * settings file: the user's (HOME/.tov), the site's (PROGDIR/config) and the
 * site defaults (PROGDIR/defaults), where PROGDIR is gen_getprogdir().  Each
 * is worked out on first use and kept until gen_cleanupconfigdirs.
 *
 * Nothing here prints.  Results described as new come from gen_alloc and
 * are freed by the caller with gen_free; other results stay owned here.
 * Single thread; the state is unprotected.
 */
#ifndef RAVELOG_INDCONFIG_H
#define RAVELOG_INDCONFIG_H

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Source roots ---------------------------------------------------- */

/* Replaces the roots by those of list, entries separated by ':', ';' or
 * ','.  An entry that begins with a drive prefix (a letter or digit, ':',
 * and '\' or '/') is not cut at that ':'.  Trailing '\' and '/' are cut
 * (the first character stays); empty entries are skipped.  Each root is the
 * entry's real path, or the entry itself when it doesn't resolve (which
 * sets allow_fake_roots); an absolute entry spelled otherwise than its root
 * is kept as the alternate root.  At most GEN_MAXSOURCEROOTS roots.
 * Returns the number of roots; a null or empty list returns 0 and changes
 * nothing. */
int gen_sourceroot_init(const char *list);
/* Lets the viewpath's root serve as the only root (number 0) while
 * viewpathing is active, in place of the list. */
void gen_sourceroot_initfromviewpath(void);
/* Frees both root arrays with their strings; the arrays become null and
 * the count 0. */
void gen_sourceroot_cleanup(void);
/* New string: name relative to its root ("." for the root itself), or
 * null for a null name, with no roots, or when no root holds it.  *index
 * (index may be null) receives the root's number, or -1. */
char *gen_sourceroot_getrelname(const char *name, int *index);
/* Hands out the root arrays (null-terminated, owned here, valid until the
 * next init or cleanup) through the pointers that aren't null, and returns
 * the number of roots.  An alternate entry is null where a root has
 * none. */
int gen_sourceroot_getroots(char ***roots, char ***alt_roots);
/* The search of gen_sourceroot_getrelname over a caller's own arrays of
 * count roots (alt_roots may be null, or hold null entries).  A relative
 * name is first joined to gen_getcwd() unless allow_fake_roots is set.  For
 * each root in order its own text and then its alternate text are tried;
 * the first hit wins: the whole root must begin the name, which must end
 * there ("." is the result), go on with '/' or '\' (or the root itself must
 * end in one); the separators are skipped and the rest is the result (or
 * "." when nothing is left).  New string or null; *index as above. */
char *gen_get_relative(char *const *roots, char *const *alt_roots, int count, const char *name,
                       int *index);

/* ---- Configuration directories ------------------------------------------ */

/* The user's directory: what gen_setuserconfigdir stored, else
 * gen_sconcat(gen_gethomedir(), ".tov") (".tov" with no home directory).
 * With create set the directory is made (gen_createdir, mode 0755); when
 * that fails and error isn't null, *error receives the new string
 * "Couldn't create user config directory: DIR".  *error is set to null
 * first.  The directory is returned in any case; it stays owned here. */
const char *gen_getuserconfigdir(int create, char **error);
/* Replaces the user's directory by a copy of dir; null or empty is
 * ignored. */
void gen_setuserconfigdir(const char *dir);
/* gen_sconcat(gen_getprogdir(), "config"); owned here. */
const char *gen_getsiteconfigdir(void);
/* gen_sconcat(gen_getprogdir(), "defaults"); owned here. */
const char *gen_getsitedefaultconfigdir(void);
/* New name of the first file called name in the user's, the site's and the
 * site default directory (only the last with defaults_only set) for which
 * gen_access(file, mode) succeeds and which isn't a directory; null when
 * there is none or name is null.  An absolute name is tested as it stands.
 * The user's directory isn't created here; error is handled as by
 * gen_getuserconfigdir (and so always comes back null). */
char *gen_searchfileinconfigdirs(const char *name, int mode, int defaults_only, char **error);
/* Frees the three directories; the next use works them out again. */
void gen_cleanupconfigdirs(void);
/* New name of the configuration file to use in dir, by precedence:
 * with check_override, dir/override/NAME.cfg when gen_stat finds it
 * (an empty or null dir gives the relative "override"); dir/tov.cfg when
 * gen_stat finds it or fallback_to_name is clear; else dir/NAME.cfg.  NAME
 * is name with its suffix changed to "cfg".  A null name leaves only the
 * "tov.cfg" name. */
char *gen_createconfigfilename(const char *dir, const char *name, int fallback_to_name,
                               int check_override);

/* ======================================================================
 * Internals, exported for tests.
 * ====================================================================== */

#define GEN_MAXSOURCEROOTS 128

extern char **sourceroots;     /* roots (real paths where they resolve),
                                  null-terminated; null before init        */
extern char **alt_sourceroots; /* parallel: the caller's text when absolute
                                  and different, else null                 */
extern int nsourceroots;       /* number of roots                          */
extern int allow_fake_roots;   /* a root didn't resolve: relative names are
                                  compared as they are                     */
extern int use_vp_as_src_root; /* the viewpath's root serves as the root   */
extern char *user_configuration_directory;         /* worked out on first use */
extern char *site_configuration_directory;         /* worked out on first use */
extern char *site_default_configuration_directory; /* worked out on first use */

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDCONFIG_H */
