/*
 * kq_io_read.cpp - opens an event database for reading and keeps its time
 * index: the packet readers of the stream, the in-memory index with its
 * refresh, the count of the newest events, the block search that every
 * query by time starts with, and the handle's accessors.  The queries are in
 * kq_io_query.cpp (time and number) and kq_io_objects.cpp (object usage);
 * the layout of the files is in kq_io_format.h.
 *
 * A reading handle holds .kqv, .kqs and .kqi open until kq_Close, and the
 * index (one TimePos per block) in memory.  The database may still be
 * growing: UpdateKqi takes in new index entries, and the count walks the
 * stream from the last indexed block to the 0 tag that ends it, across
 * blocks the index doesn't show yet.  Every reading operation starts with a
 * fresh seek (SeekToRead), so it sees what the writer added since the last
 * call and no byte that stdio kept from an earlier read.
 *
 *   kq_OpenForUse --> READING --kq_GetTimeExtent / kq_GetStartEventAndNumEvents
 *                        |         (UpdateKqi + count: numTimePos grows,
 *                        |          lastStreamTag moves to the end)--> READING
 *                        |--queries (see the index as last refreshed)--> READING
 *                        `--kq_Close--> gone
 */
#include "kq_io_read.h"

#include <climits>
#include <cstdio>
#include <cstring>

#include "indgen.h"
#include "indgeninit.h"
#include "kq_io.h"
#include "kq_io_files.h"
#include "kq_io_format.h"
#include "kq_byteorder.h"
#include "kq_state.h"

static_assert(KQ_INDEX_ENTRY_SIZE == 1 + 8 + 4, "an index entry is its tag, a U8 and a U4");
static_assert(KQ_FIRST_POSITION == GF_HEADER_SIZE, "the files start behind the GFile header");

