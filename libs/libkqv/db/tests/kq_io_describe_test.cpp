// Tests of the self-description of objects: the type's name, its fields and
// their descriptions, the named values of the Status, and reading fields of
// Tasks as host-order numbers and as the name text of each format version,
// with buffers at and around every size limit.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "hex_bytes.h"
#include "indgeninit.h"
#include "kq_io.h"
#include "kq_state.h"

using testsupport::HexBytes;

namespace {

// ---- Vocabulary --------------------------------------------------------

// A 76-byte Task value: status and priority as hex ("" = unknown), names
// ("" with its flag 0 = unknown unless the flag is given).
struct TaskSpec {
  std::string status = "";
  std::string priority = "";
  std::string name = "";
  int nameKnown = -1;
  std::string secondName = "";
  int secondNameKnown = -1;
};

std::string NameField(const std::string &name) {
  std::string field = name.substr(0, 31);
  field.resize(31, '\0');
  return field;
}

std::string TaskValue(const TaskSpec &spec) {
  std::string value = spec.status.empty() ? HexBytes("0000 00") : HexBytes(spec.status + " 01");
  value += HexBytes("00");
  value += spec.priority.empty() ? HexBytes("FFFFFFFF 00") : HexBytes(spec.priority + " 01");
  value += NameField(spec.name);
  value += static_cast<char>(spec.nameKnown >= 0 ? spec.nameKnown : !spec.name.empty());
  value += NameField(spec.secondName);
  value += static_cast<char>(spec.secondNameKnown >= 0 ? spec.secondNameKnown
                                                       : !spec.secondName.empty());
  value += std::string(3, '\0');
  EXPECT_EQ(value.size(), 76u);
  return value;
}

// A state with objects put in directly, and a zeroed handle of a version.
class Describe : public ::testing::Test {
 protected:
  Describe() : state_(kq_NewState()), db_(New_kq_DB()) { db_->formatVersion = 3; }
  ~Describe() override {
    kq_DeleteState(state_);
    gen_free(db_);
  }

  void Put(uint32_t id, const std::string &value, uint16_t type = 0) {
    ApplyStateChangeNew(state_->table, nullptr, type, id, static_cast<uint16_t>(value.size()),
                        value.data(), nullptr, nullptr);
  }

  // Field 2 as text through a buffer of bufferSize bytes filled with '#';
  // "unknown" when isKnown comes back 0 (the buffer must then be untouched).
  std::string Name(uint32_t id, uint32_t bufferSize, char separator = ':') {
    std::vector<char> buffer(bufferSize, '#');
    uint8_t isKnown = 9;
    EXPECT_EQ(kq_GetValueIfIsKnown(db_, state_, 0, id, 2, &isKnown, buffer.data(), bufferSize,
                                   separator),
              1);
    if (isKnown == 0) {
      EXPECT_EQ(std::string(buffer.begin(), buffer.end()), std::string(bufferSize, '#'));
      return "unknown";
    }
    EXPECT_EQ(isKnown, 1);
    const void *nul = memchr(buffer.data(), '\0', bufferSize);
    if (nul == nullptr) return "no NUL";
    return std::string(buffer.data(), static_cast<size_t>(static_cast<const char *>(nul) - buffer.data()));
  }

