/*
 * kq_io_write.cpp - creates an event database and appends events to it.
 * Every call leaves .kqs and .kqi ending in a 0 tag with the whole of every
 * record before it in the file (and, for a large file, zeros behind it),
 * so a reader in another process sees whole records only.  Each packet is
 * gathered in memory and handed to GFile in one write; the bytes are the
 * same as field by field.  All writing of a database happens here, through
 * GFile: the .kqv fields, the block openings (object list and snapshot), the event
 * packets, the state change records that trackers cause, the index entries
 * and the patching of tags.  Layout and the numbered order of writes that
 * each write site cites: kq_io_format.h.
 *
 * A writing handle:
 *
 *   kq_OpenForCreation --> ADDING --kq_AddEventFromRawBytes, 1--> ADDING
 *                            |  \
 *                            |   `--tracker answers 0--> STOPPED (that event
 *                            |        stays invisible; the stream has moved
 *                            |        on, so the handle takes no more events)
 *                            `--kq_Close (from either state)--> gone
 */
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <unordered_map>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "indgen.h"
#include "indgeninit.h"
#include "kq_io.h"
#include "kq_io_files.h"
#include "kq_io_format.h"
#include "kq_io_write.h"
#include "kq_state.h"

static_assert(KQ_INDEX_ENTRY_SIZE == 1 + 8 + 4, "an index entry is its tag, a U8 and a U4");
static_assert(KQ_FIRST_POSITION == GF_HEADER_SIZE, "the files start behind the GFile header");

uint32_t eventIndex = 0;

namespace {

/* GFile arguments of all three files: not packed, 32-bit addresses, no
 * descriptors, no hd storage. */
constexpr uint32_t kNotPacked = 0;
constexpr int32_t kAddressMode = GADR_MODE_32BIT;
constexpr const char *kTemporaryStem = "tmp";
constexpr const char *kTemporarySuffix = "tmp";

GFile *OpenForWrite(const char *name, uint32_t fileType) {
  return gf_open_for_write(nullptr, nullptr, name, fileType, kNotPacked, kAddressMode, 0, 0);
}

/* Pushes what the stream buffers into the file: a seek to where it stands. */
void PushOut(GFile *gf) { gf_seek(gf, gf_tell(gf, nullptr)); }


/* ---- Creation ------------------------------------------------------------ */

/* What kq_OpenForCreation makes before the handle exists: the database's
 * files and, until the end, the temporary name of its .kqv. */
struct Creation : kqio::DatabaseFiles {
  char *temporaryName = nullptr;
  ~Creation() { gen_free(temporaryName); }
};

/* A free name with the suffix "tmp" in the directory for temporary files,
 * where .kqv is written before it is moved into place. */
char *TemporaryName() {
  char *joined = gen_sconcat(gen_temp_dir(nullptr), kTemporaryStem);
  if (joined == nullptr) return nullptr;
  char *name = gen_tempname(joined, kTemporarySuffix);
  gen_free(joined);
  return name;
}

/* False when a file of the name exists and can't be removed. */
bool RemoveIfThere(const char *name) { return !gen_alreadyused(name) || gen_removefile(name) == 0; }

/* The .kqv fields behind the header. */
void PutHeaderFields(GFile *gf, uint32_t ticksPerSecond, const char *configName,
                     uint8_t isBigEndian) {
  gf_put_1(gf, KQ_FORMAT_VERSION);
  gf_put_4(gf, ticksPerSecond);
  const char *name = configName != nullptr ? configName : "";
  const auto length = static_cast<uint32_t>(strlen(name));
  gf_put_4(gf, length);
  char *lower = gen_strlower(name);
  gf_put_array_1(gf, lower, length);
  gen_free(lower);
  gf_put_1(gf, isBigEndian ? 1 : 0);
  gf_put_4(gf, KQ_EVENTS_PER_BLOCK);
}

/* ---- Packets ---------------------------------------------------------------- */

/* The bytes of what one addition writes, gathered in memory and handed to
 * GFile in one block write: the same bytes as field by field (every number
 * big-endian).  Kept between additions so that it is allocated once, to the
 * size of the largest block opening or event.  Knowing the whole size
 * before anything is written lets an addition that a file can't hold write
 * nothing at all. */
class Packet {
 public:
  Packet() = default;
  Packet(const Packet &) = delete;
  Packet &operator=(const Packet &) = delete;

