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
#include <cstdio>
#include <cstring>
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
/* An event packet's fields behind its tag: U8 time, U4 length, U2 type, U2
 * subtype; and the payloads (of events and of New records) that go out in
 * the same write as their fields. */
constexpr size_t kEventFields = 8 + 4 + 2 + 2;
constexpr size_t kShortPayload = 96;
constexpr const char *kTemporarySuffix = "tmp";

GFile *OpenForWrite(const char *name, uint32_t fileType) {
  return gf_open_for_write(nullptr, nullptr, name, fileType, kNotPacked, kAddressMode, 0, 0);
}

/* Pushes what the stream buffers into the file: a seek to where it stands. */
void PushOut(GFile *gf) { gf_seek(gf, gf_tell(gf, nullptr)); }

/* Replaces the 0 tag at tagPosition by tag, and comes back to the end.  The
 * first seek puts every byte written so far into the file ahead of the tag;
 * the second puts the tag there. */
void PatchTag(GFile *gf, int32_t tagPosition, uint32_t tag) {
  const int32_t end = gf_tell(gf, nullptr);
  gf_seek(gf, tagPosition);
  gf_put_1(gf, tag);
  gf_seek(gf, end);
}

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

/* The bytes of a packet, or of part of one, gathered in memory and handed
 * to GFile in one block write: the same bytes as field by field (every
 * number big-endian), for one call instead of one per field.  Fixed
 * capacity on the stack; Block grows, for the block openings. */
template <size_t kCapacity>
class Fields {
 public:
  void U1(uint32_t value) { bytes_[size_++] = static_cast<unsigned char>(value); }
  void U2(uint32_t value) { Put(value, 2); }
  void U4(uint32_t value) { Put(value, 4); }
  void U8(uint64_t value) { Put(value, 8); }
  void Bytes(const void *from, size_t n) {
    if (n != 0) memcpy(bytes_ + size_, from, n);
    size_ += n;
  }
  size_t Room() const { return kCapacity - size_; }
  void WriteTo(GFile *gf) const { gf_put_array_1(gf, bytes_, static_cast<uint32_t>(size_)); }

 private:
  void Put(uint64_t value, int width) {
    for (int i = width - 1; i >= 0; i--) bytes_[size_++] = static_cast<unsigned char>(value >> (8 * i));
  }
  unsigned char bytes_[kCapacity];
  size_t size_ = 0;
};

/* A growing buffer for the two opening packets of a block, kept between
 * blocks so that it is allocated once (to the size of the largest
 * snapshot).  One thread, as the whole writer.  Each piece takes its room
 * at once and is filled through a pointer. */
class Block {
 public:
  void Clear() { size_ = 0; }
  void U1(uint32_t value) { *Room(1) = static_cast<unsigned char>(value); }
  void U4(uint32_t value) { PutAt(Room(4), value, 4); }
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
  void WriteTo(GFile *gf) const { gf_put_array_1(gf, bytes_.data(), static_cast<uint32_t>(size_)); }

 private:
  unsigned char *Room(size_t n) {
    if (bytes_.size() - size_ < n) bytes_.resize(std::max(bytes_.size() * 2, size_ + n));
    unsigned char *at = bytes_.data() + size_;
    size_ += n;
    return at;
  }
  static void PutAt(unsigned char *at, uint32_t value, int width) {
    for (int i = 0; i < width; i++) at[i] = static_cast<unsigned char>(value >> (8 * (width - 1 - i)));
  }
  std::vector<unsigned char> bytes_;
  size_t size_ = 0;
};

Block &OpeningBuffer() {
  static Block block;
  return block;
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
bool PutObjUsedBody(Block &block, HT_PT used) {
  block.U4(CountOf(used));
  return ForEachObject(used, [&block](const kq_StateObject &object) { block.Key(object.type, object.id); });
}

/* A whole state save packet, its tag included. */
bool PutStateSave(Block &block, HT_PT current) {
  block.U1(KQ_TAG_STATE_SAVE);
  block.U4(CountOf(current));
  return ForEachObject(current, [&block](const kq_StateObject &object) {
    block.Object(object.type, object.id, object.length, object.value);
  });
}

/* What stands between the stream's old 0 tag and the new event's fields
 * when the event opens a block, and the used table of the new block, which
 * starts as every object alive now.  Nothing reaches the stream when a walk
 * fails. */
bool PutBlockOpening(kq_DB *db) {
  HT_PT current = db->currentState->table;
  Block &block = OpeningBuffer();
  block.Clear();
  if (!PutObjUsedBody(block, db->usedState->table)) return false;
  if (!PutStateSave(block, current)) return false;
  block.U1(KQ_TAG_EVENT);  // written at once, never patched: rule (2)
  block.WriteTo(db->streamFile);
  db->usedState->table = HT_CloneInto(db->usedState->table, current);  // delete, then clone
  return true;
}

/* The index entry of a block whose first event is at
 * time and whose OBJUSED tag stands at blockPosition in .kqs. */
void AddIndexEntry(GFile *index, uint64_t time, int32_t blockPosition) {
  const int32_t indexTag = gf_tell(index, nullptr) - 1;
  Fields<KQ_INDEX_ENTRY_SIZE> entry;
  entry.U8(time);
  entry.U4(static_cast<uint32_t>(blockPosition));
  entry.U1(KQ_INDEX_TAG_END);  // rule (1): the entry and its new end first
  entry.WriteTo(index);
  PatchTag(index, indexTag, KQ_INDEX_TAG_ENTRY);  // rule (2)
}

bool CanWrite(const kq_DB *db) { return db != nullptr && db->streamFile != nullptr; }

}  // namespace

