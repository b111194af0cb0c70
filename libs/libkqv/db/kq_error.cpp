/*
 * kq_error.cpp - the four report functions of libkqv.  The text is
 * formatted into a fixed buffer of 4096 bytes and passed on as "%s" so that
 * no byte of it is taken for a format directive.
 */
#include "kq_error.h"

#include <cstdarg>
#include <cstdio>

namespace {
constexpr size_t kReportBufferSize = 4096;

/* Formats into buffer; vsnprintf keeps an overlong text within the buffer. */
void format_report(char (&buffer)[kReportBufferSize], const char *format, va_list args) {
  vsnprintf(buffer, sizeof buffer, format, args);
}
} // namespace

#define KQ_REPORT_BODY(emit, prefix_format)   \
  char buffer[kReportBufferSize];             \
  va_list args;                               \
  va_start(args, format);                     \
  format_report(buffer, format, args);        \
  va_end(args);                               \
  emit(prefix_format, buffer)

extern "C" void kq_ReportError(const char *format, ...) { KQ_REPORT_BODY(gen_error, "libkqv: %s"); }
extern "C" void kq_ReportWarning(const char *format, ...) { KQ_REPORT_BODY(gen_warning, "libkqv: %s"); }
extern "C" void kq_Report(const char *format, ...) { KQ_REPORT_BODY(gen_info, "libkqv: %s"); }

extern "C" void kq_ReportNotImplemented(const char *format, ...) {
  if (format == nullptr) {
    gen_warning("libkqv: unimplemented functionality");
    return;
  }
  KQ_REPORT_BODY(gen_warning, "libkqv: unimplemented: %s");
}

#undef KQ_REPORT_BODY
