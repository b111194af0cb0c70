/*
 * indgen_fileops.h - operations on files: sizes and tests.
 */
#ifndef RAVELOG_INDGEN_FILEOPS_H
#define RAVELOG_INDGEN_FILEOPS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Size of the file in bytes, as a signed 32-bit value; -1 when the file
 * can't be examined (a missing file included).  Prints nothing. */
int gen_filesize(const char *name);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDGEN_FILEOPS_H */
