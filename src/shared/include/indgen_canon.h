/*
 * indgen_canon.h - the one rule by which the foundation makes a file name
 * canonical, as text only (the file system is never asked), and the two
 * tests for an absolute name.  gen_sconcat (indgen_string.h) applies the
 * rule to every name it builds.
 *
 * The rule removes empty components, "." components and "dir/.." pairs, and
 * a "/" that the work leaves at the end.  A leading ".." stays, one leading
 * "/" stays, and a name that needs no work is returned untouched (so "./a",
 * "a/b/" and "//a" keep their form).  The result is never longer than the
 * input.
 */
#ifndef RAVELOG_INDGEN_CANON_H
#define RAVELOG_INDGEN_CANON_H

#ifdef __cplusplus
extern "C" {
#endif

/* Makes name canonical in place and returns it; null gives null.
 * With msw set the name is read in the other host's form first: every '\'
 * becomes '/', a leading "//server" part is left alone, and a leading drive
 * letter with ':' is upper-cased and left alone.  The caller's buffer must be
 * writable; the text can only get shorter. */
char *canonicalizefilename(char *name, int msw);

/* canonicalizefilename(name, 0). */
char *gen_canonicalfilename(char *name);
/* canonicalizefilename(name, 0). */
char *gen_unix_canonicalfilename(char *name);
/* canonicalizefilename(name, 1). */
char *gen_msw_canonicalfilename(char *name);

/* True when name is neither null nor empty and begins with '/' or '~'. */
int gen_absolutefilename(const char *name);
/* True when name is neither null nor empty and begins with '/', '\' or '~',
 * or has ':' as its second character. */
int gen_absolute_msw_filename(const char *name);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDGEN_CANON_H */