namespace {

/* ---- Bytes left in a file --------------------------------------------------
 * Lengths read from a file are checked against the bytes that remain behind
 * the current position.  The file's size is taken with fstat once per
 * reading operation (SeekToRead forgets it) and again only when a length
 * doesn't fit the size known, since a growing file only gets longer. */

struct KnownSize {
  const GFile *file = nullptr;
  int64_t size = 0;
};
thread_local KnownSize knownSize;

/* The file's length now, 0 when it can't be told. */
int64_t SizeOfFile(const GFile *file) {
  const int64_t size = gf_stream_length(file);
  return size < 0 ? 0 : size;
}

/* Whether n bytes remain behind the current position of file. */
bool FitsInFile(GFile *file, uint64_t n) {
  const int64_t here = gf_stream_offset(file);
  if (here < 0) return false;
  const auto need = static_cast<uint64_t>(here) + n;
  if (knownSize.file == file && need <= static_cast<uint64_t>(knownSize.size)) return true;
  knownSize.file = file;
  knownSize.size = SizeOfFile(file);
  return need <= static_cast<uint64_t>(knownSize.size);
}

/* The bytes behind the current position of file, at most UINT32_MAX. */
uint32_t BytesLeft(GFile *file) {
  const int64_t here = gf_stream_offset(file);
  const int64_t left = here < 0 ? 0 : SizeOfFile(file) - here;
  if (left <= 0) return 0;
  return left > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(left);
}

/* Goes to the end of the file and reads there, so that ReadHitEnd answers
 * 1: what a reader meets when a length runs past the end. */
void GoToEnd(GFile *file) {
  if (!gf_is_open(file)) return;
  gf_seek_to_end(file);
  (void)gf_get_1(file);
}

/* Up to this many bytes are passed over by reading them through the
 * stream's buffer; more by a seek.  A seek costs system calls even within
 * the buffer, reading costs one only when the buffer runs dry. */
constexpr uint32_t kSkipByReading = 16384;

/* Reads and drops n bytes. */
void ReadAndDrop(GFile *file, uint32_t n) {
  uint8_t scratch[4096];
  while (n > 0) {
    const uint32_t chunk = n < sizeof scratch ? n : static_cast<uint32_t>(sizeof scratch);
    gf_get_array_1(file, scratch, chunk);
    n -= chunk;
  }
}

/* Passes over n bytes, or goes to the end of the file when fewer remain. */
void SkipBytes(GFile *file, uint32_t n) {
  if (n == 0) return;
  if (!FitsInFile(file, n)) {
    GoToEnd(file);
  } else if (n <= kSkipByReading) {
    ReadAndDrop(file, n);
  } else {
    gf_skip_array_1(file, n);
  }
}

/* A new block (gen_free) holding the next n bytes of file; null for 0.
 * REQUIRES: FitsInFile(file, n). */
uint8_t *ReadBytes(GFile *file, uint32_t n) {
  if (n == 0) return nullptr;
  auto *bytes = static_cast<uint8_t *>(gen_alloc(n, 1));
  gf_get_array_1(file, bytes, n);
  return bytes;
}

kq_StateObject *NewObject(uint16_t type, uint32_t id, uint32_t length, uint8_t *value) {
  auto *object = static_cast<kq_StateObject *>(gen_alloc(1, sizeof(kq_StateObject)));
  object->type = type;
  object->id = id;
  object->length = length;
  object->value = value;
  return object;
}

/* Inserts object into state's table; a key already there keeps its entry
 * and the new object is deleted. */
void InsertOrDrop(kq_State *state, kq_StateObject *object) {
  if (!HT_InsertItem(state->table, object, nullptr)) DelStateObject(object);
}

/* ---- Opening ----------------------------------------------------------------- */

/* The .kqv fields behind the header.  Nothing is checked: a damaged field
 * gives a wrong value, and a name longer than the file gives the bytes that
 * are there. */
void ReadHeaderFields(kq_DB *db) {
  GFile *header = db->headerFile;
  db->formatVersion = gf_get_1(header);
  db->ticksPerSecond = gf_get_4(header);
  const uint32_t nameLength = gf_get_4(header);
  const uint32_t present = FitsInFile(header, nameLength) ? nameLength : BytesLeft(header);
  db->configName = static_cast<char *>(gen_alloc(present + 1, 1));
  gf_get_array_1(header, db->configName, present);
  if (present != nameLength) GoToEnd(header);
  db->isBigEndian = gf_get_1(header) != 0 ? 1 : 0;
  db->eventsPerBlock =
      db->formatVersion >= KQ_FIRST_VERSION_WITH_EPB ? gf_get_4(header) : KQ_EVENTS_PER_BLOCK;
}

/* Reads the whole .kqi into db->timePos: a pass that counts the entries,
 * then one that stores them, so the array gets its size at once, with one
 * zeroed entry to spare.  False on a wrong tag at an entry boundary (the 255
 * of a file that lost its final 0 tag included); an entry cut by the end of
 * the file is left out. */
bool ReadWholeIndex(kq_DB *db) {
  GFile *index = db->indexFile;
  const int32_t firstTag = KQ_FIRST_POSITION;
  SeekToRead(index, firstTag);  // also lets gf_tell answer without a system call
  uint32_t entries = 0;
  for (;;) {
    db->lastIndexTag = static_cast<uint32_t>(gf_tell(index, nullptr));
    const uint32_t tag = gf_get_1(index);
    if (tag == KQ_INDEX_TAG_END) break;
    if (tag != KQ_INDEX_TAG_ENTRY) return false;
    uint64_t time = 0;
    uint32_t position = 0;
    GetTimePos(index, &time, &position);
    if (ReadHitEnd(index)) break;
    entries++;
  }

  gf_seek(index, firstTag);
  db->timePos = static_cast<TimePos *>(gen_alloc(entries + 1, sizeof(TimePos)));
  for (uint32_t i = 0; i < entries; i++) {
    if (gf_get_1(index) != KQ_INDEX_TAG_ENTRY) return false;
    GetTimePos(index, &db->timePos[i].time, &db->timePos[i].position);
    if (ReadHitEnd(index)) return false;
  }
  gf_seek(index, firstTag);
  db->lastStreamTag = 0;
  db->numTimePos = entries;
  return true;
}

}  // namespace

/* ---- Positioning ---------------------------------------------------------------- */

extern "C" void SeekToRead(GFile *file, uint32_t position) {
  if (!gf_is_open(file)) return;
  /* The buffered bytes are dropped, and the seek then reads from the file
   * again instead of from the buffer. */
  gf_flush(file);
  knownSize.file = nullptr;
  if (position > static_cast<uint32_t>(INT32_MAX)) {
    gf_seek_to_end(file);
    return;
  }
  gf_seek(file, static_cast<int32_t>(position));
}

