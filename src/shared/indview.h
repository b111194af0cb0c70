/*
 * indview.h - the file-system calls of the foundation library as seen
 * through a viewpath.  With viewpathing off (mode 0, as ravelog runs) each
 * wrapper is the plain system call.
 */
#ifndef RAVELOG_INDVIEW_H
#define RAVELOG_INDVIEW_H

#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Starts viewpathing: 0 off, 1 slow, 2 fast. */
void gen_viewpathing_init(int mode);
/* Releases what gen_viewpathing_init built. */
void gen_viewpathing_cleanup(void);

/* null for a null name, else fopen(name, mode); prints nothing. */
FILE *gen_fopen(const char *name, const char *mode);
int gen_stat(const char *name, struct stat *buf);
int gen_access(const char *name, int mode);
int gen_open(const char *name, int flags, int mode);
int gen_creat(const char *name, int mode);
int gen_unlink(const char *name);
/* The plain stat(2), never through a viewpath. */
int gen_sys_stat(const char *name, struct stat *buf);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDVIEW_H */
