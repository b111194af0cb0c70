// Tests of the grouped kernel's state tracking through a real database: the
// change records each event leaves in .kqs (read back independently), the
// task values in the writing handle's current table, groups by the low ten
// bits of the id, the group status change, refreshes with and without a
// second name, compare-before-write, events shorter than their type needs
// (in heap blocks of exactly their size, so that a read beyond them is
// caught), a little-endian target, and the name text a reader gets from the
// tracked state.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "database_walk.h"
#include "hex_bytes.h"
#include "indgeninit.h"
#include "kq_io.h"
#include "kq_state.h"
#include "temp_dir.h"

using testsupport::HexBytes;
using testsupport::TempDir;
using testsupport::ToHex;

namespace {

// ---- Vocabulary --------------------------------------------------------

std::string NameField(const std::string &name) {
  std::string field = name.substr(0, 31);
  field.resize(31, '\0');
  return field;
}

// A 32-bit word in the given byte order.
std::string Word(uint32_t value, bool big = true) {
  std::string bytes(4, '\0');
  for (int i = 0; i < 4; i++) {
    const int shift = big ? 24 - 8 * i : 8 * i;
    bytes[static_cast<size_t>(i)] = static_cast<char>(value >> shift);
  }
  return bytes;
}

// Splits raw change records (New, Mod, Del) into one hex string each.
std::vector<std::string> SplitRecords(const std::string &raw) {
  std::vector<std::string> records;
  size_t at = 0;
  while (at < raw.size()) {
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(raw.at(at + i)); };
    size_t size = 7;  // Del
    if (byte(0) == 0) size = 9 + (static_cast<size_t>(byte(7)) << 8 | byte(8));
    if (byte(0) == 1) size = 10 + byte(9);
    records.push_back(ToHex(raw.substr(at, size)));
    at += size;
  }
  return records;
}

class Vorhaven : public ::testing::Test {
 protected:
  void SetUp() override { Open(); }
  void TearDown() override { kq_Close(db_); }

  void Open(bool bigEndian = true) {
    kq_Close(db_);
    big_ = bigEndian;
    db_ = kq_OpenForCreation(dir_.file("db").c_str(), 1000, "vorhaven", bigEndian ? 1 : 0,
                             kq_SaveStateChange_Vorhaven);
    ASSERT_NE(db_, nullptr);
  }

  std::string W(uint32_t value) const { return Word(value, big_); }
  // A refresh: id, priority, the name field, and the second name field when
  // one is given (39 or 70 bytes).
  std::string Refresh(uint32_t id, uint32_t priority, const std::string &name) const {
    return W(id) + W(priority) + NameField(name);
  }
  std::string Refresh(uint32_t id, uint32_t priority, const std::string &name,
                      const std::string &secondName) const {
    return Refresh(id, priority, name) + NameField(secondName);
  }

  // Adds one event from a heap block of exactly the payload's size.
  void Add(uint16_t type, uint16_t subtype, const std::string &payload) {
    std::unique_ptr<char[]> exact;
    if (!payload.empty()) {
      exact.reset(new char[payload.size()]);
      memcpy(exact.get(), payload.data(), payload.size());
    }
    ASSERT_EQ(kq_AddEventFromRawBytes(db_, 0, time_++, static_cast<uint32_t>(type) << 16 | subtype,
                                      exact.get(), static_cast<uint32_t>(payload.size())),
              1);
  }
  // The change records that the last event left in .kqs, in hex.
  std::string LastChanges() const {
    const auto walk = testsupport::WalkStream(testsupport::ReadWithSyscalls(dir_.file("db.kqs")));
    EXPECT_TRUE(walk.ok) << walk.error;
    if (walk.blocks.empty()) return "no events";
    return ToHex(walk.blocks.back().events.back().changes);
  }
  std::string Changes(uint16_t type, uint16_t subtype, const std::string &payload) {
    Add(type, subtype, payload);
    return LastChanges();
  }
  // The same, sorted record by record, for records made in table order.
  std::vector<std::string> SortedChanges(uint16_t type, uint16_t subtype,
                                         const std::string &payload) {
    Add(type, subtype, payload);
    const auto walk = testsupport::WalkStream(testsupport::ReadWithSyscalls(dir_.file("db.kqs")));
    auto records = SplitRecords(walk.blocks.back().events.back().changes);
    std::sort(records.begin(), records.end());
    return records;
  }

