/*
 * kq_error.h - the library's own messages.  Each report function formats its
 * arguments into a buffer of 4096 bytes (a limit callers must respect) and
 * hands the text to the foundation's message layer behind "libkqv: ".
 */
#ifndef RAVELOG_KQ_ERROR_H
#define RAVELOG_KQ_ERROR_H

#include "indgeninit.h"

#ifdef __cplusplus
extern "C" {
#endif

/* "libkqv: text" at the error level (gen_error). */
void kq_ReportError(const char *format, ...) GEN_PRINTF_LIKE(1, 2);
/* "libkqv: text" at the warning level (gen_warning). */
void kq_ReportWarning(const char *format, ...) GEN_PRINTF_LIKE(1, 2);
/* "libkqv: text" at the info level (gen_info). */
void kq_Report(const char *format, ...) GEN_PRINTF_LIKE(1, 2);
/* "libkqv: unimplemented: text" as a warning; with a null format
 * "libkqv: unimplemented functionality". */
void kq_ReportNotImplemented(const char *format, ...) GEN_PRINTF_LIKE(1, 2);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_KQ_ERROR_H */
