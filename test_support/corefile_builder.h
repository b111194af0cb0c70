// Builds corefiles for tests: the saved target memory that ravelog reads, of
// version 1 or 2 and of either byte order, described in a few lines of code.
//
//   Corefile core = Corefile::V2(Endian::kBig, 64);   // pool of two slots
//   core.StartOffset(32).Thread("main", 0x1234, 10);
//   core.Slot(0, 1, 0, 0, 100, core.Words({0x1234}));
//   core.Slot(32, 3, 22, 0, 50, core.Words({0x1234}));
//   WriteFileBytes(path, core.Bytes());
//
// Every header field has a sensible default that follows the contents (the
// thread count follows the threads, the pool size the pool, the capacity the
// pool size) until a test sets it, after which it keeps the value set, right
// or wrong.  Numbers are written in the file's byte order; names, payloads
// and raw bytes are written as given.
#ifndef RAVELOG_TEST_SUPPORT_COREFILE_BUILDER_H
#define RAVELOG_TEST_SUPPORT_COREFILE_BUILDER_H

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace testsupport {

enum class Endian { kBig, kLittle };

// One thread list entry (44 bytes in the file).
struct CoreThread {
  std::string name;  // the 34-byte name field: cut to 34, zero-padded
  uint32_t id = 0;
  uint32_t priority = 0;
  uint8_t valid = 1;
  uint8_t next = 0;
};

class Corefile {
 public:
  // A log of the given version with an all-zero pool of pool_size bytes, no
  // threads, timer frequency 1000 Hz.  Version 2: event log memory location
  // 0x00100000 and current event pointer at pool offset 0.
  static Corefile V2(Endian order, uint32_t pool_size = 64);
  static Corefile V1(Endian order, uint32_t pool_size = 64);

  // ---- Header, both versions.
  // The first two bytes as written, in place of the version word.
  Corefile &VersionBytes(uint8_t byte0, uint8_t byte1);
  Corefile &ThreadCount(int16_t count);
  // The header's pool size; the pool written keeps its own size.
  Corefile &Evps(uint32_t size);
  Corefile &TimerHz(uint32_t hz);

  // ---- Header, version 2.
  Corefile &Capacity(uint32_t slots);
  // Event log memory location; the current event pointer keeps its pool
  // offset unless it was set as an address.
  Corefile &Location(uint32_t address);
  Corefile &CurrentPointer(uint32_t address);
  // Current event pointer = location + offset.
  Corefile &StartOffset(uint32_t offset);

  // ---- Header, version 1 (stored words, unused by the decoder).
  Corefile &EQsize(uint32_t value);
  Corefile &Evploc(uint32_t value);
  Corefile &Qhead(uint32_t value);
  Corefile &Qtail(uint32_t value);

  // ---- Thread list, in the order added.
  Corefile &Thread(const std::string &name, uint32_t id, uint32_t priority, uint8_t valid = 1,
                   uint8_t next = 0);
  Corefile &Thread(const CoreThread &thread);

  // ---- Event pool.
  // Resizes the pool (new bytes are zero); the header follows unless Evps
  // was set.
  Corefile &PoolSize(uint32_t size);
  // Raw bytes at a pool offset, wrapping at the pool's end.
  Corefile &PoolBytes(uint32_t offset, const std::string &bytes);
  // Version 2 slot at a pool offset: type, subtype, time high and low, and
  // the payload cut or zero-padded to 20 bytes.
  Corefile &Slot(uint32_t offset, uint16_t type, uint16_t subtype, uint32_t high, uint32_t low,
                 const std::string &payload = "");
  // Version 1 record at a pool offset, wrapping byte by byte at the pool's
  // end: length byte (12 + payload size unless given), type, subtype, time
  // high and low, payload.  Bytes between records are left zero (filler).
  Corefile &Record(uint32_t offset, uint16_t type, uint16_t subtype, uint32_t high, uint32_t low,
                   const std::string &payload = "", int length_byte = -1);
  // Record() right behind the last record placed (at 0 for the first).
  Corefile &AppendRecord(uint16_t type, uint16_t subtype, uint32_t high, uint32_t low,
                         const std::string &payload = "", int length_byte = -1);
  // Pool offset just behind the last record placed, wrapped.
  uint32_t RecordEnd() const { return record_end_; }
  // Bytes written after the pool.
  Corefile &Trailer(const std::string &bytes);

  // ---- Numbers in the file's byte order.
  std::string Word16(uint16_t value) const;
  std::string Word32(uint32_t value) const;
  std::string Words(std::initializer_list<uint32_t> values) const;

  // ---- Output.
  std::string Bytes() const;
  bool WriteTo(const std::string &path) const;

  uint32_t pool_size() const { return static_cast<uint32_t>(pool_.size()); }
  bool big_endian() const { return order_ == Endian::kBig; }

 private:
  Corefile(int version, Endian order, uint32_t pool_size);

  int version_;
  Endian order_;
  std::optional<std::string> version_bytes_;
  std::optional<int16_t> thread_count_;
  std::optional<uint32_t> evps_;
  uint32_t timer_hz_ = 1000;
  std::optional<uint32_t> capacity_;
  uint32_t location_ = 0x00100000;
  uint32_t start_offset_ = 0;
  std::optional<uint32_t> current_pointer_;
  uint32_t eqsize_ = 0;
  uint32_t evploc_ = 0;
  uint32_t qhead_ = 0;
  uint32_t qtail_ = 0;
  std::vector<CoreThread> threads_;
  std::string pool_;
  uint32_t record_end_ = 0;
  std::string trailer_;
};

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_COREFILE_BUILDER_H