extern "C" void SeekWithin(GFile *file, uint32_t position) {
  if (!gf_is_open(file)) return;
  if (position > static_cast<uint32_t>(INT32_MAX)) {
    gf_seek_to_end(file);
    return;
  }
  const int64_t here = gf_stream_offset(file);
  if (here >= 0 && position >= here && position - here <= kSkipByReading &&
      FitsInFile(file, position - here)) {
    ReadAndDrop(file, static_cast<uint32_t>(position - here));
    return;
  }
  gf_seek(file, static_cast<int32_t>(position));
}

extern "C" int ReadHitEnd(GFile *file) { return gf_hit_end(file); }

/* ---- Packet readers --------------------------------------------------------------- */

extern "C" int GetStateChange(GFile *file, StateChange **change, int want) {
  const uint32_t tag = gf_get_1(file);
  if (tag == KQ_CHANGE_END) return 0;
  if (tag != KQ_CHANGE_NEW && tag != KQ_CHANGE_MOD && tag != KQ_CHANGE_DEL) {
    fputs("Unrecognized StateChange type\n", stderr);
    return 0;
  }
  StateChange record{};
  record.kind = static_cast<uint8_t>(tag);
  record.type = static_cast<uint16_t>(gf_get_2(file));
  record.id = gf_get_4(file);
  uint32_t byteCount = 0;
  if (tag == KQ_CHANGE_NEW) {
    record.offsetOrLength = static_cast<uint16_t>(gf_get_2(file));
    byteCount = record.offsetOrLength;
  } else if (tag == KQ_CHANGE_MOD) {
    record.offsetOrLength = static_cast<uint16_t>(gf_get_2(file));
    record.modLength = static_cast<uint8_t>(gf_get_1(file));
    byteCount = record.modLength;
  }
  if (ReadHitEnd(file)) return 0;
  if (!FitsInFile(file, byteCount)) {
    GoToEnd(file);
    return 0;
  }
  if (want) {
    record.bytes = ReadBytes(file, byteCount);
  } else {
    SkipBytes(file, byteCount);
  }
  if (ReadHitEnd(file)) {
    gen_free(record.bytes);
    return 0;
  }
  if (want && change != nullptr) {
    auto *made = static_cast<StateChange *>(gen_alloc(1, sizeof(StateChange)));
    *made = record;
    *change = made;
  } else {
    gen_free(record.bytes);
  }
  return 1;
}

extern "C" int GetEvent(GFile *file, uint64_t *time, uint16_t *type, uint16_t *subtype,
                        uint8_t **payload, uint32_t *length, List_PT *changes, int want) {
  const uint64_t eventTime = gf_get_8(file);
  const uint32_t payloadLength = gf_get_4(file);
  const auto eventType = static_cast<uint16_t>(gf_get_2(file));
  const auto eventSubtype = static_cast<uint16_t>(gf_get_2(file));
  if (time != nullptr) *time = eventTime;
  if (type != nullptr) *type = eventType;
  if (subtype != nullptr) *subtype = eventSubtype;
  if (length != nullptr) *length = payloadLength;

  uint8_t *data = nullptr;
  bool whole = !ReadHitEnd(file);
  if (whole) {
    if (!FitsInFile(file, payloadLength)) {
      GoToEnd(file);  // a damaged length allocates nothing
    } else if (want) {
      data = ReadBytes(file, payloadLength);
    } else {
      SkipBytes(file, payloadLength);
    }
    whole = !ReadHitEnd(file);
  }

  List_PT list = want ? List_New(StateChangeDelete, nullptr) : nullptr;
  if (whole) {
    StateChange *change = nullptr;
    while (GetStateChange(file, &change, want)) {
      if (want && !List_Push(list, change, 1)) StateChangeDelete(change);
      change = nullptr;
    }
    whole = !ReadHitEnd(file);
  }
  if (want) {
    if (payload != nullptr) {
      *payload = data;
    } else {
      gen_free(data);
    }
    if (changes != nullptr) {
      *changes = list;
    } else {
      List_Delete(list);
    }
  }
  return whole ? 1 : 0;
}

extern "C" kq_State *GetStateSave(GFile *file, int want) {
  const uint32_t count = gf_get_4(file);
  kq_State *state = want ? kq_NewState() : nullptr;
  for (uint32_t i = 0; i < count && !ReadHitEnd(file); i++) {
    const auto type = static_cast<uint16_t>(gf_get_2(file));
    const uint32_t id = gf_get_4(file);
    const uint32_t valueLength = gf_get_4(file);
    if (ReadHitEnd(file)) break;
    if (!FitsInFile(file, valueLength)) {
      GoToEnd(file);
      break;
    }
    if (!want) {
      SkipBytes(file, valueLength);
      continue;
    }
    kq_StateObject *object = NewObject(type, id, valueLength, ReadBytes(file, valueLength));
    if (ReadHitEnd(file)) {
      DelStateObject(object);
      break;
    }
    InsertOrDrop(state, object);
  }
  return state;
}

