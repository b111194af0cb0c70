/*
 * indsharedlib.h - a small layer over the platform's dynamic linker
 * (dlopen, dlsym, dlerror).  A library once opened stays mapped for the
 * rest of the process.  Only tov_must_get_shared_library_func_ptr prints.
 */
#ifndef RAVELOG_INDSHAREDLIB_H
#define RAVELOG_INDSHAREDLIB_H

#ifdef __cplusplus
extern "C" {
#endif

/* dlopen(file, flags): flags are the dynamic linker's own (RTLD_LAZY or
 * RTLD_NOW, possibly with RTLD_GLOBAL); a null file gives the handle of the
 * program itself.  Null on failure, with the reason in
 * tov_last_shared_library_error. */
void *tov_open_shared_library(const char *file, int flags);

/* dlerror(): the text of the last failure of this layer, or null when there
 * was none since the last call.  The text belongs to the dynamic linker. */
const char *tov_last_shared_library_error(void);

/* Returns 1 and does nothing: libraries stay mapped to the end. */
int tov_close_shared_library(void *handle);

/* dlsym(handle, symbol): the symbol's address, or null when it can't be
 * resolved. */
void *tov_get_shared_library_func_ptr(void *handle, const char *symbol);

/* As tov_get_shared_library_func_ptr; when the result is null it also
 * reports the error "Could not resolve \"symbol\"" through gen_error, and
 * the program goes on. */
void *tov_must_get_shared_library_func_ptr(void *handle, const char *symbol);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDSHAREDLIB_H */
