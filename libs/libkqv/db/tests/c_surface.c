/* c_surface.c - the public headers of the foundation and of libkqv compiled as
 * C11, and the worked example's database written and read back from C: C++ in a
 * public header, or a declaration without C linkage, breaks the build. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "adt_hash.h"
#include "adt_list.h"
#include "indgadr.h"
#include "indgen.h"
#include "indgfile.h"
#include "kq_byteorder.h"
#include "kq_error.h"
#include "kq_io.h"
#include "kq_state.h"
#include "kq_tracker.h"

int main(void) {
  char base[] = "/tmp/ravelog-c-surface-XXXXXX";
  int fd = mkstemp(base), failures = fd < 0;
  close(fd);
  unlink(base);
  kq_DB *db = kq_OpenForCreation(base, 1000000, "ThreadX", 1, NULL);
  const unsigned char payload[4] = {0x00, 0x00, 0x00, 0x2A};
  failures += db == NULL || kq_AddEventFromRawBytes(db, 0, 5, 0x10000u, payload, 4) != 1 ||
              kq_AddEventFromRawBytes(db, 0, 6, 0x20003u, NULL, 0) != 1;
  kq_Close(db);
  db = kq_OpenForUse(base);
  uint32_t first = 9, count = 0, owner = 0;
  uint16_t ownerType = 9;
  void *event = NULL;
  List_PT list = kq_GetEventListAndStateFromTimeRange(db, 0, 100, NULL);
  failures += kq_GetStartEventAndNumEvents(db, &first, &count) != 1 || count != 2 || List_GetSize(list) != 2 ||
              List_PeekEnd(list, &event, 0) != 1 || kq_GetOwnerOfEvent(db, (kq_Event *)event, &ownerType, &owner) != 1 ||
              owner != 0x2A || ownerType != 0 || strcmp(kq_GetNameOfEvent(db, (kq_Event *)event), "TaskChange") != 0;
  List_Delete(list);
  kq_Close(db);
  const char *suffixes[3] = {".kqv", ".kqs", ".kqi"};
  const int sizes[3] = {41, 71, 34};
  for (int i = 0; i < 3; i++) {
    char *name = gen_concat(base, suffixes[i]);
    failures += gen_filesize(name) != sizes[i] || gen_removefile(name) != 0;
    gen_free(name);
  }
  failures += CmpUInt64(5, 7) != 1 || IncrementUInt64(0xFFFFFFFFu) != 0x100000000u || gadr_encoding_from_mode(2) != 4;
  printf("C surface: %d checks failed\n", failures);
  return failures == 0 ? 0 : 1;
}
