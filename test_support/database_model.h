// The tests' one model of an event database, for the library's tests and the
// converter's: a script of events with the changes their tracker records; its
// replay to the state before any event; the exact bytes of its files (in the
// library's table order, adt_hash.h); the ThreadX tracking that turns converter
// records into script events.  It calls nothing of the library.
#ifndef RAVELOG_TEST_SUPPORT_DATABASE_MODEL_H
#define RAVELOG_TEST_SUPPORT_DATABASE_MODEL_H

#include <gtest/gtest.h>

#include <cstdint>
#include <algorithm>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "test_random.h"

namespace testsupport {

using ObjectKey = std::pair<uint16_t, uint32_t>;  // (type, id)
using State = std::map<ObjectKey, std::string>;   // object -> value bytes

// One recorded change: New (bytes = value), Mod (bytes at offset), Del.
struct Change {
  enum Kind : uint8_t { kNew, kMod, kDel } kind = kNew;
  uint16_t type = 0, offset = 0;
  uint32_t id = 0;
  std::string bytes;
  bool operator==(const Change &) const = default;
};
Change New(uint16_t type, uint32_t id, std::string value);
Change Mod(uint16_t type, uint32_t id, uint16_t offset, std::string bytes);
Change Del(uint16_t type, uint32_t id);

// One event; `number` counts from 1 where the read side lists it.
struct Event {
  Event(uint64_t at = 0, uint16_t typeOf = 0, uint16_t subtypeOf = 0, std::string bytes = {}, std::vector<Change> made = {})
      : time(at), type(typeOf), subtype(subtypeOf), payload(std::move(bytes)), changes(std::move(made)) {}
  uint64_t time;
  uint16_t type, subtype;
  std::string payload;
  std::vector<Change> changes;
  uint32_t number = 0;
  bool operator==(const Event &) const = default;
};
using Script = std::vector<Event>;
std::ostream &operator<<(std::ostream &os, const Event &e);

// A New of an object that exists, a Mod that doesn't fit, a Del of nothing: no change.
void Apply(State &state, const Change &change);
State Replay(const Script &script, size_t count);  // after the first `count` events
size_t FirstAtOrAfter(const Script &script, uint64_t t);  // size when none
// Before, behind or between the script's times, or at, before or behind an event's.
uint64_t RandomTime(Random &random, const Script &script);
Script Listed(const Script &script, size_t first, size_t last);  // [first, last) numbered from 1

// Types 1..7 at times that never fall (runs of equal times longer than a
// block, jumps), payloads naming a Task (some too short), every kind of change
// of Tasks 0x100..0x10F, type 3 ids 0..7 (8 bytes), type 9 ids 0..4 (empty).
Script GenerateScript(Random &random, size_t count);
// Event k (from 0) at first + k * step, of type 4, names task k + 1 in its
// payload and creates it with that 4-byte value.
Script CountingScript(size_t count, uint64_t first = 10, uint64_t step = 10);

// A table of object keys as the library keeps one (adt_hash.h): chains in
// ascending buckets, new keys at the tail of their chain; more keys than
// twice the buckets grow it to the first size not below the count, each key
// in walk order pushed on the head of its new chain; a clone has the size
// that fits its source and the source's keys in walk order.
class Table {
 public:
  explicit Table(size_t keys = 0) : chains_(Buckets(keys)) {}
  void Insert(const ObjectKey &key) {
    chains_[Hash(key) % chains_.size()].push_back(key);
    if (++size_ <= 2 * chains_.size()) return;
    std::vector<std::vector<ObjectKey>> grown(Buckets(size_));
    for (const ObjectKey &k : Walk()) grown[Hash(k) % grown.size()].insert(grown[Hash(k) % grown.size()].begin(), k);
    chains_ = std::move(grown);
  }
  void Erase(const ObjectKey &key) {
    auto &chain = chains_[Hash(key) % chains_.size()];
    const auto at = std::find(chain.begin(), chain.end(), key);
    if (at != chain.end()) chain.erase(at), size_--;
  }
  std::vector<ObjectKey> Walk() const {
    std::vector<ObjectKey> keys;
    for (const auto &chain : chains_) keys.insert(keys.end(), chain.begin(), chain.end());
    return keys;
  }
  Table Clone() const {
    Table clone(size_);
    for (const ObjectKey &key : Walk()) clone.Insert(key);
    return clone;
  }

 private:
  static uint32_t Hash(const ObjectKey &key) {  // the id's outer bytes exchanged, exclusive-or the type
    return ((key.second << 24) | (key.second & 0x00FFFF00u) | (key.second >> 24)) ^ key.first;
  }
  static size_t Buckets(size_t keys) {
    for (size_t size : {29, 59, 127, 257, 521, 1049, 2099, 4201, 8419, 16843, 33703, 67409, 134837})
      if (size >= keys) return size;
    throw std::logic_error("the model's tables hold at most 134837 objects");
  }
  std::vector<std::vector<ObjectKey>> chains_;
  size_t size_ = 0;
};

struct DatabaseFiles {
  std::string kqv, kqs, kqi;
  bool operator==(const DatabaseFiles &) const = default;
};
struct DatabaseHeader {  // the configuration name as stored: lower case
  uint32_t ticksPerSecond = 1000000;
  std::string config = "threadx";
  bool bigEndian = true;
};
// The files after the script's events, each ending in its 0 tag.
DatabaseFiles Render(const Script &script, const DatabaseHeader &header = {});
DatabaseFiles ReadDatabase(const std::string &base);  // a file that can't be read is empty
// Success when equal; else both in hex and where .kqs first differs.
::testing::AssertionResult SameFiles(const DatabaseFiles &got, const DatabaseFiles &want);

// Bytes from hexadecimal text ("7F 54 4F56", blanks and '|' separate, "text"
// quoted; a typo throws std::invalid_argument), and back.
std::string HexBytes(const std::string &text);
std::string ToHex(const std::string &bytes);
// A big-endian number of `bytes` bytes; a word in a target's order and back;
// the 20-byte GFile header of a database file.
std::string U(uint64_t value, int bytes);
std::string Word(uint32_t value, bool bigEndian);
uint32_t WordAt(const std::string &bytes, size_t at, bool bigEndian);
std::string GFileHeader(int fileType);
// The 76-byte Task value; an absent fact is unknown (its flag 0, priority
// FF FF FF FF).  Names are cut or zero-padded to 31 bytes.
std::string TaskValue(std::optional<uint16_t> status, std::optional<uint32_t> priority = {},
                      std::optional<std::string> name = {}, std::optional<std::string> secondName = {});

// The converter's tracking: records (payloads in the log's order) in, events
// with the tracker's changes out; no byte beyond a payload is read.
class ThreadXLog {
 public:
  explicit ThreadXLog(bool bigEndian) : big_(bigEndian) {}
  ThreadXLog(bool bigEndian, const Script &records) : ThreadXLog(bigEndian) {
    for (const Event &r : records) Add(r.time, r.type, r.subtype, r.payload);
  }
  void Add(uint64_t time, uint16_t type, uint16_t subtype, const std::string &payload);
  const Script &script() const { return script_; }
  DatabaseFiles Files(uint32_t hz) const { return Render(script_, {hz, "threadx", big_}); }

 private:
  void Track(Event &e);
  void Record(Event &e, const Change &c);
  bool big_;
  Script script_;
  State threads_;
  Table table_;  // the threads in the tracker's table order
};

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_DATABASE_MODEL_H