  void Clear() { size_ = 0; }
  size_t Size() const { return size_; }
  void U1(uint32_t value) { *Room(1) = static_cast<unsigned char>(value); }
  void U2(uint32_t value) { PutAt(Room(2), value, 2); }
  void U4(uint32_t value) { PutAt(Room(4), value, 4); }
  void U8(uint64_t value) {
    unsigned char *at = Room(8);
    PutAt(at, static_cast<uint32_t>(value >> 32), 4);
    PutAt(at + 4, static_cast<uint32_t>(value), 4);
  }
  void Bytes(const void *from, size_t n) {
    if (n != 0) memcpy(Room(n), from, n);
  }
  /* U2 type, U4 id: an object's key. */
  void Key(uint32_t type, uint32_t id) {
    unsigned char *at = Room(6);
    PutAt(at, type, 2);
    PutAt(at + 2, id, 4);
  }
  /* U2 type, U4 id, U4 length, bytes[length]: an object of a snapshot. */
  void Object(uint32_t type, uint32_t id, uint32_t length, const void *value) {
    unsigned char *at = Room(10 + static_cast<size_t>(length));
    PutAt(at, type, 2);
    PutAt(at + 2, id, 4);
    PutAt(at + 6, length, 4);
    if (length != 0) memcpy(at + 10, value, length);
  }
  void WriteTo(GFile *gf) const {
    if (size_ != 0) gf_put_array_1(gf, bytes_.get(), static_cast<uint32_t>(size_));
  }

