// Tests of reading fields of Tasks (the self-description's one computed
// answer): host-order numbers and the name text of each format version, only
// when known, with buffers at and around every size limit.  The fixed tables
// of types, fields and named values are not restated here.
#include <gtest/gtest.h>

#include <cstring>

#include "database_model.h"
#include "indgeninit.h"
#include "kq_io.h"
#include "kq_state.h"

using namespace testsupport;

namespace {

class Describe : public ::testing::Test {
 protected:
  ~Describe() override {
    kq_DeleteState(state_);
    gen_free(db_);
  }
  void Put(uint32_t id, const std::string &value, uint16_t type = 0) {
    ApplyStateChangeNew(state_->table, nullptr, type, id, uint16_t(value.size()), value.data(), nullptr, nullptr);
  }
  // Field `field` through a buffer of `size` bytes: the result and, when
  // known, the bytes (a name up to its NUL); else whether the buffer stayed.
  std::string Read(uint32_t id, int32_t field, uint32_t size, uint16_t type = 0) {
    std::string buffer(size + 1, '#');
    uint8_t isKnown = 9;
    const int result = kq_GetValueIfIsKnown(db_, state_, type, id, field, &isKnown, buffer.data(), size, ':');
    if (isKnown == 0) return std::to_string(result) + (buffer == std::string(size + 1, '#') ? " unknown" : " touched");
    return field == 2 ? buffer.substr(0, strnlen(buffer.data(), size + 1)) : ToHex(buffer.substr(0, field == 0 ? 2 : 4));
  }
  kq_State *state_ = kq_NewState();
  kq_DB *db_ = New_kq_DB();
};

TEST_F(Describe, NumbersComeInHostOrderOnlyWhenKnownAndTheBufferFits) {
  Put(0x10, TaskValue(0x0102, 0xA1B2C3D4));
  Put(0x11, TaskValue(3));                        // priority unknown
  Put(0x12, HexBytes("0003 01 00 00000005 01"));  // a value cut short
  Put(0x10, TaskValue(3), 1);                     // same id, another type
  const uint16_t status = 0x0102;
  const uint32_t priority = 0xA1B2C3D4;
  EXPECT_EQ(Read(0x10, 0, 2), ToHex(std::string(reinterpret_cast<const char *>(&status), 2)));
  EXPECT_EQ(Read(0x10, 1, 4), ToHex(std::string(reinterpret_cast<const char *>(&priority), 4)));
  const std::tuple<uint32_t, int32_t, uint32_t, uint16_t, const char *> rows[] = {
      {0x10, 0, 1, 0, "1 unknown"}, {0x10, 1, 3, 0, "1 unknown"}, {0x11, 1, 8, 0, "1 unknown"},
      {0x10, 2, 8, 0, "1 unknown"}, {0x10, 3, 8, 0, "1 unknown"}, {0x10, -1, 8, 0, "1 unknown"},
      {0x12, 0, 8, 0, "1 unknown"}, {0x13, 0, 8, 0, "0 unknown"}, {0x10, 0, 8, 2, "0 unknown"}};
  for (const auto &[id, field, size, type, answer] : rows) EXPECT_EQ(Read(id, field, size, type), answer) << id << " " << field;
}

TEST_F(Describe, TheNameTextOfEachFormatVersionIsCutToTheRoomLeft) {
  const std::string n31(31, 'n'), s31(31, 's');
  std::string stale = TaskValue({}, {}, "worker", "stale");
  stale[72] = 0;  // a second name not known isn't read
  uint32_t next = 1;  // a second name alone is no name; an empty one gets no separator; no NUL in either field
  for (const std::string &value : {TaskValue({}, {}, "worker", "cpu_1"), TaskValue({}, {}, "worker"), TaskValue({}, {}, {}, "cpu1"),
                                   TaskValue({}, {}, "worker", ""), stale, TaskValue({}, {}, n31, s31)})
    Put(next++, value);
  const std::tuple<uint32_t, uint32_t, uint32_t, std::string> rows[] = {  // version, id, size, text
      {3, 1, 64, "cpu_1:worker"}, {3, 2, 64, "worker"}, {3, 3, 64, "1 unknown"}, {3, 4, 64, "worker"},
      {3, 5, 64, "worker"},       {3, 1, 1, ""},        {3, 1, 2, "c"},          {3, 1, 6, "cpu_1"},
      {3, 1, 7, "cpu_1:"},        {3, 1, 8, "cpu_1:w"}, {3, 1, 13, "cpu_1:worker"}, {9, 6, 200, s31 + ":" + n31},
      {2, 1, 64, "worker"},       {2, 1, 4, "wor"},     {0, 1, 1, ""},           {1, 6, 64, n31}};
  for (const auto &[version, id, size, text] : rows) {
    db_->formatVersion = version;
    EXPECT_EQ(Read(id, 2, size), text) << "version " << version << " id " << id << " size " << size;
  }
  char buffer[40];  // a null handle reads as the oldest version: the 31 bytes as they stand
  memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(kq_GetValueIfIsKnown(nullptr, state_, 0, 1, 2, nullptr, buffer, 40, ':'), 1);
  EXPECT_EQ(std::string(buffer, 33), "worker" + std::string(26, '\0') + "#");
}

}  // namespace
