/*
 * ravelog_read.cpp - the readers both decoders use to take numbers out of a
 * corefile and out of its event pool in the log's byte order.  File readers
 * fail with one fatal message on a short read; memory readers trust the
 * caller to have checked that the bytes are there.
 */
#include "ravelog.h"

#include <cerrno>
#include <cstddef>

#include "indgen.h"
#include "kq_byteorder.h"

static_assert(sizeof(cv_ThreadEntry) == 44, "a thread list entry is 44 bytes in the file");
static_assert(offsetof(cv_ThreadEntry, valid) == 34);
static_assert(offsetof(cv_ThreadEntry, next) == 35);
static_assert(offsetof(cv_ThreadEntry, threadId) == 36);
static_assert(offsetof(cv_ThreadEntry, priority) == 40);

namespace {

/* Prints the two lines that precede a failed buffer read; errno is the one
 * the read left (the readers clear it before reading). */
void short_buffer_read(size_t got, void *buf, int n) {
  const int read_errno = errno;
  printf("rv is %d, errno is %d\n", static_cast<int>(got), read_errno);
  printf("buffer is %p, length is %d\n", buf, n);
  gen_errorexit(1, "Error reading buffer from corefile.");
}

} // namespace

/* ---- File readers ------------------------------------------------------- */

extern "C" void *cv_ReadChar(void *buf, FILE *stream) {
  if (fread(buf, 1, 1, stream) != 1) gen_errorexit(1, "Error reading char from corefile.");
  return buf;
}

extern "C" int cv_GetShort(FILE *stream, uint8_t bigEndian) {
  unsigned char bytes[2] = {0, 0};
  if (fread(bytes, 1, 2, stream) != 2) gen_errorexit(1, "Error reading short from corefile.");
  return static_cast<int16_t>(kq_ConvertToHostOrder2(bigEndian, bytes));
}

extern "C" uint32_t cv_GetInt(FILE *stream, uint8_t bigEndian) {
  unsigned char bytes[4] = {0, 0, 0, 0};
  if (fread(bytes, 1, 4, stream) != 4) gen_errorexit(1, "Error reading int4 from corefile.");
  return kq_ConvertToHostOrder4(bigEndian, bytes);
}

extern "C" void *cv_ReadBuffer(void *buf, int n, FILE *stream) {
  const size_t wanted = n > 0 ? static_cast<size_t>(n) : 0;
  errno = 0;
  const size_t got = fread(buf, 1, wanted, stream);
  if (got < wanted) short_buffer_read(got, buf, n);
  return buf;
}

extern "C" void *cv_ReadUintBuffer(void *buf, int n, FILE *stream) {
  const size_t wanted = n > 0 ? static_cast<size_t>(n) : 0;
  errno = 0;
  const size_t got = fread(buf, 4, wanted, stream);
  if (got < wanted) short_buffer_read(got, buf, n);
  return buf;
}

extern "C" void *cv_ReadTaskName(void *buf, FILE *stream) {
  return cv_ReadBuffer(buf, CV_TASK_NAME_FIELD, stream);
}

extern "C" void cv_ReadThreadEntry(cv_ThreadEntry *entry, FILE *stream) {
  cv_ReadTaskName(entry->name, stream);
  cv_ReadChar(&entry->valid, stream);
  cv_ReadChar(&entry->next, stream);
  cv_ReadUintBuffer(&entry->threadId, 1, stream);
  cv_ReadUintBuffer(&entry->priority, 1, stream);
}

/* ---- Memory readers ------------------------------------------------------ */

extern "C" int cv_GetShortBuf(unsigned char **pointer, uint8_t bigEndian) {
  const int value = static_cast<int16_t>(kq_ConvertToHostOrder2(bigEndian, *pointer));
  *pointer += 2;
  return value;
}

extern "C" uint32_t cv_GetIntBuf(unsigned char **pointer, uint8_t bigEndian) {
  const uint32_t value = kq_ConvertToHostOrder4(bigEndian, *pointer);
  *pointer += 4;
  return value;
}

extern "C" int cv_GetShortIdx(uint32_t *index, const unsigned char *base, uint8_t bigEndian) {
  const int value = static_cast<int16_t>(kq_ConvertToHostOrder2(bigEndian, base + *index));
  *index += 2;
  return value;
}

extern "C" uint32_t cv_GetIntIdx(uint32_t *index, const unsigned char *base, uint8_t bigEndian) {
  const uint32_t value = kq_ConvertToHostOrder4(bigEndian, base + *index);
  *index += 4;
  return value;
}