/* ---- Creating ------------------------------------------------------------------ */

extern "C" kq_DB *kq_OpenForCreation(const char *base, uint32_t ticksPerSecond,
                                     const char *configName, uint8_t isBigEndian,
                                     kq_SaveStateFunc saveStateChange) {
  if (base == nullptr) return nullptr;
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
  gf_close(db->headerFile);
  db->headerFile = nullptr;
  if (gen_movefile(made.temporaryName, db->headerName) != 0) {  // rule (5)
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

  GFile *stream = db->streamFile;
  const int32_t tagPosition = gf_tell(stream, nullptr) - 1;  // the stream's 0 tag
  const bool blockStart = db->numEvents % KQ_EVENTS_PER_BLOCK == 0;
  const uint32_t tag = blockStart ? KQ_TAG_OBJUSED : KQ_TAG_EVENT;

  if (blockStart && !PutBlockOpening(db)) return 0;

  kq_Event event{};
  event.time = (static_cast<uint64_t>(high) << 32) | low;
  event.eventNumber = eventIndex++;
  event.type = static_cast<uint16_t>(typeWord >> 16);
  event.subtype = static_cast<uint16_t>(typeWord & 0xFFFFu);
  event.length = length;
  event.data = static_cast<uint8_t *>(const_cast<void *>(bytes));
  event.changes = nullptr;

  /* The fields and, when it is short, the payload in one write. */
  Fields<kEventFields + kShortPayload> fields;
  fields.U8(event.time);
  fields.U4(event.length);
  fields.U2(event.type);
  fields.U2(event.subtype);
  if (length <= fields.Room()) {
    fields.Bytes(bytes, length);
    fields.WriteTo(stream);
  } else {
    fields.WriteTo(stream);
    gf_put_array_1(stream, bytes, length);
  }

  /* The tracker appends its change records here, in the order of its calls. */
  if (db->saveStateChange != nullptr &&
      !db->saveStateChange(db, db->currentState->table, db->usedState->table, &event)) {
    return 0;
  }

  Fields<2> end;
  end.U1(KQ_CHANGE_END);
  end.U1(KQ_TAG_END);  // rule (1): the record and its new end first
  end.WriteTo(stream);
  PatchTag(stream, tagPosition, tag);  // rule (2)

  if (blockStart) AddIndexEntry(db->indexFile, event.time, tagPosition);  // rule (3)
  db->numEvents++;
  return 1;
}

/* ---- State change records -------------------------------------------------------- */

extern "C" void PutStateChangeNew(kq_DB *db, uint16_t type, uint32_t id, uint16_t length,
                                  const void *value) {
  if (!CanWrite(db)) return;
  Fields<1 + 2 + 4 + 2 + kShortPayload> record;
  record.U1(KQ_CHANGE_NEW);
  record.U2(type);
  record.U4(id);
  record.U2(length);
  if (length <= record.Room()) {
    record.Bytes(value, length);
    record.WriteTo(db->streamFile);
  } else {
    record.WriteTo(db->streamFile);
    gf_put_array_1(db->streamFile, value, length);
  }
}

extern "C" void PutStateChangeMod(kq_DB *db, uint16_t type, uint32_t id, uint16_t offset,
                                  uint8_t count, const void *bytes) {
  if (!CanWrite(db)) return;
  Fields<1 + 2 + 4 + 2 + 1 + 255> record;  // a Mod carries at most 255 bytes
  record.U1(KQ_CHANGE_MOD);
  record.U2(type);
  record.U4(id);
  record.U2(offset);
  record.U1(count);
  record.Bytes(bytes, count);
  record.WriteTo(db->streamFile);
}

extern "C" void PutStateChangeDel(kq_DB *db, uint16_t type, uint32_t id) {
  if (!CanWrite(db)) return;
  Fields<1 + 2 + 4> record;
  record.U1(KQ_CHANGE_DEL);
  record.U2(type);
  record.U4(id);
  record.WriteTo(db->streamFile);
}
