/*
 * indgen_filename.h - file names: splitting into directory, base and suffix.
 * Functions that return a pointer into their argument allocate nothing.
 */
#ifndef RAVELOG_INDGEN_FILENAME_H
#define RAVELOG_INDGEN_FILENAME_H

#ifdef __cplusplus
extern "C" {
#endif

/* Pointer into path just behind its last '/', or path itself when it has
 * none; null for null. */
const char *gen_basename(const char *path);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDGEN_FILENAME_H */
