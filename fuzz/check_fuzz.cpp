/*
 * check_fuzz.cpp - drives kq_CheckDatabase (what `kqv check` prints) on a
 * database made of the input, laid out as for db_reader: a U4 length of
 * .kqv and one of .kqs in front, then the three files (the rest is .kqi),
 * in a directory in /dev/shm.  Each problem reported is read whole; the
 * check must report no more than KQ_CHECK_MAX_REPORTS problems and one
 * line more, count at least what it reported, give the same count again
 * without a callback, and find no more events than the stream can hold.  A
 * database it calls sound must read whole through the cursor, as many
 * events as the check counted and no damage; when its index has an entry
 * for every block, also alike through the event lists of kq_io.h: the
 * count of kq_GetStartEventAndNumEvents, the same times, types and payloads
 * in the same order, and the same state of every object at the end.
 */
#include <cstring>

#include "fuzz_support.h"
#include "indgeninit.h"
#include "kq_check.h"
#include "kq_cursor.h"
#include "kq_io.h"
#include "kq_state.h"

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

/* The events of a sound database read twice: through the cursor, keeping
 * state, and (when the index has an entry for every block) as one list
 * from the first event on.  The queries see the blocks of the index only,
 * so a block whose entry a writer had not added yet is the cursor's alone. */
void CompareReadings(kq_DB *db, const kq_CheckSummary &summary) {
  const uint64_t events = summary.events;
  if (summary.entries != summary.blocks) {
    kq_Cursor *cursor = kq_NewCursor(db, 1);
    const kq_CursorEvent *event = nullptr;
    uint64_t stepped = 0;
    int step = 0;
    while ((step = kq_CursorNext(cursor, &event)) == 1) stepped++;
    FUZZ_CHECK(step == 0, "the cursor finds damage in a database the check calls sound");
    FUZZ_CHECK(stepped == events, "the cursor and the check count different events");
    kq_DeleteCursor(cursor);
    return;
  }
  uint32_t first = 0;
  uint32_t count = 0;
  kq_GetStartEventAndNumEvents(db, &first, &count);
  FUZZ_CHECK(count == events, "the event count differs from the check's");
  kq_State *before = nullptr;
  List_PT list = kq_GetNEventsAndStateFromEventNum(db, 0, 0, &before);
  FUZZ_CHECK(static_cast<uint64_t>(List_GetNumEles(list)) == events,
             "the list holds another number of events");
  kq_DeleteState(before);

  kq_Cursor *cursor = kq_NewCursor(db, 1);
  const kq_CursorEvent *event = nullptr;
  int step = 0;
  uint64_t stepped = 0;
  ListIter_PT it = List_Begin(list, 0);
  while ((step = kq_CursorNext(cursor, &event)) == 1) {
    stepped++;
    void *value = nullptr;
    FUZZ_CHECK(ListIter_GetValue(it, &value) == 1, "the list ends before the cursor");
    const auto *listed = static_cast<const kq_Event *>(value);
    FUZZ_CHECK(listed->time == event->time && listed->type == event->type &&
                   listed->subtype == event->subtype && listed->length == event->length,
               "the cursor and the list read an event differently");
    FUZZ_CHECK(event->length == 0 || memcmp(listed->data, event->payload, event->length) == 0,
               "the cursor and the list read a payload differently");
    ListIter_Next(&it, 1);
  }
  FUZZ_CHECK(step == 0, "the cursor finds damage in a database the check calls sound");
  FUZZ_CHECK(stepped == events, "the cursor and the check count different events");
  List_Delete(list);

  kq_State *last = nullptr;
  kq_GetStateAndIterFromTime(db, UINT64_MAX, nullptr, &last);
  kq_State *steppedState = kq_CursorState(cursor);
  FUZZ_CHECK(HT_GetSize(last->table) == HT_GetSize(steppedState->table),
             "the final states hold different numbers of objects");
  HT_ForEach(
      steppedState->table,
      [](void *key, void *, void *context) -> int {
        const auto *object = static_cast<const kq_StateObject *>(key);
        uint8_t *bytes = nullptr;
        uint32_t length = 0;
        FUZZ_CHECK(kq_GetStateOfObject(static_cast<kq_State *>(context), object->type, object->id,
                                       &bytes, &length) == 1,
                   "an object of the cursor's final state is missing from the queried one");
        FUZZ_CHECK(length == object->length &&
                       (length == 0 || memcmp(bytes, object->value, length) == 0),
                   "the final states differ in an object's value");
        gen_free(bytes);
        return 1;
      },
      last);
  kq_DeleteState(last);
  kq_DeleteCursor(cursor);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  size_t streamLength = 0;
  kq_DB *db = fuzzsupport::OpenDatabase(data, size, &streamLength);
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

  if (problems == 0) CompareReadings(db, summary);
  kq_Close(db);
  return 0;
}
