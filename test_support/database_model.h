// A model of the event database that a conversion should write, for the
// end-to-end tests: it computes the expected .kqv, .kqs and .kqi bytes of
// the records handed to it, in the tests' own terms.  It is written from the
// file layout and the documented ThreadX tracking alone and shares no code
// with the library: it never calls the writer or any kq_ function.
//
//   Model model(/*bigEndian=*/true, 1000);
//   model.Add(0, 6, 10, threadRecord);     // time, type, subtype, payload
//   model.Add(0x20, 1, 0, contextSwitch);
//   EXPECT_EQ(ReadFileBytes(base + ".kqs"), model.Expected().kqs);
//
// What it models: big-endian numbers and the three layouts; blocks of 100
// events with their object list (one block late) and snapshot; Tasks made
// and changed as the tracker does for event types 1 to 7, with payloads of
// any length: types 1, 3, 5 and 6 shorter than a Thread ID change nothing,
// types 5 and 6 shorter than two words carry no priority, and a type 6 name
// is the bytes from offset 8 on, at most 31, zero-padded.  Table order is
// modelled as the walk of a table of 29 buckets: by bucket (the id with its
// outer bytes exchanged, modulo 29), then by order of creation.  That holds
// while no table grows (fewer than 59 threads) and nothing is deleted.
#ifndef RAVELOG_TEST_SUPPORT_DATABASE_MODEL_H
#define RAVELOG_TEST_SUPPORT_DATABASE_MODEL_H

#include <cstdint>
#include <string>
#include <vector>

namespace testsupport {

// The three files of a database, each whole.
struct DatabaseFiles {
  std::string kqv, kqs, kqi;
};

// The three files of the database with base name `base`; a file that
// can't be read is empty.
DatabaseFiles ReadDatabase(const std::string &base);

// Expects `got` to be `want` byte for byte; a failure shows .kqv and .kqi in
// hexadecimal and the first position at which .kqs differs.
void ExpectDatabase(const DatabaseFiles &got, const DatabaseFiles &want);

// `value` as a big-endian number of `bytes` bytes.
std::string U(uint64_t value, int bytes);

// The 20-byte GFile header of a database file of the given type.
std::string GFileHeader(int fileType);

class Model {
 public:
  // An empty database of a log in the given byte order and timer frequency.
  Model(bool bigEndian, uint32_t hz);

  // The three files as they should stand after the records so far.
  DatabaseFiles Expected() const;

  // One record: its time in ticks, type, subtype and payload bytes in the
  // log's byte order.
  void Add(uint64_t time, uint16_t type, uint16_t subtype, const std::string &payload);

 private:
  struct Thread {
    uint32_t id = 0;
    uint16_t status = 0;
    uint32_t priority = 0xFFFFFFFF;
    bool priorityKnown = false;
    std::string name = std::string(31, '\0');
    bool nameKnown = false;
  };

  std::vector<uint32_t> Ids() const;
  Thread *Find(uint32_t id);
  // The 76-byte Task value.
  static std::string Value(const Thread &t);
  uint32_t Word(const std::string &payload, size_t at) const;

  void Create(const Thread &t);
  void Mod(const Thread *t, uint16_t offset, const std::string &bytes);
  void SetStatus(Thread *t, uint16_t status);
  void UpdateStatus(Thread *t, uint16_t status);
  void UpdatePriority(Thread *t, uint32_t priority);
  void Track(uint16_t type, uint16_t subtype, const std::string &payload);

  bool big_;
  std::string kqv_, kqs_, kqi_;  // the end tags are added by Expected
  std::vector<Thread> threads_;  // in creation order
  std::vector<uint32_t> used_;   // in order of entry
  uint32_t events_ = 0;
};

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_DATABASE_MODEL_H
