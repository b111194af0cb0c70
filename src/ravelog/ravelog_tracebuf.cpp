/*
 * ravelog_tracebuf.cpp - the decoder of the kernel's own trace buffer (its
 * layout: ravelog_tracebuf.h).  Reads the whole file, checks every pointer
 * of the header against the file and against each other before anything is
 * read through it, hands the database a thread record for each thread of
 * the object registry, then walks the ring of entries once from the oldest
 * (the current entry pointer) and hands over each entry's records
 * (ravelog_tracebuf_events.cpp).
 *
 * Times: each time stamp counts only the bits of the header's timer valid
 * mask, so the step from one entry to the next is taken modulo the mask and
 * added up from 0 at the first entry: times carry over every wrap of the
 * timer and never fall.  The buffer doesn't say how fast its timer counts:
 * RAVELOG_TICKS_PER_SECOND in the environment says so, otherwise
 * kDefaultTicksPerSecond.
 *
 * Entries the walk leaves out: those never used (thread pointer 0), those
 * marked invalid (event id 0xFFFFFFFF), a last entry that the end of the
 * file cuts, and the entry at the current pointer when the target was still
 * writing it.  The kernel writes an entry's words in order and moves the
 * current pointer on behind it, so an entry being written is the one at
 * the current pointer, which should hold the oldest entry (or none yet).
 * It is taken as being written when the entry behind it was never used
 * (the ring hasn't come round yet, so this one shouldn't be used either),
 * or when its time lies closer behind the newest entry's than before the
 * next one's.
 */
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "indgen.h"
#include "kq_byteorder.h"
#include "ravelog.h"
#include "ravelog_tracebuf.h"

namespace ravelog::tracebuf {

namespace {

/* The demo's clock counts microseconds; a target's may count anything. */
constexpr int32_t kDefaultTicksPerSecond = 1000000;
constexpr const char *kTicksVariable = "RAVELOG_TICKS_PER_SECOND";

/* The whole file and the byte order of its words. */
struct Image {
  std::vector<unsigned char> bytes;
  uint8_t bigEndian;

