// Writes corefiles of version 1 and 2; see corefile_builder.h.
#include "corefile_builder.h"

namespace testsupport {

Corefile &Corefile::Thread(const std::string &name, uint32_t id, uint32_t priority, uint8_t valid, uint8_t next) {
  threads_ += (name + std::string(34, '\0')).substr(0, 34) + char(valid) + char(next) + Words({id, priority});
  threadEntries_++;
  return *this;
}

Corefile &Corefile::PoolBytes(uint32_t offset, const std::string &bytes) {
  for (size_t i = 0; i < bytes.size() && !pool_.empty(); i++) pool_[(offset + i) % pool_.size()] = bytes[i];
  return *this;
}

std::string Corefile::SlotBytes(uint16_t type, uint16_t subtype, uint64_t time, const std::string &payload) const {
  return (Word16(type) + Word16(subtype) + Words({uint32_t(time >> 32), uint32_t(time)}) + payload + std::string(20, '\0')).substr(0, 32);
}

Corefile &Corefile::Record(uint32_t offset, uint16_t type, uint16_t subtype, uint32_t high, uint32_t low,
                           const std::string &payload, int lengthByte) {
  const int length = lengthByte >= 0 ? lengthByte : 12 + static_cast<int>(payload.size());
  const std::string record = char(length) + Word16(type) + Word16(subtype) + Words({high, low}) + payload;
  PoolBytes(offset, record);
  recordEnd_ = pool_.empty() ? 0 : static_cast<uint32_t>((offset + record.size()) % pool_.size());
  return *this;
}

std::string Corefile::Word16(uint16_t value) const {
  return big_ ? std::string{char(value >> 8), char(value)} : std::string{char(value), char(value >> 8)};
}

std::string Corefile::Words(std::initializer_list<uint32_t> values) const {
  std::string bytes;
  for (uint32_t value : values) bytes += Word32(value);
  return bytes;
}

std::string Corefile::Head() const {
  const uint32_t evps = evps_.value_or(static_cast<uint32_t>(pool_.size()));
  std::string out = Word16(uint16_t(version_)) + Word16(uint16_t(threadCount_.value_or(threadEntries_))) + Word32(evps);
  out += version_ == 1 ? v1Words_ : Words({capacity_.value_or(evps / 32), location_, pointer_.value_or(location_ + start_)});
  return out + Word32(hz_) + threads_;
}

}  // namespace testsupport
