/*
 * indgen_host.h - processes, time, host facts and the environment.
 */
#ifndef RAVELOG_INDGEN_HOST_H
#define RAVELOG_INDGEN_HOST_H

#ifdef __cplusplus
extern "C" {
#endif

/* The value of the environment variable name, or fallback when it is
 * missing or the empty string.  The result is not the caller's. */
const char *gen_getenv(const char *name, const char *fallback);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDGEN_HOST_H */