  // The value of task id in hex, or "absent".
  std::string Value(uint32_t id) const {
    kq_StateObject key{0, id, 0, nullptr};
    void *stored = nullptr;
    if (!HT_FindItem(db_->currentState->table, &key, &stored, nullptr)) return "absent";
    auto *object = static_cast<kq_StateObject *>(stored);
    return ToHex(std::string(reinterpret_cast<const char *>(object->value), object->length));
  }
  int TaskCount() const { return HT_GetSize(db_->currentState->table); }

  TempDir dir_;
  kq_DB *db_ = nullptr;
  bool big_ = true;
  uint32_t time_ = 0;
};

// A Mod record of a task, in hex: type 0, id, offset, count, bytes.
std::string Mod(uint32_t id, uint16_t offset, const std::string &bytes) {
  char head[40];
  snprintf(head, sizeof head, "01 0000 %08X %04X %02X", id, offset,
           static_cast<unsigned>(bytes.size()));
  return ToHex(HexBytes(head) + bytes);
}
std::string ModHex(uint32_t id, uint16_t offset, const std::string &hexBytes) {
  return Mod(id, offset, HexBytes(hexBytes));
}
// A name as a Mod writes it: the string and its NUL.
std::string Str(const std::string &text) { return text + std::string(1, '\0'); }

// A 76-byte Task value in hex: status and priority as hex ("" unknown),
// names ("" unknown).
std::string TaskValue(const std::string &status, const std::string &priority,
                      const std::string &name = "", const std::string &secondName = "") {
  std::string value = status.empty() ? HexBytes("0000 00") : HexBytes(status + " 01");
  value += HexBytes("00");
  value += priority.empty() ? HexBytes("FFFFFFFF 00") : HexBytes(priority + " 01");
  value += NameField(name) + static_cast<char>(!name.empty());
  value += NameField(secondName) + static_cast<char>(!secondName.empty());
  value += std::string(3, '\0');
  return ToHex(value);
}
// A New record of a task with its value given in hex.
std::string NewTask(uint32_t id, const std::string &valueHex) {
  char head[32];
  snprintf(head, sizeof head, "00 0000 %08X 004C", id);
  return ToHex(HexBytes(head) + HexBytes(valueHex));
}
std::string Join(std::initializer_list<std::string> parts) {
  std::string joined;
  for (const std::string &part : parts) joined += (joined.empty() ? "" : " ") + part;
  return joined;
}
std::vector<std::string> Sorted(std::vector<std::string> records) {
  std::sort(records.begin(), records.end());
  return records;
}

// ---- Task changes and groups ----------------------------------------------------

TEST_F(Vorhaven, ATaskChangeCreatesAnUnknownTaskRunningAndReadiesItsGroup) {
  // A new task is stored whole, byte for byte.
  EXPECT_EQ(Changes(3, 0, W(0x401)),
            ToHex(HexBytes("00 0000 00000401 004C  0003 01 00 FFFFFFFF 00") + std::string(67, '\0')));
  Add(3, 0, W(0x402));
  // 0x801 shares group 1 with 0x401, not with 0x402.
  EXPECT_EQ(Changes(1, 0, W(0x801)),
            Join({NewTask(0x801, TaskValue("0003", "")), ModHex(0x401, 0, "0000")}));
  EXPECT_EQ(Value(0x401), TaskValue("0000", ""));
  EXPECT_EQ(Value(0x402), TaskValue("0003", ""));
  EXPECT_EQ(Value(0x801), TaskValue("0003", ""));
}