  uint32_t Word(uint32_t offset) const { return kq_ConvertToHostOrder4(bigEndian, bytes.data() + offset); }
  uint16_t Half(uint32_t offset) const { return kq_ConvertToHostOrder2(bigEndian, bytes.data() + offset); }
  long size() const { return static_cast<long>(bytes.size()); }
};

void read_whole_file(FILE *stream, std::vector<unsigned char> *bytes) {
  if (fseek(stream, 0, SEEK_SET) != 0) gen_errorexit(1, "Error reading buffer from corefile.");
  unsigned char chunk[1 << 16];
  size_t got;
  while ((got = fread(chunk, 1, sizeof chunk, stream)) > 0) bytes->insert(bytes->end(), chunk, chunk + got);
  if (ferror(stream)) gen_errorexit(1, "Error reading buffer from corefile.");
}

int32_t ticks_per_second() {
  const char *text = getenv(kTicksVariable);
  if (text == nullptr) return kDefaultTicksPerSecond;
  char *end = nullptr;
  errno = 0;
  const long long value = strtoll(text, &end, 10);
  if (*text < '0' || *text > '9' || *end != '\0' || errno != 0 || value < 1 || value > INT32_MAX) {
    gen_errorexit(1, "Bad %s \"%s\": it is not a whole number of ticks per second from 1 to %d.",
                  kTicksVariable, text, INT32_MAX);
  }
  return static_cast<int32_t>(value);
}

/* ---- The header and its checks --------------------------------------------------- */

Header read_header(const Image &image) {
  if (image.size() < kHeaderSize) {
    gen_errorexit(1, "Trace buffer cut short: the file holds %ld bytes, less than the %u-byte header.\n"
                     CV_VERIFY_REGION, image.size(), kHeaderSize);
  }
  Header h{};
  h.id = image.Word(0);
  h.timerMask = image.Word(4);
  h.base = image.Word(8);
  h.registryStart = image.Word(12);
  h.reserved = image.Half(16);
  h.nameSize = image.Half(18);
  h.registryEnd = image.Word(20);
  h.entriesStart = image.Word(24);
  h.entriesEnd = image.Word(28);
  h.current = image.Word(32);
  return h;
}

/* Bytes of one registry entry: the name is padded to whole words. */
uint32_t registry_stride(const Header &h) { return kRegistryFixedSize + (h.nameSize + 3u) / 4u * 4u; }

void check_timer_mask(const Header &h) {
  if (h.timerMask == 0 || (h.timerMask & (h.timerMask + 1u)) != 0) {
    gen_errorexit(1, "Bad timer valid mask 0x%8.8x in the trace buffer header.  It is not a run of low bits.\n"
                     CV_VERIFY_REGION, h.timerMask);
  }
}

/* Header, registry and entries follow each other in this order, each
 * within the 32-bit address space from the base on. */
void check_order(const Header &h) {
  const uint64_t headerEnd = uint64_t{h.base} + kHeaderSize;
  if (h.registryStart < headerEnd || h.registryEnd < h.registryStart || h.entriesStart < h.registryEnd ||
      h.entriesEnd <= h.entriesStart) {
    gen_errorexit(1, "Bad trace buffer header: the object registry (0x%8.8x to 0x%8.8x) and the entries "
                     "(0x%8.8x to 0x%8.8x) are not in order behind the header at 0x%8.8x.\n" CV_VERIFY_REGION,
                  h.registryStart, h.registryEnd, h.entriesStart, h.entriesEnd, h.base);
  }
}

void check_sizes(const Header &h) {
  if (h.nameSize == 0) {
    gen_errorexit(1, "Bad object name size 0 in the trace buffer header.\n" CV_VERIFY_REGION);
  }
  const uint32_t registryBytes = h.registryEnd - h.registryStart;
  if (registryBytes % registry_stride(h) != 0) {
    gen_errorexit(1, "Bad object registry of %u bytes: it is not a whole number of %u-byte entries "
                     "(object name size %u).\n" CV_VERIFY_REGION,
                  registryBytes, registry_stride(h), h.nameSize);
  }
  const uint32_t entryBytes = h.entriesEnd - h.entriesStart;
  if (entryBytes % kEntrySize != 0) {
    gen_errorexit(1, "Bad trace buffer of %u bytes: it is not a whole number of %u-byte entries.\n"
                     CV_VERIFY_REGION, entryBytes, kEntrySize);
  }
  if (h.current < h.entriesStart || h.current >= h.entriesEnd || (h.current - h.entriesStart) % kEntrySize != 0) {
    gen_errorexit(1, "Bad current entry pointer 0x%8.8x: it is not an entry of the trace buffer "
                     "(0x%8.8x to 0x%8.8x).\n" CV_VERIFY_REGION, h.current, h.entriesStart, h.entriesEnd);
  }
}

/* The registry must be in the file whole; the entries all but the last,
 * which the end of the file may cut. */
void check_in_file(const Header &h, long fileSize) {
  const uint32_t registryEnd = h.registryEnd - h.base;
  if (int64_t{registryEnd} > fileSize) {
    gen_errorexit(1, "The object registry ends at offset %u, past the end of the file (%ld bytes).\n"
                     CV_VERIFY_REGION, registryEnd, fileSize);
  }
  const uint32_t entriesEnd = h.entriesEnd - h.base;
  if (int64_t{entriesEnd} - kEntrySize >= fileSize) {
    gen_errorexit(1, "The trace buffer's entries end at offset %u, past the end of the file (%ld bytes).\n"
                     CV_VERIFY_REGION, entriesEnd, fileSize);
  }
}

/* ---- The registry ------------------------------------------------------------------ */

/* A thread record: the object pointer, the priority, the name up to its
 * first zero byte and at most 31 bytes, zero-padded. */
void add_thread_record(const Image &image, uint32_t at, uint32_t nameSize, uint32_t priority) {
  unsigned char record[CV_THREAD_RECORD_SIZE] = {};
  memcpy(record, image.bytes.data() + at + 4, 4);
  const uint32_t word = priority;
  for (int i = 0; i < 4; i++) {
    record[4 + i] = static_cast<unsigned char>(word >> (image.bigEndian ? 24 - 8 * i : 8 * i));
  }
  const unsigned char *name = image.bytes.data() + at + kRegistryFixedSize;
  for (uint32_t i = 0; i < nameSize && i < CV_THREAD_RECORD_NAME && name[i] != 0; i++) record[8 + i] = name[i];
  cv_database.addThread(record);
}

void read_registry(const Image &image, const Header &h, const Priorities &priorities) {
  if (debug) PrintRegistryHeading();
  for (uint32_t at = h.registryStart - h.base; at < h.registryEnd - h.base; at += registry_stride(h)) {
    const uint32_t object = image.Word(at + 4);
    if (object == 0) continue;  // never used
    if (debug) PrintRegistryEntry(image.bytes.data() + at, h.nameSize, image.bigEndian);
    if (image.bytes[at + 1] != kObjectThread) continue;
    const auto priority = priorities.find(object);
    add_thread_record(image, at, h.nameSize, priority != priorities.end() ? priority->second : 0);
  }
}

/* ---- The ring ------------------------------------------------------------------------ */

Entry read_entry(const Image &image, uint32_t at) {
  Entry entry{};
  entry.offset = at;
  entry.thread = image.Word(at);
  entry.priority = image.Word(at + 4);
  entry.eventId = image.Word(at + 8);
  entry.time = image.Word(at + 12);
  for (uint32_t i = 0; i < 4; i++) entry.info[i] = image.Word(at + 16 + 4 * i);
  return entry;
}

bool is_used(const Entry &entry) { return entry.thread != kNeverUsed && entry.eventId != kInvalidEvent; }

class Ring {
 public:
  Ring(const Image &image, const Header &h)
      : image_(image),
        first_(h.entriesStart - h.base),
        count_((h.entriesEnd - h.entriesStart) / kEntrySize),
        oldest_((h.current - h.entriesStart) / kEntrySize),
        mask_(h.timerMask) {}

