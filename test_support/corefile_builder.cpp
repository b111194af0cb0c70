// Writes corefiles of version 1 and 2 for tests; see corefile_builder.h.
#include "corefile_builder.h"

#include "temp_dir.h"

namespace testsupport {

Corefile::Corefile(int version, Endian order, uint32_t pool_size)
    : version_(version), order_(order), pool_(pool_size, '\0') {}

Corefile Corefile::V2(Endian order, uint32_t pool_size) { return Corefile(2, order, pool_size); }
Corefile Corefile::V1(Endian order, uint32_t pool_size) { return Corefile(1, order, pool_size); }

Corefile &Corefile::VersionBytes(uint8_t byte0, uint8_t byte1) {
  version_bytes_ = std::string{static_cast<char>(byte0), static_cast<char>(byte1)};
  return *this;
}
Corefile &Corefile::ThreadCount(int16_t count) {
  thread_count_ = count;
  return *this;
}
Corefile &Corefile::Evps(uint32_t size) {
  evps_ = size;
  return *this;
}
Corefile &Corefile::TimerHz(uint32_t hz) {
  timer_hz_ = hz;
  return *this;
}
Corefile &Corefile::Capacity(uint32_t slots) {
  capacity_ = slots;
  return *this;
}
Corefile &Corefile::Location(uint32_t address) {
  location_ = address;
  return *this;
}
Corefile &Corefile::CurrentPointer(uint32_t address) {
  current_pointer_ = address;
  return *this;
}
Corefile &Corefile::StartOffset(uint32_t offset) {
  start_offset_ = offset;
  current_pointer_.reset();
  return *this;
}
Corefile &Corefile::EQsize(uint32_t value) {
  eqsize_ = value;
  return *this;
}
Corefile &Corefile::Evploc(uint32_t value) {
  evploc_ = value;
  return *this;
}
Corefile &Corefile::Qhead(uint32_t value) {
  qhead_ = value;
  return *this;
}
Corefile &Corefile::Qtail(uint32_t value) {
  qtail_ = value;
  return *this;
}

Corefile &Corefile::Thread(const std::string &name, uint32_t id, uint32_t priority, uint8_t valid,
                           uint8_t next) {
  return Thread(CoreThread{name, id, priority, valid, next});
}
Corefile &Corefile::Thread(const CoreThread &thread) {
  threads_.push_back(thread);
  return *this;
}

Corefile &Corefile::PoolSize(uint32_t size) {
  pool_.resize(size, '\0');
  return *this;
}

Corefile &Corefile::PoolBytes(uint32_t offset, const std::string &bytes) {
  if (pool_.empty()) return *this;
  for (size_t i = 0; i < bytes.size(); i++) pool_[(offset + i) % pool_.size()] = bytes[i];
  return *this;
}

Corefile &Corefile::Slot(uint32_t offset, uint16_t type, uint16_t subtype, uint32_t high,
                         uint32_t low, const std::string &payload) {
  std::string slot = Word16(type) + Word16(subtype) + Word32(high) + Word32(low) + payload;
  slot.resize(32, '\0');
  return PoolBytes(offset, slot);
}

Corefile &Corefile::Record(uint32_t offset, uint16_t type, uint16_t subtype, uint32_t high,
                           uint32_t low, const std::string &payload, int length_byte) {
  const int length = length_byte >= 0 ? length_byte : 12 + static_cast<int>(payload.size());
  std::string record(1, static_cast<char>(length));
  record += Word16(type) + Word16(subtype) + Word32(high) + Word32(low) + payload;
  PoolBytes(offset, record);
  record_end_ = pool_.empty() ? 0 : static_cast<uint32_t>((offset + record.size()) % pool_.size());
  return *this;
}

Corefile &Corefile::AppendRecord(uint16_t type, uint16_t subtype, uint32_t high, uint32_t low,
                                 const std::string &payload, int length_byte) {
  return Record(record_end_, type, subtype, high, low, payload, length_byte);
}

Corefile &Corefile::Trailer(const std::string &bytes) {
  trailer_ += bytes;
  return *this;
}

std::string Corefile::Word16(uint16_t value) const {
  const char high = static_cast<char>(value >> 8);
  const char low = static_cast<char>(value);
  return big_endian() ? std::string{high, low} : std::string{low, high};
}

std::string Corefile::Word32(uint32_t value) const {
  std::string bytes;
  for (int shift : {24, 16, 8, 0}) bytes += static_cast<char>(value >> shift);
  return big_endian() ? bytes : std::string(bytes.rbegin(), bytes.rend());
}

std::string Corefile::Words(std::initializer_list<uint32_t> values) const {
  std::string bytes;
  for (uint32_t value : values) bytes += Word32(value);
  return bytes;
}

std::string Corefile::Bytes() const {
  std::string out;
  if (version_bytes_) {
    out += *version_bytes_;
  } else {
    out += Word16(static_cast<uint16_t>(version_));
  }
  const int16_t count = thread_count_ ? *thread_count_ : static_cast<int16_t>(threads_.size());
  const uint32_t evps = evps_ ? *evps_ : pool_size();
  out += Word16(static_cast<uint16_t>(count));
  out += Word32(evps);
  if (version_ == 2) {
    out += Word32(capacity_ ? *capacity_ : evps / 32);
    out += Word32(location_);
    out += Word32(current_pointer_ ? *current_pointer_ : location_ + start_offset_);
  } else {
    out += Word32(eqsize_) + Word32(evploc_) + Word32(qhead_) + Word32(qtail_);
  }
  out += Word32(timer_hz_);
  for (const CoreThread &thread : threads_) {
    std::string name = thread.name.substr(0, 34);
    name.resize(34, '\0');
    out += name;
    out += static_cast<char>(thread.valid);
    out += static_cast<char>(thread.next);
    out += Word32(thread.id) + Word32(thread.priority);
  }
  out += pool_;
  out += trailer_;
  return out;
}

bool Corefile::WriteTo(const std::string &path) const { return WriteFileBytes(path, Bytes()); }

}  // namespace testsupport