 private:
  unsigned char *Room(size_t n) {
    if (capacity_ - size_ < n) Grow(n);
    unsigned char *at = bytes_.get() + size_;
    size_ += n;
    return at;
  }
  void Grow(size_t n) {
    const size_t capacity = std::max(2 * capacity_, std::max<size_t>(size_ + n, 256));
    std::unique_ptr<unsigned char[]> bytes(new unsigned char[capacity]);
    if (size_ != 0) memcpy(bytes.get(), bytes_.get(), size_);
    bytes_ = std::move(bytes);
    capacity_ = capacity;
  }
  static void PutAt(unsigned char *at, uint32_t value, int width) {
    for (int i = 0; i < width; i++) at[i] = static_cast<unsigned char>(value >> (8 * (width - 1 - i)));
  }
  std::unique_ptr<unsigned char[]> bytes_;
  size_t capacity_ = 0;
  size_t size_ = 0;
};

/* One thread, as the whole writer: a block opening, and the event packet
 * with the change records its tracker makes. */
Packet &OpeningBuffer() {
  static Packet packet;
  return packet;
}
Packet &EventBuffer() {
  static Packet packet;
  return packet;
}

/* The handle whose addition is under way: the tracker's change records go
 * into its event packet rather than straight to the stream. */
const kq_DB *adding = nullptr;

/* ---- Write failures ------------------------------------------------------------ */

/* What stopped a writing handle; a handle missing here is fine.  Kept
 * aside so that the handle's record stays as the format lists it. */
std::unordered_map<const kq_DB *, int> failures;

std::unordered_map<const kq_DB *, int> &Failures() { return failures; }

/* The largest size a database file may reach: positions are 32-bit
 * signed.  KQV_FILE_LIMIT in the environment (bytes) sets a lower one, a
 * switch for tests and diagnosis, read when a database is created. */
uint64_t fileLimit = INT32_MAX;

void ReadFileLimit() {
  const char *text = getenv("KQV_FILE_LIMIT");
  const uint64_t chosen = text != nullptr ? strtoull(text, nullptr, 10) : 0;
  fileLimit = chosen != 0 && chosen < static_cast<uint64_t>(INT32_MAX)
                  ? chosen
                  : static_cast<uint64_t>(INT32_MAX);
}

/* Whether n more bytes written at position fit a database file. */
bool Fits(int32_t position, size_t n) {
  return position >= 0 && static_cast<uint64_t>(position) + n <= fileLimit;
}

/* ---- Block openings ---------------------------------------------------------- */

/* Calls put(object) for each object of table in table order.  False when
 * the table gives no object for an item ("something is wrong 1" then goes
 * to standard output); the walk stops there. */
template <typename Put>
bool ForEachObject(HT_PT table, Put put) {
  auto visit = [](void *key, void *, void *context) {
    if (key == nullptr) {
      fputs("something is wrong 1\n", stdout);
      return 0;
    }
    (*static_cast<Put *>(context))(*static_cast<const kq_StateObject *>(key));
    return 1;
  };
  return HT_ForEach(table, visit, &put) != 0;
}

uint32_t CountOf(HT_PT table) {
  const int size = HT_GetSize(table);
  return size < 0 ? 0 : static_cast<uint32_t>(size);
}

/* The body of an OBJUSED packet; its tag is the stream's old 0 tag. */
bool PutObjUsedBody(Packet &block, HT_PT used) {
  block.U4(CountOf(used));
  return ForEachObject(used, [&block](const kq_StateObject &object) { block.Key(object.type, object.id); });
}

/* A whole state save packet, its tag included. */
bool PutStateSave(Packet &block, HT_PT current) {
  block.U1(KQ_TAG_STATE_SAVE);
  block.U4(CountOf(current));
  return ForEachObject(current, [&block](const kq_StateObject &object) {
    block.Object(object.type, object.id, object.length, object.value);
  });
}

/* What stands between the stream's old 0 tag and the new event's fields
 * when the event opens a block, gathered into block; and the used table of
 * the new block, which starts as every object alive now.  False when a walk
 * fails. */
bool PutBlockOpening(kq_DB *db, Packet &block) {
  HT_PT current = db->currentState->table;
  if (!PutObjUsedBody(block, db->usedState->table)) return false;
  if (!PutStateSave(block, current)) return false;
  block.U1(KQ_TAG_EVENT);  // written at once, never patched: rule (2)
  db->usedState->table = HT_CloneInto(db->usedState->table, current);  // delete, then clone
  return true;
}

/* Whether every write of gf so far went well.  A failed write gives the
 * file's once-only message here when no failing seek gave it yet (a block
 * write can fail with nothing left for the seek behind it to flush). */
bool Written(GFile *gf) {
  if (!gf_got_error(gf)) return true;
  gf_set_got_error(gf, 1);
  return false;
}

/* Replaces the 0 tag at tagPosition by tag, and comes back to the end.  The
 * first seek puts every byte written so far into the file ahead of the tag;
 * the tag is patched only when that went well, so a record that didn't
 * reach the file whole never becomes visible.  False when a write, seek or
 * tell of the file had failed by then (GFile gave its message). */
bool PatchTag(GFile *gf, int32_t tagPosition, uint32_t tag) {
  const int32_t end = gf_tell(gf, nullptr);
  gf_seek(gf, tagPosition);
  if (!Written(gf)) return false;
  gf_put_1(gf, tag);
  gf_seek(gf, end);
  /* A tag that failed to reach the file leaves its record invisible; the
   * file's error state stops the next addition before it patches. */
  return true;
}

/* The index entry of a block whose first event is at time and whose
 * OBJUSED tag stands at blockPosition in .kqs. */
bool AddIndexEntry(GFile *index, uint64_t time, int32_t blockPosition) {
  const int32_t indexTag = gf_tell(index, nullptr) - 1;
  Packet &entry = EventBuffer();
  entry.Clear();
  entry.U8(time);
  entry.U4(static_cast<uint32_t>(blockPosition));
  entry.U1(KQ_INDEX_TAG_END);  // rule (1): the entry and its new end first
  entry.WriteTo(index);
  return PatchTag(index, indexTag, KQ_INDEX_TAG_ENTRY);  // rule (2)
}

bool CanWrite(const kq_DB *db) { return db != nullptr && db->streamFile != nullptr; }

}  // namespace