  /* The used entries in walk order, those left out with the reason. */
  std::vector<Entry> Walk() const {
    std::vector<Entry> used;
    for (uint32_t step = 0; step < count_; step++) {
      const uint32_t index = (oldest_ + step) % count_;
      if (!Whole(index)) {
        used.push_back(Entry{OffsetOf(index), "cut by the end of the file"});
        continue;
      }
      Entry entry = read_entry(image_, OffsetOf(index));
      if (!is_used(entry)) continue;
      if (step == 0 && BeingWritten(entry)) entry.ignored = "still being written";
      used.push_back(entry);
    }
    return used;
  }

 private:
  uint32_t OffsetOf(uint32_t index) const { return first_ + index * kEntrySize; }
  bool Whole(uint32_t index) const { return uint64_t{OffsetOf(index)} + kEntrySize <= image_.bytes.size(); }
  bool UsedAt(uint32_t index) const { return Whole(index) && is_used(read_entry(image_, OffsetOf(index))); }
  bool NeverUsedAt(uint32_t index) const {
    return Whole(index) && read_entry(image_, OffsetOf(index)).thread == kNeverUsed;
  }

  bool BeingWritten(const Entry &oldest) const {
    if (count_ < 2) return false;
    const uint32_t next = (oldest_ + 1) % count_;
    const uint32_t newest = (oldest_ + count_ - 1) % count_;
    if (NeverUsedAt(next)) return true;
    if (!UsedAt(newest)) return false;
    const uint32_t behindNewest = (oldest.time - read_entry(image_, OffsetOf(newest)).time) & mask_;
    const uint32_t beforeNext = (read_entry(image_, OffsetOf(next)).time - oldest.time) & mask_;
    return behindNewest < beforeNext;
  }

  const Image &image_;
  uint32_t first_, count_, oldest_, mask_;
};

void convert_entries(const std::vector<Entry> &entries, uint32_t mask, uint8_t bigEndian,
                     const Priorities &first) {
  if (debug) PrintEntriesHeading();
  RecordMaker maker(bigEndian, first);
  std::vector<const Entry *> kept;
  for (const Entry &entry : entries) {
    if (entry.ignored == nullptr) kept.push_back(&entry);
  }
  uint64_t time = 0;
  size_t index = 0;
  for (const Entry &entry : entries) {
    if (entry.ignored != nullptr) {
      if (debug) PrintIgnoredEntry(entry);
      continue;
    }
    if (index > 0) time += (entry.time - kept[index - 1]->time) & mask;
    const Entry *next = index + 1 < kept.size() ? kept[index + 1] : nullptr;
    index++;
    if (debug) PrintEntry(entry);
    maker.Add(entry, time, next);
  }
}

}  // namespace

}  // namespace ravelog::tracebuf

using namespace ravelog::tracebuf;

extern "C" int cv_ParseTraceBuffer(FILE *stream, const char *KQfile, uint8_t bigEndian) {
  Image image{{}, bigEndian};
  read_whole_file(stream, &image.bytes);
  const Header header = read_header(image);
  check_timer_mask(header);
  check_order(header);
  check_sizes(header);
  check_in_file(header, image.size());
  tbfreq = ticks_per_second();

  const std::vector<Entry> entries = Ring(image, header).Walk();
  const Priorities first = FirstPriorities(entries);
  cv_database.open(KQfile, tbfreq, bigEndian);
  if (debug) PrintHeader(header, bigEndian, tbfreq);
  read_registry(image, header, first);
  convert_entries(entries, header.timerMask, bigEndian, first);
  cv_database.close();
  return 0;
}
