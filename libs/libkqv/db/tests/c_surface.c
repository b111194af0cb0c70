/*
 * c_surface.c - the public headers of the foundation and of libkqv compiled
 * as C11, and a small database written and checked from C.  If C++ creeps
 * into a public header, or a declaration loses its C linkage, this file no
 * longer builds or links.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "adt_hash.h"
#include "adt_list.h"
#include "indgadr.h"
#include "indgen.h"
#include "indgfile.h"
#include "kq_error.h"
#include "kq_io.h"
#include "kq_byteorder.h"
#include "kq_state.h"
#include "kq_tracker.h"

static int failures = 0;

#define CHECK(condition)                                              \
  do {                                                                \
    if (!(condition)) {                                               \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
      failures++;                                                     \
    }                                                                 \
  } while (0)

static int record_nothing(kq_DB *db, HT_PT current, HT_PT used, kq_Event *event) {
  (void)db;
  (void)current;
  (void)used;
  (void)event;
  return 1;
}

static void containers_from_c(void) {
  HT_PT table = HT_New(0, HT_StringHashFunc, HT_StringCompareFunc, HT_StringDeleteFunc, NULL, NULL, NULL);
  CHECK(table != NULL);
  CHECK(HT_InsertItem(table, gen_copy("abc"), NULL) == 1);
  CHECK(HT_GetSize(table) == 1);
  HT_Delete(table);

  List_PT list = List_New(NULL, NULL);
  int value = 7;
  void *out = NULL;
  CHECK(List_Push(list, &value, 1) == 1);
  CHECK(List_Pop(list, &out, 0) == 1 && out == &value);
  List_Delete(list);
}

/* The two events of the layout's worked example, written from C. */
static void database_from_c(void) {
  char base[] = "/tmp/ravelog-c-surface-XXXXXX";
  int fd = mkstemp(base);
  CHECK(fd >= 0);
  close(fd);
  unlink(base);

  kq_DB *db = kq_OpenForCreation(base, 1000000, "ThreadX", 1, record_nothing);
  CHECK(db != NULL);
  if (db == NULL) return;
  const unsigned char payload[4] = {0x00, 0x00, 0x00, 0x2A};
  CHECK(kq_AddEventFromRawBytes(db, 0, 5, 0x10000u, payload, 4) == 1);
  CHECK(kq_AddEventFromRawBytes(db, 0, 6, 0x20003u, NULL, 0) == 1);
  kq_Close(db);

  const char *suffixes[3] = {".kqv", ".kqs", ".kqi"};
  const int sizes[3] = {41, 71, 34};
  for (int i = 0; i < 3; i++) {
    char *name = gen_concat(base, suffixes[i]);
    CHECK(gen_filesize(name) == sizes[i]);
    gen_removefile(name);
    gen_free(name);
  }
}

int main(void) {
  CHECK(kq_ConvertToHostOrder4(1, "\x00\x00\x12\x34") == 0x1234u);
  CHECK(CmpUInt64(5, 7) == 1);
  CHECK(gadr_encoding_from_mode(2) == 4);
  containers_from_c();
  database_from_c();
  if (failures == 0) printf("C surface: all checks passed\n");
  return failures == 0 ? 0 : 1;
}