/* ---- Creating ------------------------------------------------------------------ */

extern "C" kq_DB *kq_OpenForCreation(const char *base, uint32_t ticksPerSecond,
                                     const char *configName, uint8_t isBigEndian,
                                     kq_SaveStateFunc saveStateChange) {
  if (base == nullptr) return nullptr;
  ReadFileLimit();
  Creation made;
  const bool named = made.NameAfter(base);
  made.temporaryName = TemporaryName();
  if (!named || made.temporaryName == nullptr) return nullptr;

  /* Rule (4): the old .kqv goes first. */
  if (!RemoveIfThere(made.headerName) || !RemoveIfThere(made.indexName) ||
      !RemoveIfThere(made.streamName)) {
    return nullptr;
  }

  made.streamFile = OpenForWrite(made.streamName, KQ_FILE_TYPE_STREAM);
  if (made.streamFile == nullptr) return nullptr;
  made.indexFile = OpenForWrite(made.indexName, KQ_FILE_TYPE_INDEX);
  if (made.indexFile == nullptr) return nullptr;
  made.headerFile = OpenForWrite(made.temporaryName, KQ_FILE_TYPE_HEADER);
  if (made.headerFile == nullptr) return nullptr;

  kq_DB *db = New_kq_DB();
  if (db == nullptr) return nullptr;
  db->isBigEndian = isBigEndian;
  made.HandOver(db);
  db->timePos = nullptr;
  db->numEvents = 0;
  db->configName = gen_copy(configName);
  db->currentState = kq_NewState();
  db->usedState = kq_NewState();
  db->saveStateChange = saveStateChange;

  gf_put_1(db->streamFile, KQ_TAG_END);
  gf_put_1(db->indexFile, KQ_INDEX_TAG_END);
  /* Rule (5): both files, with their 0 tags, are in place before the .kqv. */
  PushOut(db->streamFile);
  PushOut(db->indexFile);

  PutHeaderFields(db->headerFile, ticksPerSecond, configName, isBigEndian);
  gf_seek(db->headerFile, gf_tell(db->headerFile, nullptr));
  /* A database whose files couldn't be written whole isn't made. */
  const bool whole = Written(db->streamFile) && Written(db->indexFile) && Written(db->headerFile);
  gf_close(db->headerFile);
  db->headerFile = nullptr;
  if (!whole || gen_movefile(made.temporaryName, db->headerName) != 0) {  // rule (5)
    kq_Close(db);
    return nullptr;
  }
  return db;
}

/* ---- Adding events ----------------------------------------------------------------- */

