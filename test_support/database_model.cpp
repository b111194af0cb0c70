// The tests' model of a converted database; see database_model.h.
#include "database_model.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "database_walk.h"
#include "hex_bytes.h"

namespace testsupport {

namespace {

uint32_t Bucket(uint32_t id) { return ((id & 0xFF) << 24 | (id & 0xFFFF00) | id >> 24) % 29; }

// ids are in creation order; the walk takes buckets in turn.
std::vector<uint32_t> InTableOrder(std::vector<uint32_t> ids) {
  std::stable_sort(ids.begin(), ids.end(), [](uint32_t a, uint32_t b) { return Bucket(a) < Bucket(b); });
  return ids;
}

}  // namespace

DatabaseFiles ReadDatabase(const std::string &base) {
  return {ReadWithSyscalls(base + ".kqv"), ReadWithSyscalls(base + ".kqs"), ReadWithSyscalls(base + ".kqi")};
}

void ExpectDatabase(const DatabaseFiles &got, const DatabaseFiles &want) {
  EXPECT_EQ(ToHex(got.kqv), ToHex(want.kqv));
  EXPECT_EQ(ToHex(got.kqi), ToHex(want.kqi));
  if (got.kqs == want.kqs) return;
  size_t at = 0;
  while (at < got.kqs.size() && at < want.kqs.size() && got.kqs[at] == want.kqs[at]) at++;
  ADD_FAILURE() << ".kqs of " << got.kqs.size() << " bytes, expected " << want.kqs.size()
                << ", first differs at byte " << at << ":\n  got  "
                << ToHex(got.kqs.substr(at, 24)) << "\n  want " << ToHex(want.kqs.substr(at, 24));
}

std::string U(uint64_t value, int bytes) {
  std::string out;
  for (int i = bytes - 1; i >= 0; i--) out += static_cast<char>(value >> (8 * i));
  return out;
}

std::string GFileHeader(int fileType) {
  return HexBytes("7F544F56 00000001") + U(static_cast<uint64_t>(fileType), 4) +
         HexBytes("00000000 04 00 00 00");
}

Model::Model(bool bigEndian, uint32_t hz) : big_(bigEndian) {
  kqv_ = GFileHeader(6) + HexBytes("03") + U(hz, 4) + U(7, 4) + "threadx" + U(bigEndian ? 1 : 0, 1) +
         U(100, 4);
  kqs_ = GFileHeader(4);
  kqi_ = GFileHeader(5);
}

DatabaseFiles Model::Expected() const { return {kqv_, kqs_ + '\0', kqi_ + '\0'}; }

void Model::Add(uint64_t time, uint16_t type, uint16_t subtype, const std::string &payload) {
  if (events_ % 100 == 0) {
    kqi_ += HexBytes("01") + U(time, 8) + U(kqs_.size(), 4);
    kqs_ += HexBytes("03") + U(used_.size(), 4);
    for (uint32_t id : InTableOrder(used_)) kqs_ += U(0, 2) + U(id, 4);
    kqs_ += HexBytes("02") + U(threads_.size(), 4);
    for (uint32_t id : InTableOrder(Ids())) kqs_ += U(0, 2) + U(id, 4) + U(76, 4) + Value(*Find(id));
    used_ = Ids();
  }
  kqs_ += HexBytes("01") + U(time, 8) + U(payload.size(), 4) + U(type, 2) + U(subtype, 2) + payload;
  Track(type, subtype, payload);
  kqs_ += HexBytes("03");
  events_++;
}

std::vector<uint32_t> Model::Ids() const {
  std::vector<uint32_t> ids;
  for (const Thread &t : threads_) ids.push_back(t.id);
  return ids;
}

Model::Thread *Model::Find(uint32_t id) {
  for (Thread &t : threads_)
    if (t.id == id) return &t;
  return nullptr;
}

std::string Model::Value(const Thread &t) {
  return U(t.status, 2) + HexBytes("01 00") + U(t.priority, 4) + U(t.priorityKnown, 1) + t.name +
         U(t.nameKnown, 1) + std::string(35, '\0');
}

uint32_t Model::Word(const std::string &payload, size_t at) const {
  uint32_t value = 0;
  for (int i = 0; i < 4; i++) {
    const auto byte = static_cast<unsigned char>(payload[at + (big_ ? i : 3 - i)]);
    value = value << 8 | byte;
  }
  return value;
}

void Model::Create(const Thread &t) {
  threads_.push_back(t);
  used_.push_back(t.id);
  kqs_ += HexBytes("00") + U(0, 2) + U(t.id, 4) + U(76, 2) + Value(t);
}

void Model::Mod(const Thread *t, uint16_t offset, const std::string &bytes) {
  kqs_ += HexBytes("01") + U(0, 2) + U(t->id, 4) + U(offset, 2) + U(bytes.size(), 1) + bytes;
}

void Model::SetStatus(Thread *t, uint16_t status) {
  t->status = status;
  Mod(t, 0, U(status, 2));
}

void Model::UpdateStatus(Thread *t, uint16_t status) {
  if (t->status != status) SetStatus(t, status);
}

void Model::UpdatePriority(Thread *t, uint32_t priority) {
  if (t->priority != priority) {
    t->priority = priority;
    Mod(t, 4, U(priority, 4));
  }
  if (!t->priorityKnown) {
    t->priorityKnown = true;
    Mod(t, 8, HexBytes("01"));
  }
}

void Model::Track(uint16_t type, uint16_t subtype, const std::string &payload) {
  if (type == 2 || type == 4 || type == 7) return;
  // A payload too short to name a thread changes nothing.
  if (payload.size() < 4) return;
  const uint32_t id = Word(payload, 0);
  Thread *t = Find(id);
  if (type == 1) {
    if (t == nullptr) {
      Thread fresh;
      fresh.id = id;
      fresh.status = 3;
      Create(fresh);
    }
    for (uint32_t other : InTableOrder(Ids())) {
      Thread *o = Find(other);
      if (o->status == 3 && !(t == nullptr && other == id)) SetStatus(o, 0);
    }
    if (t != nullptr) SetStatus(t, 3);
    return;
  }
  if (type == 3) {
    if (t == nullptr) {
      Thread fresh;
      fresh.id = id;
      fresh.status = 3;
      Create(fresh);
    } else {
      UpdateStatus(t, 3);
    }
    return;
  }
  // Types 5 and 6.  Without a second word there is no priority; the name
  // of a type 6 is what stands from offset 8 on, zero-padded to 31 bytes.
  uint16_t status = subtype;
  if (type == 5) status = subtype == 3 ? 11 : subtype == 10 ? 3 : subtype;
  const bool priorityGiven = payload.size() >= 8;
  const uint32_t priority = priorityGiven ? Word(payload, 4) : 0xFFFFFFFF;
  std::string name;
  if (type == 6) {
    if (payload.size() > 8) name = payload.substr(8, 31);
    name.resize(31, '\0');
  }
  if (t == nullptr) {
    Thread fresh;
    fresh.id = id;
    fresh.status = status;
    fresh.priority = priority;
    fresh.priorityKnown = priorityGiven;
    if (type == 6) {
      fresh.name = name;
      fresh.nameKnown = true;
    }
    Create(fresh);
    return;
  }
  UpdateStatus(t, status);
  if (priorityGiven) UpdatePriority(t, priority);
  if (type != 6) return;
  const size_t length = std::min<size_t>(name.find('\0'), 31);
  if (name.compare(0, length, t->name, 0, length) != 0) {
    const std::string stored = name.substr(0, length) + (length < 31 ? std::string(1, '\0') : "");
    t->name.replace(0, stored.size(), stored);
    Mod(t, 9, stored);
  }
  if (!t->nameKnown) {
    t->nameKnown = true;
    Mod(t, 40, HexBytes("01"));
  }
}

}  // namespace testsupport