TEST_F(Vorhaven, TasksOfDifferentGroupsRunSideBySide) {
  EXPECT_EQ(Changes(1, 0, W(0x401)), NewTask(0x401, TaskValue("0003", "")));
  EXPECT_EQ(Changes(1, 0, W(0x402)), NewTask(0x402, TaskValue("0003", "")));
  EXPECT_EQ(Value(0x401), TaskValue("0003", ""));
  // Switching to the running task again: to 0 and back to 3, nothing else.
  EXPECT_EQ(Changes(1, 0, W(0x401)),
            Join({ModHex(0x401, 0, "0000"), ModHex(0x401, 0, "0003")}));
  EXPECT_EQ(Value(0x402), TaskValue("0003", ""));
}

TEST_F(Vorhaven, ATaskChangeMakesAnUnknownStatusKnown) {
  EXPECT_EQ(Changes(2, 0, W(0x5)), NewTask(0x5, TaskValue("", "")));
  EXPECT_EQ(Changes(1, 0, W(0x5)), Join({ModHex(0x5, 0, "0003"), ModHex(0x5, 2, "01")}));
  EXPECT_EQ(Value(0x5), TaskValue("0003", ""));
}

// ---- Other event types -----------------------------------------------------------

TEST_F(Vorhaven, AKernelCallCreatesARunningTaskAndTouchesNoOther) {
  Add(1, 0, W(0x401));
  EXPECT_EQ(Changes(3, 12, W(0x801)), NewTask(0x801, TaskValue("0003", "")));
  EXPECT_EQ(Value(0x401), TaskValue("0003", ""));  // same group, still running
  Add(5, 1, W(0x801));
  EXPECT_EQ(Changes(3, 12, W(0x801)), "");  // an existing task isn't changed
  EXPECT_EQ(Value(0x801), TaskValue("0001", ""));
}

TEST_F(Vorhaven, EveryOtherTypeEnsuresItsTaskWithoutAStatus) {
  uint32_t id = 0x100;
  for (uint16_t type : {2, 4, 7, 0, 8, 9, 10, 0xFFFF}) {
    EXPECT_EQ(Changes(type, 3, W(id)), NewTask(id, TaskValue("", ""))) << type;
    EXPECT_EQ(Changes(type, 3, W(id)), "") << type;
    id++;
  }
}

// ---- Status changes ------------------------------------------------------------------

TEST_F(Vorhaven, AStatusChangeRecordsOnlyWhatDiffers) {
  // Four bytes: no priority, which stays unknown.
  EXPECT_EQ(Changes(5, 2, W(0x20)), NewTask(0x20, TaskValue("0002", "")));
  EXPECT_EQ(Changes(5, 2, W(0x20) + W(9)),
            Join({ModHex(0x20, 4, "00000009"), ModHex(0x20, 8, "01")}));
  EXPECT_EQ(Changes(5, 2, W(0x20) + W(9)), "");
  EXPECT_EQ(Changes(5, 7, W(0x20)), ModHex(0x20, 0, "0007"));  // the priority stays
  EXPECT_EQ(Value(0x20), TaskValue("0007", "00000009"));
  // A status no table names is stored as it comes.
  EXPECT_EQ(Changes(5, 500, W(0x21) + W(4)), NewTask(0x21, TaskValue("01F4", "00000004")));
  // An unknown status that already reads 0: only the flag.
  Add(2, 0, W(0x22));
  EXPECT_EQ(Changes(5, 0, W(0x22)), ModHex(0x22, 2, "01"));
}