extern "C" kq_State *GetObjUsed(GFile *file, int want) {
  const uint32_t count = gf_get_4(file);
  kq_State *state = want ? kq_NewState() : nullptr;
  for (uint32_t i = 0; i < count && !ReadHitEnd(file); i++) {
    const auto type = static_cast<uint16_t>(gf_get_2(file));
    const uint32_t id = gf_get_4(file);
    if (ReadHitEnd(file)) break;
    if (want) InsertOrDrop(state, NewObject(type, id, 0, nullptr));
  }
  return state;
}

extern "C" int GetTimePos(GFile *file, uint64_t *time, uint32_t *position) {
  const uint64_t entryTime = gf_get_8(file);
  const uint32_t entryPosition = gf_get_4(file);
  if (time != nullptr) *time = entryTime;
  if (position != nullptr) *position = entryPosition;
  return 1;
}

/* ---- Opening ------------------------------------------------------------------------- */

extern "C" kq_DB *kq_OpenForUse(const char *base) {
  if (base == nullptr) return nullptr;
  kqio::DatabaseFiles made;
  if (!made.NameAfter(base)) return nullptr;
  /* .kqv comes to exist last when a database is made: when it is there,
   * the other two are complete with their headers. */
  made.headerFile = gf_open_for_read(nullptr, nullptr, made.headerName);
  if (made.headerFile == nullptr) return nullptr;
  made.streamFile = gf_open_for_read(nullptr, nullptr, made.streamName);
  if (made.streamFile == nullptr) return nullptr;
  made.indexFile = gf_open_for_read(nullptr, nullptr, made.indexName);
  if (made.indexFile == nullptr) return nullptr;

  kq_DB *db = New_kq_DB();
  if (db == nullptr) return nullptr;
  made.HandOver(db);
  ReadHeaderFields(db);
  if (!ReadWholeIndex(db)) {
    kq_Close(db);
    return nullptr;
  }
  return db;
}

extern "C" kq_DB *kq_OpenKqsForUse(const char *fileName) {
  if (fileName == nullptr) return nullptr;
  const size_t length = strlen(fileName);
  if (length < 4) return nullptr;
  char *base = gen_copyn(fileName, static_cast<int>(length - 4));
  kq_DB *db = kq_OpenForUse(base);
  gen_free(base);
  return db;
}

/* ---- The time index ----------------------------------------------------------------- */

extern "C" int IsReadHandle(const kq_DB *db) {
  return db != nullptr && db->timePos != nullptr && db->streamFile != nullptr &&
                 db->indexFile != nullptr
             ? 1
             : 0;
}

extern "C" uint32_t UpdateKqi(kq_DB *db) {
  if (!IsReadHandle(db)) return 0;
  GFile *index = db->indexFile;
  SeekToRead(index, db->lastIndexTag);
  uint32_t added = 0;
  for (;;) {
    const uint32_t tag = gf_get_1(index);
    if (tag == KQ_INDEX_TAG_END) break;
    if (tag != KQ_INDEX_TAG_ENTRY) return 0;
    GetTimePos(index, nullptr, nullptr);
    if (ReadHitEnd(index)) break;
    added++;
  }
  if (added == 0) return 0;

  const uint64_t total = static_cast<uint64_t>(db->numTimePos) + added;
  if (total * sizeof(TimePos) > static_cast<uint64_t>(INT_MAX)) return 0;
  db->timePos = static_cast<TimePos *>(
      gen_realloc(db->timePos, static_cast<int>(total * sizeof(TimePos))));

  gf_seek(index, static_cast<int32_t>(db->lastIndexTag));
  for (uint32_t i = 0; i < added; i++) {
    if (gf_get_1(index) != KQ_INDEX_TAG_ENTRY) return 0;  // numTimePos, lastIndexTag unchanged
    TimePos &entry = db->timePos[db->numTimePos + i];
    GetTimePos(index, &entry.time, &entry.position);
  }
  db->lastIndexTag = static_cast<uint32_t>(gf_tell(index, nullptr));
  db->numTimePos = static_cast<uint32_t>(total);
  return added;
}

