/*
 * ravelog_v1.cpp - the decoder of version 1 event logs, whose pool is a ring
 * of records of varying length with no pointer to the current one.  The
 * probe already sends version 1 files here; the decoder itself is still to
 * come and until then the conversion stops with a message that says so.
 * The readers it will use (cv_GetShortBuf, cv_GetIntBuf, cv_ReadThreadEntry)
 * and the database points are in place.
 */
#include "ravelog.h"

#include "indgen.h"

/* Placeholder: the version 1 decoder replaces this body. */
extern "C" int cv_ParseVersion1(FILE *stream, const char *KQfile, uint8_t bigEndian) {
  gen_errorexit(1, "Decoding of version 1 core files is not available yet.");
  return 0;
}