TEST_F(Vorhaven, TheGroupStatusChangeSetsTenOnItsGroupAndCreatesNothing) {
  Add(3, 0, W(0x400));
  Add(5, 1, W(0x800));
  Add(3, 0, W(0x401));
  Add(2, 0, W(0x001));
  const auto groupZero = Sorted({ModHex(0x400, 0, "000A"), ModHex(0x800, 0, "000A")});
  // Length 0: group 0.
  EXPECT_EQ(SortedChanges(5, 8, ""), groupZero);
  EXPECT_EQ(Value(0x400), TaskValue("000A", ""));
  EXPECT_EQ(Value(0x800), TaskValue("000A", ""));
  EXPECT_EQ(Value(0x401), TaskValue("0003", ""));
  // Set again without comparing.
  EXPECT_EQ(SortedChanges(5, 8, ""), groupZero);
  // Fewer than four bytes name no group either.
  EXPECT_EQ(SortedChanges(5, 8, HexBytes("04 01 00")), groupZero);
  // With an id, its group: 0x7401 is in group 1.  The flag isn't touched.
  EXPECT_EQ(SortedChanges(5, 8, W(0x7401)),
            Sorted({ModHex(0x401, 0, "000A"), ModHex(0x001, 0, "000A")}));
  EXPECT_EQ(Value(0x001), ToHex(HexBytes("000A 00 00 FFFFFFFF 00") + std::string(67, '\0')));
  // A group without tasks: nothing, and the task isn't created.
  EXPECT_EQ(Changes(5, 8, W(0x123)), "");
  EXPECT_EQ(Value(0x123), "absent");
  EXPECT_EQ(Value(0x7401), "absent");
}

// ---- Refreshes -------------------------------------------------------------------------

TEST_F(Vorhaven, ARefreshCreatesATaskWithAllItsFactsAndARepeatRecordsNothing) {
  EXPECT_EQ(Changes(6, 1, Refresh(0x30, 5, "main")),
            NewTask(0x30, TaskValue("0001", "00000005", "main")));
  EXPECT_EQ(Changes(6, 1, Refresh(0x30, 5, "main")), "");
  EXPECT_EQ(Changes(6, 2, Refresh(0x31, 6, "io", "cpu1")),
            NewTask(0x31, TaskValue("0002", "00000006", "io", "cpu1")));
  EXPECT_EQ(Changes(6, 2, Refresh(0x31, 6, "io", "cpu1")), "");
  EXPECT_EQ(Changes(6, 2, Refresh(0x31, 6, "io")), "");
}

TEST_F(Vorhaven, AChangedNameInALongRefreshRewritesBothNames) {
  Add(6, 2, Refresh(0x31, 6, "io", "cpu1"));
  EXPECT_EQ(Changes(6, 2, Refresh(0x31, 6, "disk", "cpu1")),
            Join({Mod(0x31, 9, Str("disk")), Mod(0x31, 41, Str("cpu1"))}));
  EXPECT_EQ(Changes(6, 2, Refresh(0x31, 6, "disk", "cpu2")), Mod(0x31, 41, Str("cpu2")));
  EXPECT_EQ(Value(0x31), TaskValue("0002", "00000006", "disk", "cpu2"));
}

TEST_F(Vorhaven, AShortRefreshLeavesTheSecondNameAlone) {
  Add(6, 2, Refresh(0x31, 6, "disk", "cpu2"));
  EXPECT_EQ(Changes(6, 2, Refresh(0x31, 6, "net")), Mod(0x31, 9, Str("net")));
  EXPECT_EQ(Value(0x31), TaskValue("0002", "00000006", "net", "cpu2"));
  // A task first refreshed without one has no second name.
  Add(6, 2, Refresh(0x32, 6, "log"));
  EXPECT_EQ(Value(0x32), TaskValue("0002", "00000006", "log"));
}

TEST_F(Vorhaven, ARefreshWithTheBeginningOfTheStoredNameKeepsIt) {
  Add(6, 0, Refresh(0x33, 1, "abcd", "wxyz"));
  EXPECT_EQ(Changes(6, 0, Refresh(0x33, 1, "ab", "wx")), "");
  EXPECT_EQ(Value(0x33), TaskValue("0000", "00000001", "abcd", "wxyz"));
  // A longer name differs at the stored terminator.
  EXPECT_EQ(Changes(6, 0, Refresh(0x33, 1, "abcde")), Mod(0x33, 9, Str("abcde")));
}

TEST_F(Vorhaven, ARefreshFillsInWhatAnInterruptLeftUnknown) {
  Add(2, 0, W(0x34));
  EXPECT_EQ(Changes(6, 4, Refresh(0x34, 7, "late", "x")),
            Join({ModHex(0x34, 0, "0004"), ModHex(0x34, 2, "01"), ModHex(0x34, 4, "00000007"),
                  ModHex(0x34, 8, "01"), Mod(0x34, 9, Str("late")), ModHex(0x34, 40, "01"),
                  Mod(0x34, 41, Str("x")), ModHex(0x34, 72, "01")}));
  EXPECT_EQ(Value(0x34), TaskValue("0004", "00000007", "late", "x"));
}

