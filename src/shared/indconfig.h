/*
 * indconfig.h - source roots and configuration directories.
 */
#ifndef RAVELOG_INDCONFIG_H
#define RAVELOG_INDCONFIG_H

#ifdef __cplusplus
extern "C" {
#endif

/* Releases the source-root list. */
void gen_sourceroot_cleanup(void);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDCONFIG_H */
