// The one builder of corefiles (the saved target memory ravelog reads) of
// version 1 or 2 in either byte order, numbers in the file's order:
//   Corefile::V2(Endian::kBig, 64).Start(32).Thread("main", 0x1234, 10).Slot(0, 1, 0, 0, 100, payload).Bytes()
// A header field follows the contents until a test sets it, right or wrong.
#ifndef RAVELOG_TEST_SUPPORT_COREFILE_BUILDER_H
#define RAVELOG_TEST_SUPPORT_COREFILE_BUILDER_H

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>

namespace testsupport {

enum class Endian { kBig, kLittle };

class Corefile {
 public:
  // An all-zero pool, no threads, 1000 Hz; version 2's pool at 0x00100000.
  static Corefile V2(Endian order, uint32_t poolSize = 64) { return Corefile(2, order, poolSize); }
  static Corefile V1(Endian order, uint32_t poolSize = 64) { return Corefile(1, order, poolSize); }

  Corefile &ThreadCount(int16_t n) { return Set(threadCount_, n); }
  Corefile &Evps(uint32_t size) { return Set(evps_, size); }
  Corefile &TimerHz(uint32_t hz) { return Set(hz_, hz); }
  Corefile &Capacity(uint32_t slots) { return Set(capacity_, slots); }
  Corefile &Location(uint32_t address) { return Set(location_, address); }
  Corefile &Pointer(uint32_t address) { return Set(pointer_, address); }
  Corefile &Start(uint32_t offset) { return Set(start_, offset); }
  Corefile &V1Words(uint32_t eqSize, uint32_t evploc, uint32_t qhead, uint32_t qtail) {
    return Set(v1Words_, Words({eqSize, evploc, qhead, qtail}));
  }
  // A thread list entry: the 34-byte name field (cut, zero-padded), Valid, Next, Thread ID, Priority.
  Corefile &Thread(const std::string &name, uint32_t id, uint32_t priority, uint8_t valid = 1, uint8_t next = 0) {
    threadEntries_++;
    return Set(threads_, threads_ + (name + std::string(34, '\0')).substr(0, 34) + char(valid) + char(next) + Words({id, priority}));
  }
  // Raw bytes at a pool offset, wrapping at the pool's end.
  Corefile &PoolBytes(uint32_t offset, const std::string &bytes) {
    for (size_t i = 0; i < bytes.size() && !pool_.empty(); i++) pool_[(offset + i) % pool_.size()] = bytes[i];
    return *this;
  }
  // A version 2 slot: type, subtype, time, payload cut or zero-padded to 20 bytes.
  Corefile &Slot(uint32_t offset, uint16_t type, uint16_t subtype, uint32_t high, uint32_t low,
                 const std::string &payload = "") {
    return PoolBytes(offset, SlotBytes(type, subtype, uint64_t{high} << 32 | low, payload.substr(0, 20)));
  }
  std::string SlotBytes(uint16_t type, uint16_t subtype, uint64_t time, const std::string &payload) const {
    return (Word16(type) + Word16(subtype) + Words({uint32_t(time >> 32), uint32_t(time)}) + payload + std::string(20, '\0')).substr(0, 32);
  }
  // A version 1 record (length byte 12 + payload size unless given), wrapping
  // byte by byte; Append puts it behind the last one placed.
  Corefile &Record(uint32_t offset, uint16_t type, uint16_t subtype, uint32_t high, uint32_t low,
                   const std::string &payload = "", int lengthByte = -1) {
    const char length = char(lengthByte >= 0 ? lengthByte : 12 + int(payload.size()));
    const std::string record = length + Word16(type) + Word16(subtype) + Words({high, low}) + payload;
    recordEnd_ = pool_.empty() ? 0 : static_cast<uint32_t>((offset + record.size()) % pool_.size());
    return PoolBytes(offset, record);
  }
  Corefile &Append(uint16_t type, uint16_t subtype, uint32_t high, uint32_t low, const std::string &payload = "",
                   int lengthByte = -1) {
    return Record(recordEnd_, type, subtype, high, low, payload, lengthByte);
  }
  // Bytes written behind the pool.
  Corefile &Trailer(const std::string &bytes) { return Set(trailer_, trailer_ + bytes); }

  std::string Word16(uint16_t value) const {
    return big_ ? std::string{char(value >> 8), char(value)} : std::string{char(value), char(value >> 8)};
  }
  std::string Word32(uint32_t value) const {
    return big_ ? Word16(value >> 16) + Word16(uint16_t(value)) : Word16(uint16_t(value)) + Word16(value >> 16);
  }
  std::string Words(std::initializer_list<uint32_t> values) const {
    std::string bytes;
    for (uint32_t value : values) bytes += Word32(value);
    return bytes;
  }
  // The header and thread list; the whole file.
  std::string Head() const {
    const uint32_t evps = evps_.value_or(static_cast<uint32_t>(pool_.size()));
    std::string out = Word16(uint16_t(version_)) + Word16(uint16_t(threadCount_.value_or(threadEntries_))) + Word32(evps);
    out += version_ == 1 ? v1Words_ : Words({capacity_.value_or(evps / 32), location_, pointer_.value_or(location_ + start_)});
    return out + Word32(hz_) + threads_;
  }
  std::string Bytes() const { return Head() + pool_ + trailer_; }
  bool big() const { return big_; }

 private:
  Corefile(int version, Endian order, uint32_t poolSize) : version_(version), big_(order == Endian::kBig), pool_(poolSize, '\0') {}
  template <typename T, typename V>
  Corefile &Set(T &field, const V &value) {
    field = value;
    return *this;
  }
  int version_;
  bool big_;
  std::optional<int16_t> threadCount_;
  std::optional<uint32_t> evps_, capacity_, pointer_;
  uint32_t hz_ = 1000, location_ = 0x00100000, start_ = 0, recordEnd_ = 0;
  int16_t threadEntries_ = 0;
  std::string v1Words_ = std::string(16, '\0'), threads_, pool_, trailer_;
};

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_COREFILE_BUILDER_H