TEST_F(Vorhaven, NamesThatFillTheirFieldStayWithinIt) {
  const std::string a(31, 'a'), b(31, 'b'), c(31, 'c'), d(31, 'd');
  EXPECT_EQ(Changes(6, 1, Refresh(0x35, 1, a, b)), NewTask(0x35, TaskValue("0001", "00000001", a, b)));
  EXPECT_EQ(Changes(6, 1, Refresh(0x35, 1, c, d)), Join({Mod(0x35, 9, c), Mod(0x35, 41, d)}));
  EXPECT_EQ(Value(0x35), TaskValue("0001", "00000001", c, d));  // the flags behind stay 1
}

// ---- Events shorter than their type needs -----------------------------------------------

TEST_F(Vorhaven, EventsTooShortForAnIdRecordNothing) {
  for (uint16_t type : {0, 1, 2, 3, 4, 5, 6, 7, 9}) {
    for (size_t length = 0; length < 4; length++) {
      EXPECT_EQ(Changes(type, 1, std::string(length, '\x11')), "") << type << "/" << length;
    }
  }
  EXPECT_EQ(TaskCount(), 0);
}

TEST_F(Vorhaven, ShortStatusChangesAndRefreshesLeaveOutWhatIsMissing) {
  // Status change of 5 to 7 bytes: no priority.
  for (uint32_t length = 5; length < 8; length++) {
    EXPECT_EQ(Changes(5, 1, W(0x40 + length) + std::string(length - 4, '\x7F')),
              NewTask(0x40 + length, TaskValue("0001", "")))
        << length;
  }
  // Refresh of 4 to 38 bytes: no name; from 8 bytes on a priority.
  EXPECT_EQ(Changes(6, 2, W(0x50)), NewTask(0x50, TaskValue("0002", "")));
  EXPECT_EQ(Changes(6, 2, W(0x51) + W(3)), NewTask(0x51, TaskValue("0002", "00000003")));
  EXPECT_EQ(Changes(6, 2, Refresh(0x52, 3, "nameless").substr(0, 38)),
            NewTask(0x52, TaskValue("0002", "00000003")));
  // On a known task a cut refresh compares status and priority only.
  Add(6, 2, Refresh(0x53, 3, "kept", "two"));
  EXPECT_EQ(Changes(6, 1, Refresh(0x53, 4, "other", "three").substr(0, 38)),
            Join({ModHex(0x53, 0, "0001"), ModHex(0x53, 4, "00000004")}));
  // Only exactly 70 bytes carry a second name.
  for (size_t length : {40u, 69u, 71u}) {
    std::string payload = Refresh(0x53, 4, "kept", "changed") + std::string(1, '\0');
    payload.resize(length, '\0');
    EXPECT_EQ(Changes(6, 1, payload), "") << length;
  }
  EXPECT_EQ(Value(0x53), TaskValue("0001", "00000004", "kept", "two"));
}

// ---- Byte order -----------------------------------------------------------------------

TEST_F(Vorhaven, ALittleEndianTargetGivesTheSameBigEndianValues) {
  Open(false);
  EXPECT_EQ(W(0x401), HexBytes("01 04 00 00"));
  EXPECT_EQ(Changes(6, 3, Refresh(0x401, 0x01020304, "le", "two")),
            NewTask(0x401, TaskValue("0003", "01020304", "le", "two")));
  EXPECT_EQ(Changes(5, 3, W(0x401) + W(0x0A0B0C0D)), ModHex(0x401, 4, "0A0B0C0D"));
  EXPECT_EQ(Changes(1, 0, W(0x801)),
            Join({NewTask(0x801, TaskValue("0003", "")), ModHex(0x401, 0, "0000")}));
}

// ---- What a reader gets from the tracked state ------------------------------------------