  kq_State *state_;
  kq_DB *db_;
};

// ---- Types, fields and named values ------------------------------------------------

TEST_F(Describe, OnlyTypeZeroIsATaskWithThreeFields) {
  EXPECT_STREQ(kq_GetObjectTypeName(db_, 0), "Task");
  EXPECT_EQ(kq_GetObjectTypeName(db_, 1), nullptr);

  int32_t *fields = nullptr;
  uint32_t count = 0;
  kq_GetFieldsInObjectType(nullptr, 0, &fields, &count);
  ASSERT_NE(fields, nullptr);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(std::vector<int32_t>(fields, fields + 3), (std::vector<int32_t>{0, 1, 2}));
  gen_free(fields);

  count = 0;
  kq_GetFieldsInObjectType(db_, 0, nullptr, &count);  // the array isn't wanted
  EXPECT_EQ(count, 3u);

  int32_t sentinel = 0;
  fields = &sentinel;
  count = 77;
  kq_GetFieldsInObjectType(db_, 1, &fields, &count);
  EXPECT_EQ(fields, &sentinel);
  EXPECT_EQ(count, 77u);
}

TEST_F(Describe, FieldDescriptionsForFieldsZeroToTwoOnly) {
  struct Expected {
    const char *name;
    int32_t kind, size;
    uint8_t named;
  } expected[] = {{"Status", 1, 2, 1}, {"Priority", 1, 4, 0}, {"Name", 2, 31, 0}};
  for (int32_t field = 0; field < 3; field++) {
    kq_FieldDesc *desc = kq_GetFieldDesc(db_, 5, field);  // the type isn't looked at
    ASSERT_NE(desc, nullptr) << field;
    EXPECT_STREQ(desc->name, expected[field].name);
    EXPECT_EQ(desc->kind, expected[field].kind);
    EXPECT_EQ(desc->size, expected[field].size);
    EXPECT_EQ(desc->hasNamedValues, expected[field].named);
    kq_DeleteFieldDesc(desc);
  }
  EXPECT_EQ(kq_GetFieldDesc(db_, 0, 3), nullptr);
  EXPECT_EQ(kq_GetFieldDesc(db_, 0, -1), nullptr);
  kq_DeleteFieldDesc(nullptr);
}

TEST_F(Describe, TheStatusHasFiveNamedValuesAndRunningIsPrimary) {
  uint16_t *values = nullptr;
  uint32_t count = 0;
  kq_GetNamedValues(db_, 0, 0, &values, &count);
  ASSERT_NE(values, nullptr);
  EXPECT_EQ(count, 5u);
  EXPECT_EQ(std::vector<uint16_t>(values, values + 5), (std::vector<uint16_t>{0, 1, 2, 3, 7}));
  gen_free(values);

  count = 99;
  kq_GetNamedValues(db_, 0, 0, nullptr, &count);  // nothing stored without the array
  EXPECT_EQ(count, 99u);
  uint16_t sentinel = 0;
  values = &sentinel;
  kq_GetNamedValues(db_, 0, 1, &values, &count);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(values, &sentinel);

  const char *names[] = {"READY", "SUSPEND", "PEND", "RUNNING", nullptr, nullptr, nullptr,
                         "EVWAIT", nullptr, nullptr, nullptr};
  for (uint16_t value = 0; value <= 10; value++) {
    const char *name = kq_GetNameOfValue(db_, 0, 0, &value);
    if (names[value] == nullptr) {
      EXPECT_EQ(name, nullptr) << value;
    } else {
      EXPECT_STREQ(name, names[value]) << value;
    }
    EXPECT_EQ(kq_IsPrimaryValue(db_, 0, 0, &value), value == 3 ? 1 : 0) << value;
  }
  const uint16_t running = 3;
  EXPECT_EQ(kq_GetNameOfValue(db_, 0, 1, &running), nullptr);
  EXPECT_EQ(kq_IsPrimaryValue(db_, 0, 1, &running), 0);
}

// ---- Numbers --------------------------------------------------------------------------

TEST_F(Describe, StatusAndPriorityComeBackInHostOrder) {
  Put(0x10, TaskValue({.status = "0102", .priority = "A1B2C3D4"}));
  uint16_t status = 0;
  uint32_t priority = 0;
  uint8_t isKnown = 0;
  EXPECT_EQ(kq_GetValueIfIsKnown(db_, state_, 0, 0x10, 0, &isKnown, &status, 2, ':'), 1);
  EXPECT_EQ(isKnown, 1);
  EXPECT_EQ(status, 0x0102);
  EXPECT_EQ(kq_GetValueIfIsKnown(db_, state_, 0, 0x10, 1, &isKnown, &priority, 4, ':'), 1);
  EXPECT_EQ(isKnown, 1);
  EXPECT_EQ(priority, 0xA1B2C3D4u);
}

TEST_F(Describe, UnknownFieldsSmallBuffersAndMissingObjectsLeaveTheBufferAlone) {
  Put(0x10, TaskValue({.status = "0003"}));  // priority unknown
  Put(0x11, HexBytes("0003 01 00 00000005 01"), 0);  // a value cut short
  Put(0x10, TaskValue({.status = "0003"}), 1);       // same id, another type
  uint8_t buffer[8];
  memset(buffer, 0xEE, sizeof buffer);
  struct Case {
    uint16_t type;
    uint32_t id;
    int32_t field;
    uint32_t size;
    int result;
  } cases[] = {
      {0, 0x10, 0, 1, 1},   // status known, one byte short
      {0, 0x10, 1, 8, 1},   // priority unknown
      {0, 0x10, 2, 8, 1},   // name unknown
      {0, 0x10, -1, 8, 1},  // no such field
      {0, 0x10, 3, 8, 1},
      {0, 0x11, 0, 8, 1},   // not a whole Task value
      {0, 0x12, 0, 8, 0},   // no such object
      {2, 0x10, 0, 8, 0},
  };
  for (const Case &c : cases) {
    uint8_t isKnown = 7;
    EXPECT_EQ(kq_GetValueIfIsKnown(db_, state_, c.type, c.id, c.field, &isKnown, buffer, c.size,
                                   ':'),
              c.result)
        << c.id << " field " << c.field;
    EXPECT_EQ(isKnown, 0) << c.id << " field " << c.field;
  }
  EXPECT_EQ(std::string(reinterpret_cast<char *>(buffer), 8), std::string(8, '\xEE'));
  uint8_t isKnown = 7;
  EXPECT_EQ(kq_GetValueIfIsKnown(db_, nullptr, 0, 0x10, 0, &isKnown, buffer, 8, ':'), 0);
  EXPECT_EQ(isKnown, 0);
}

// ---- The name text ---------------------------------------------------------------------

TEST_F(Describe, VersionThreeReadsSecondNameSeparatorName) {
  Put(1, TaskValue({.name = "worker", .secondName = "cpu1"}));
  Put(2, TaskValue({.name = "worker"}));
  Put(3, TaskValue({.name = "", .nameKnown = 0, .secondName = "cpu1"}));
  Put(4, TaskValue({.name = "worker", .secondName = "", .secondNameKnown = 1}));
  Put(5, TaskValue({.name = "worker", .secondName = "stale", .secondNameKnown = 0}));
  EXPECT_EQ(Name(1, 64), "cpu1:worker");
  EXPECT_EQ(Name(1, 64, '/'), "cpu1/worker");
  EXPECT_EQ(Name(2, 64), "worker");   // no second name: no separator
  EXPECT_EQ(Name(3, 64), "unknown");  // the second name alone doesn't count
  EXPECT_EQ(Name(4, 64), "worker");   // an empty second name: no separator
  EXPECT_EQ(Name(5, 64), "worker");   // a second name not known isn't read
}

TEST_F(Describe, VersionThreeCutsEachPartToTheRoomLeft) {
  Put(1, TaskValue({.name = "worker", .secondName = "cpu_1"}));
  EXPECT_EQ(Name(1, 1), "");              // only the NUL fits, and the field is known
  EXPECT_EQ(Name(1, 2), "c");             // no room for the separator
  EXPECT_EQ(Name(1, 6), "cpu_1");         // room for the second name exactly
  EXPECT_EQ(Name(1, 7), "cpu_1:");        // the separator takes the last room
  EXPECT_EQ(Name(1, 8), "cpu_1:w");
  EXPECT_EQ(Name(1, 13), "cpu_1:worker");
  EXPECT_EQ(Name(1, 200), "cpu_1:worker");
  Put(2, TaskValue({.name = std::string(31, 'n'), .secondName = std::string(31, 's')}));
  EXPECT_EQ(Name(2, 200), std::string(31, 's') + ":" + std::string(31, 'n'));  // no NUL in either field
}

TEST_F(Describe, VersionTwoAndBelowReadTheNameBytesAlone) {
  Put(1, TaskValue({.name = "worker", .secondName = "cpu1"}));
  Put(2, TaskValue({.name = std::string(31, 'n')}));
  for (uint32_t version : {0u, 1u, 2u}) {
    db_->formatVersion = version;
    EXPECT_EQ(Name(1, 64), "worker") << version;
    EXPECT_EQ(Name(1, 4), "wor") << version;
    EXPECT_EQ(Name(1, 1), "") << version;
    EXPECT_EQ(Name(2, 64), std::string(31, 'n')) << version;  // at most 31 bytes
  }
  std::vector<char> buffer(40, '#');
  uint8_t isKnown = 0;
  EXPECT_EQ(kq_GetValueIfIsKnown(nullptr, state_, 0, 1, 2, &isKnown, buffer.data(), 40, ':'), 1);
  EXPECT_STREQ(buffer.data(), "worker");  // a null handle reads as the oldest version
  // The 31 bytes are copied as they stand, the NUL behind them.
  EXPECT_EQ(std::string(buffer.data(), 32), "worker" + std::string(26, '\0'));
  EXPECT_EQ(buffer[32], '#');
}

}  // namespace
