/*
 * check_fuzz.cpp - drives kq_CheckDatabase (what `kqv check` prints) on a
 * database made of the input, laid out as for db_reader: a U4 length of
 * .kqv and one of .kqs in front, then the three files (the rest is .kqi),
 * in a directory in /dev/shm.  Each problem reported is read whole; the
 * check must report no more than KQ_CHECK_MAX_REPORTS problems and one
 * line more, count at least what it reported, give the same count again
 * without a callback, and find no more events than the stream can hold.  A
 * database it calls sound must read whole through the cursor: as many
 * events as the check counted, and no damage.
 */
#include <cstring>

#include "fuzz_support.h"
#include "kq_check.h"
#include "kq_cursor.h"
#include "kq_io.h"

namespace {

/* The smallest event packet (see db_reader_fuzz.cpp). */
constexpr size_t kSmallestEvent = 1 + 8 + 4 + 2 + 2 + 1;

struct Reports {
  uint32_t lines = 0;
  size_t characters = 0;
};

void Report(void *context, const char *problem) {
  auto *reports = static_cast<Reports *>(context);
  FUZZ_CHECK(problem != nullptr, "null problem text");
  reports->lines++;
  reports->characters += strlen(problem);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static fuzzsupport::DatabaseDir *dir = [] {
    fuzzsupport::QuietProgram();
    return new fuzzsupport::DatabaseDir;
  }();
  size_t streamLength = 0;
  FUZZ_CHECK(dir->Write(data, size, &streamLength), "can't write the files");
  kq_DB *db = kq_OpenForUse(dir->Base());
  if (db == nullptr) return 0;

  Reports reports;
  kq_CheckSummary summary{};
  const uint32_t problems = kq_CheckDatabase(db, Report, &reports, &summary);
  FUZZ_CHECK(reports.lines <= KQ_CHECK_MAX_REPORTS + 1, "too many reports");
  FUZZ_CHECK(problems >= reports.lines, "fewer problems counted than reported");
  FUZZ_CHECK((problems == 0) == (reports.lines == 0), "problems counted but none reported");
  FUZZ_CHECK(summary.events <= streamLength / kSmallestEvent,
             "more events than the stream can hold");
  FUZZ_CHECK(kq_CheckDatabase(db, nullptr, nullptr, nullptr) == problems,
             "a second check counts differently");

  if (problems == 0) {
    kq_Cursor *cursor = kq_NewCursor(db, 1);
    const kq_CursorEvent *event = nullptr;
    uint64_t events = 0;
    int step = 0;
    while ((step = kq_CursorNext(cursor, &event)) == 1) events++;
    FUZZ_CHECK(step == 0, "the cursor finds damage in a database the check calls sound");
    FUZZ_CHECK(events == summary.events, "the cursor and the check count different events");
    kq_DeleteCursor(cursor);
  }
  kq_Close(db);
  return 0;
}