// Adds a small history to a database written with this tracker.
void AddSampleHistory(kq_DB *db, bool big) {
  const auto add = [&](uint32_t time, uint16_t type, uint16_t subtype, const std::string &payload) {
    std::vector<char> bytes(payload.begin(), payload.end());
    ASSERT_EQ(kq_AddEventFromRawBytes(db, 0, time, static_cast<uint32_t>(type) << 16 | subtype,
                                      bytes.empty() ? nullptr : bytes.data(),
                                      static_cast<uint32_t>(bytes.size())),
              1);
  };
  const auto refresh = [&](uint32_t id, uint32_t priority, const std::string &name,
                           const std::string &second) {
    std::string payload = Word(id, big) + Word(priority, big) + NameField(name);
    if (!second.empty()) payload += NameField(second);
    return payload;
  };
  add(1, 6, 0, refresh(0x401, 9, "idle", "core0"));
  add(2, 6, 0, refresh(0x402, 5, "net", ""));
  add(3, 1, 0, Word(0x401, big));
  add(4, 6, 3, refresh(0x801, 2, "shell", "core1"));
  add(5, 1, 0, Word(0x801, big));
}

// The facts a reader must find in the state after the sample history, with
// `reader` a handle of format version 3 or above.
void ExpectSampleFinalState(kq_DB *reader, kq_State *state) {
  struct Expected {
    uint32_t id;
    uint16_t status;
    uint32_t priority;
    const char *name;
  } tasks[] = {{0x401, 0, 9, "core0|idle"}, {0x402, 0, 5, "net"}, {0x801, 3, 2, "core1|shell"}};
  for (const Expected &task : tasks) {
    uint8_t isKnown = 0;
    uint16_t status = 0xFFFF;
    uint32_t priority = 0;
    char name[64];
    EXPECT_EQ(kq_GetValueIfIsKnown(reader, state, 0, task.id, 0, &isKnown, &status, 2, '|'), 1);
    EXPECT_EQ(isKnown, 1);
    EXPECT_EQ(status, task.status) << task.id;
    EXPECT_EQ(kq_GetValueIfIsKnown(reader, state, 0, task.id, 1, &isKnown, &priority, 4, '|'), 1);
    EXPECT_EQ(priority, task.priority) << task.id;
    EXPECT_EQ(kq_GetValueIfIsKnown(reader, state, 0, task.id, 2, &isKnown, name, sizeof name, '|'),
              1);
    EXPECT_EQ(isKnown, 1);
    EXPECT_STREQ(name, task.name);
  }
}

TEST_F(Vorhaven, AVersionThreeReaderGetsSecondNameSeparatorNameFromTheTrackedState) {
  for (bool big : {true, false}) {
    Open(big);
    AddSampleHistory(db_, big);
    kq_DB *reader = New_kq_DB();
    reader->formatVersion = 3;
    ExpectSampleFinalState(reader, db_->currentState);
    // A version 2 reader gets the name alone.
    reader->formatVersion = 2;
    char name[64];
    uint8_t isKnown = 0;
    EXPECT_EQ(kq_GetValueIfIsKnown(reader, db_->currentState, 0, 0x801, 2, &isKnown, name,
                                   sizeof name, '|'),
              1);
    EXPECT_STREQ(name, "shell");
    gen_free(reader);
  }
}

TEST_F(Vorhaven, TheReadSideFindsTheTrackedStateInTheFiles) {
  for (bool big : {true, false}) {
    Open(big);
    AddSampleHistory(db_, big);
    kq_Close(db_);
    db_ = nullptr;
    kq_DB *reader = kq_OpenForUse(dir_.file("db").c_str());
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->formatVersion, 3u);
    uint64_t start = 0, end = 0;
    kq_GetTimeExtent(reader, &start, &end);
    kq_State *state = nullptr;
    kq_GetStateAndIterFromTime(reader, end, nullptr, &state);
    ASSERT_NE(state, nullptr);
    ExpectSampleFinalState(reader, state);
    kq_DeleteState(state);
    kq_Close(reader);
    Open(big);
  }
}

}  // namespace