extern "C" uint32_t CountLastSetOfEventsAndGetTimeOfLastEvent(kq_DB *db, uint64_t *lastTime) {
  if (lastTime != nullptr) *lastTime = 0;
  if (!IsReadHandle(db)) return 0;
  if (db->numTimePos == 0) {
    /* No block is indexed: nothing is counted, and kq_MoreEvents watches the
     * stream's first tag, which the first event turns into 3. */
    db->lastStreamTag = KQ_FIRST_POSITION;
    return 0;
  }
  GFile *stream = db->streamFile;
  SeekToRead(stream, db->timePos[db->numTimePos - 1].position);
  uint32_t count = 0;
  uint64_t last = 0;
  for (;;) {
    db->lastStreamTag = static_cast<uint32_t>(gf_tell(stream, nullptr));
    const uint32_t tag = gf_get_1(stream);
    if (tag == KQ_TAG_END) break;
    switch (tag) {
      case KQ_TAG_EVENT:
        count++;
        GetEvent(stream, &last, nullptr, nullptr, nullptr, nullptr, nullptr, 0);
        break;
      case KQ_TAG_STATE_SAVE:
        GetStateSave(stream, 0);
        break;
      case KQ_TAG_OBJUSED:
        GetObjUsed(stream, 0);
        break;
      default:
        return 0;  // *lastTime stays 0
    }
    if (ReadHitEnd(stream)) break;
  }
  if (lastTime != nullptr) *lastTime = last;
  return count;
}

extern "C" int BinSearchTime(int first, int last, const TimePos *table, uint64_t time) {
  int middle = -1;
  while (last >= first) {
    middle = first + (last - first) / 2;
    const int order = CmpUInt64(table[middle].time, time);  // reversed sign
    if (order == 1) {
      first = middle + 1;  // the entry is less
    } else if (order == -1) {
      last = middle - 1;  // the entry is greater
    } else {
      break;
    }
  }
  return middle;
}

extern "C" uint32_t SearchBlockForTime(const kq_DB *db, uint64_t t) {
  int i = BinSearchTime(0, static_cast<int>(db->numTimePos) - 1, db->timePos, t);
  if (i < 0) return 0;
  /* Back over every block whose first event is not strictly before t, so
   * that a run of equal times across a block boundary is entered at its
   * start. */
  while (i != 0 && CmpUInt64(t, db->timePos[i].time) != -1) i--;
  return static_cast<uint32_t>(i);
}

/* ---- Extent and growth ------------------------------------------------------------ */

extern "C" int kq_GetTimeExtent(kq_DB *db, uint64_t *start, uint64_t *end) {
  if (!IsReadHandle(db)) return 0;
  /* Read before the refresh, which may move the array.  With an empty
   * index the spare zeroed entry gives 0. */
  const uint64_t first = db->timePos[0].time;
  UpdateKqi(db);
  uint64_t last = 0;
  if (CountLastSetOfEventsAndGetTimeOfLastEvent(db, &last) == 0) last = first;
  if (start != nullptr) *start = first;
  if (end != nullptr) *end = IncrementUInt64(last);
  return 1;
}

extern "C" int kq_MoreEvents(kq_DB *db) {
  if (!IsReadHandle(db)) return 0;
  SeekToRead(db->streamFile, db->lastStreamTag);
  return gf_get_1(db->streamFile) != KQ_TAG_END ? 1 : 0;
}

extern "C" void kq_FlushFiles(kq_DB *db) {
  if (db == nullptr) return;
  GFile *files[] = {db->streamFile, db->indexFile, db->headerFile};
  for (GFile *file : files) gf_flush(file);
}

/* ---- Accessors ------------------------------------------------------------------------ */

extern "C" uint64_t kq_GetNumTicksPerSecond(kq_DB *db) {
  return db != nullptr ? db->ticksPerSecond : 0;
}

extern "C" uint32_t kq_GetFormatVersion(kq_DB *db) {
  return IsReadHandle(db) ? db->formatVersion : 0;
}

extern "C" uint32_t kq_GetEventsPerBlock(kq_DB *db) {
  return IsReadHandle(db) ? db->eventsPerBlock : 0;
}

extern "C" const char *kq_GetNameOfConfigFile(kq_DB *db) {
  return db != nullptr ? db->configName : nullptr;
}