extern "C" int kq_AddEventFromRawBytes(kq_DB *db, uint32_t high, uint32_t low, uint32_t typeWord,
                                       const void *bytes, uint32_t length) {
  if (!CanWrite(db)) return 0;
  if (length != 0 && bytes == nullptr) return 0;
  if (!failures.empty() && kq_GetWriteFailure(db) != KQ_WRITE_OK) return 0;  // stopped stays stopped

  GFile *stream = db->streamFile;
  const int32_t tagPosition = gf_tell(stream, nullptr) - 1;  // the stream's 0 tag
  const bool blockStart = db->numEvents % KQ_EVENTS_PER_BLOCK == 0;
  const uint32_t tag = blockStart ? KQ_TAG_OBJUSED : KQ_TAG_EVENT;

  Packet &opening = OpeningBuffer();
  opening.Clear();
  if (blockStart && !PutBlockOpening(db, opening)) return 0;

  kq_Event event{};
  event.time = (static_cast<uint64_t>(high) << 32) | low;
  event.eventNumber = eventIndex++;
  event.type = static_cast<uint16_t>(typeWord >> 16);
  event.subtype = static_cast<uint16_t>(typeWord & 0xFFFFu);
  event.length = length;
  event.data = static_cast<uint8_t *>(const_cast<void *>(bytes));
  event.changes = nullptr;

  Packet &packet = EventBuffer();
  packet.Clear();
  packet.U8(event.time);
  packet.U4(event.length);
  packet.U2(event.type);
  packet.U2(event.subtype);
  packet.Bytes(bytes, length);

  /* The tracker's change records join the packet, in the order of its calls. */
  adding = db;
  const bool tracked = db->saveStateChange == nullptr ||
                       db->saveStateChange(db, db->currentState->table, db->usedState->table, &event);
  adding = nullptr;
  if (!tracked) {
    /* What was gathered goes to the file all the same, behind the 0 tag
     * that stays: the event is invisible, and the stream has moved on. */
    if (Fits(tagPosition + 1, opening.Size() + packet.Size())) {
      opening.WriteTo(stream);
      packet.WriteTo(stream);
    }
    Failures()[db] = KQ_WRITE_REFUSED;
    return 0;
  }
  packet.U1(KQ_CHANGE_END);
  packet.U1(KQ_TAG_END);  // rule (1): the record and its new end first

  /* What the files can't hold whole is not begun. */
  if (!Fits(tagPosition + 1, opening.Size() + packet.Size()) ||
      (blockStart && !Fits(gf_tell(db->indexFile, nullptr), KQ_INDEX_ENTRY_SIZE))) {
    Failures()[db] = KQ_WRITE_FULL;
    return 0;
  }
  opening.WriteTo(stream);
  packet.WriteTo(stream);
  if (!PatchTag(stream, tagPosition, tag)) {  // rule (2)
    Failures()[db] = KQ_WRITE_FAILED;
    return 0;
  }
  db->numEvents++;
  if (blockStart && !AddIndexEntry(db->indexFile, event.time, tagPosition)) {  // rule (3)
    Failures()[db] = KQ_WRITE_FAILED;
    return 0;
  }
  return 1;
}

extern "C" int kq_GetWriteFailure(kq_DB *db) {
  const auto found = Failures().find(db);
  return found != Failures().end() ? found->second : KQ_WRITE_OK;
}

extern "C" uint32_t kq_GetNumEventsAdded(kq_DB *db) {
  return CanWrite(db) ? db->numEvents : 0;
}

extern "C" void ForgetWriteFailure(const kq_DB *db) { Failures().erase(db); }

/* ---- State change records -------------------------------------------------------- */

/* Puts one record, made by fill into a Packet: into the packet of the
 * addition under way, or (outside one) into a packet written at once at the
 * stream's position. */
template <typename Fill>
void PutRecord(kq_DB *db, Fill fill) {
  if (adding == db) {
    fill(EventBuffer());
    return;
  }
  Packet own;
  fill(own);
  own.WriteTo(db->streamFile);
}

extern "C" void PutStateChangeNew(kq_DB *db, uint16_t type, uint32_t id, uint16_t length,
                                  const void *value) {
  if (!CanWrite(db)) return;
  PutRecord(db, [&](Packet &record) {
    record.U1(KQ_CHANGE_NEW);
    record.U2(type);
    record.U4(id);
    record.U2(length);
    record.Bytes(value, length);
  });
}

extern "C" void PutStateChangeMod(kq_DB *db, uint16_t type, uint32_t id, uint16_t offset,
                                  uint8_t count, const void *bytes) {
  if (!CanWrite(db)) return;
  PutRecord(db, [&](Packet &record) {
    record.U1(KQ_CHANGE_MOD);
    record.U2(type);
    record.U4(id);
    record.U2(offset);
    record.U1(count);
    record.Bytes(bytes, count);
  });
}

extern "C" void PutStateChangeDel(kq_DB *db, uint16_t type, uint32_t id) {
  if (!CanWrite(db)) return;
  PutRecord(db, [&](Packet &record) {
    record.U1(KQ_CHANGE_DEL);
    record.U2(type);
    record.U4(id);
  });
}
