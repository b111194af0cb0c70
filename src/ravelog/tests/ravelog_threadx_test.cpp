// Tests of ThreadX state tracking through a real database: the change
// records each event leaves behind it in .kqs (read back independently),
// the thread values in the current table, the status remapping, the sweep
// of running threads, records only where a value differs, repeated thread
// records and names at the 31-byte limit, unknown types, events too short
// for their type, and logs of either byte order.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "database_walk.h"
#include "gen_capture.h"
#include "hex_bytes.h"
#include "indgeninit.h"
#include "kq_byteorder.h"
#include "kq_state.h"
#include "kq_tracker.h"
#include "ravelog.h"
#include "temp_dir.h"

using testsupport::HexBytes;
using testsupport::TempDir;
using testsupport::ToHex;

namespace {

// ---- Vocabulary --------------------------------------------------------

class ThreadX : public ::testing::Test {
 protected:
  void TearDown() override { kq_Close(db_); }

  void Open(bool bigEndian = true) {
    big_ = bigEndian;
    db_ = kq_OpenForCreation(dir_.file("db").c_str(), 1000, "ThreadX", bigEndian ? 1 : 0,
                             ThreadX_SaveStateChange);
    ASSERT_NE(db_, nullptr);
  }

  // A 32-bit word in the log's byte order.
  std::string Word(uint32_t value) const {
    std::string bytes(4, '\0');
    for (int i = 0; i < 4; i++) {
      const int shift = big_ ? 24 - 8 * i : 8 * i;
      bytes[static_cast<size_t>(i)] = static_cast<char>(value >> shift);
    }
    return bytes;
  }
  // A thread record as the decoders make it: ID, priority, 31 name bytes.
  std::string Record(uint32_t id, uint32_t priority, const std::string &name) const {
    std::string padded = name;
    padded.resize(31, '\0');
    return Word(id) + Word(priority) + padded;
  }

  // Adds one record (the payload in a block of exactly its size, so a read
  // beyond it is caught) and returns the tracker's result.
  int Add(uint16_t type, uint16_t subtype, const std::string &payload) {
    std::vector<char> exact(payload.begin(), payload.end());
    return kq_AddEventFromRawBytes(db_, 0, time_++, static_cast<uint32_t>(type) << 16 | subtype,
                                   exact.empty() ? nullptr : exact.data(),
                                   static_cast<uint32_t>(exact.size()));
  }
  // The change records that the last event added left in .kqs, in hex.
  std::string LastChanges() const {
    const auto walk = testsupport::WalkStream(testsupport::ReadWithSyscalls(dir_.file("db.kqs")));
    EXPECT_TRUE(walk.ok) << walk.error;
    if (walk.blocks.empty()) return "no events";
    return ToHex(walk.blocks.back().events.back().changes);
  }
  // Adds one record and returns the changes it recorded.
  std::string Changes(uint16_t type, uint16_t subtype, const std::string &payload) {
    EXPECT_EQ(Add(type, subtype, payload), 1);
    return LastChanges();
  }

  // The value of thread id in hex, or "absent".
  std::string Value(uint32_t id) const {
    kq_StateObject key{0, id, 0, nullptr};
    void *stored = nullptr;
    if (!HT_FindItem(db_->currentState->table, &key, &stored, nullptr)) return "absent";
    auto *object = static_cast<kq_StateObject *>(stored);
    return ToHex(std::string(reinterpret_cast<const char *>(object->value), object->length));
  }

  TempDir dir_;
  kq_DB *db_ = nullptr;
  bool big_ = true;
  uint32_t time_ = 0;
};

// A Mod record of a thread, in hex: type 0, id, offset, count, bytes.
std::string Mod(uint32_t id, uint16_t offset, const std::string &hexBytes) {
  const std::string bytes = HexBytes(hexBytes);
  char head[32];
  snprintf(head, sizeof head, "01 0000 %08X %04X %02X", id, offset, static_cast<unsigned>(bytes.size()));
  return ToHex(HexBytes(head) + bytes);
}
// A New record of a thread with its 76-byte value given in hex.
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
// 76-byte values: status, priority (8 hex digits or "" for unknown), name
// (known when not empty unless nameKnown says otherwise).
std::string TaskValue(const char *status, const std::string &priority, const std::string &name,
                      int nameKnown = -1) {
  if (nameKnown < 0) nameKnown = name.empty() ? 0 : 1;
  std::string value = HexBytes(status) + HexBytes("01 00");
  value += priority.empty() ? HexBytes("FFFFFFFF 00") : HexBytes(priority) + HexBytes("01");
  std::string field = name;
  field.resize(31, '\0');
  value += field + std::string(1, static_cast<char>(nameKnown)) + std::string(35, '\0');
  return ToHex(value);
}

// ---- Context switches -----------------------------------------------------------

TEST_F(ThreadX, TwoThreadsFromTheListThenTwoSwitches) {
  Open();
  EXPECT_EQ(Changes(6, 10, Record(0x1111, 5, "alpha")),
            ToHex(HexBytes("00 0000 00001111 004C  000A 01 00 00000005 01 \"alpha\"") +
                  std::string(26, '\0') + HexBytes("01") + std::string(35, '\0')));
  EXPECT_EQ(Changes(6, 10, Record(0x2222, 6, "beta")),
            NewTask(0x2222, TaskValue("000A", "00000006", "beta")));
  EXPECT_EQ(Changes(1, 0, Word(0x1111)), "01 00 00 00 00 11 11 00 00 02 00 03");
  EXPECT_EQ(Changes(1, 0, Word(0x2222)),
            "01 00 00 00 00 11 11 00 00 02 00 00 01 00 00 00 00 22 22 00 00 02 00 03");
  EXPECT_EQ(Value(0x1111), TaskValue("0000", "00000005", "alpha"));
  EXPECT_EQ(Value(0x2222), TaskValue("0003", "00000006", "beta"));
  // Switching to the running thread again: to 0 and back to 3.
  EXPECT_EQ(Changes(1, 0, Word(0x2222)), Join({Mod(0x2222, 0, "0000"), Mod(0x2222, 0, "0003")}));
}

TEST_F(ThreadX, AThreadFirstMetInASwitchIsCreatedRunningAndTheOthersGoReady) {
  Open();
  Add(3, 0, Word(0xA));
  Add(3, 0, Word(0xB));  // two threads at 3 between switches
  // The sweep goes in table order, by bucket (hash % 29): B's hash
  // 0x0B000000 lies in bucket 17, A's 0x0A000000 in bucket 26.
  EXPECT_EQ(Changes(1, 0, Word(0xC)),
            Join({NewTask(0xC, TaskValue("0003", "", "")), Mod(0xB, 0, "0000"), Mod(0xA, 0, "0000")}));
  EXPECT_EQ(Value(0xC), TaskValue("0003", "", ""));
}

// The ids of the running threads of db's current table, in walk order:
// what a sweep must send to 0, in the order it must.
std::vector<uint32_t> RunningInWalkOrder(kq_DB *db) {
  std::vector<uint32_t> ids;
  HT_PT table = db->currentState->table;
  for (HTIter_PT it = HT_Begin(table); it != HT_End(table); HTIter_Inc(&it)) {
    void *key = nullptr;
    HTIter_GetValue(it, &key, nullptr);
    const auto *object = static_cast<const kq_StateObject *>(key);
    if (object->value[0] == 0 && object->value[1] == 3) ids.push_back(object->id);
  }
  return ids;
}

TEST_F(ThreadX, TheSweepFollowsTheWalkOrderAsTheTableGrows) {
  Open();
  // Rounds of threads, running sets and switches; the table grows from 29
  // buckets to 59 and 127 on the way, which reorders its walk.
  uint32_t threads = 0;
  for (int round = 0; round < 6; round++) {
    for (int k = 0; k < 25; k++, threads++) Add(6, 10, Record(0x100 + threads * 0x1C0, 1, "t"));
    for (uint32_t k = round; k < threads; k += 7 + round) Add(3, 1, Word(0x100 + k * 0x1C0));
    Add(5, 10, Word(0x100 + (threads / 2) * 0x1C0) + Word(1));  // running by status
    const uint32_t target = 0x100 + (round * 11 % threads) * 0x1C0;
    const std::vector<uint32_t> sweep = RunningInWalkOrder(db_);
    ASSERT_GE(sweep.size(), 3u) << round;
    std::string expected;
    for (uint32_t id : sweep) expected += (expected.empty() ? "" : " ") + Mod(id, 0, "0000");
    expected += " " + Mod(target, 0, "0003");
    EXPECT_EQ(Changes(1, 0, Word(target)), expected) << "round " << round;
    EXPECT_EQ(RunningInWalkOrder(db_), std::vector<uint32_t>{target});
    // A second switch finds exactly the one running thread.
    const uint32_t next = 0x100 + ((round * 11 + 3) % threads) * 0x1C0;
    EXPECT_EQ(Changes(1, 0, Word(next)), Join({Mod(target, 0, "0000"), Mod(next, 0, "0003")}));
  }
  EXPECT_EQ(db_->currentState->table->numBuckets, 127u);  // 29, 59, 127
}

TEST_F(ThreadX, RunningThreadsOfOneDatabaseAreNotThoseOfAnother) {
  Open();
  TempDir otherDir;
  kq_DB *other = kq_OpenForCreation(otherDir.file("db").c_str(), 1000, "ThreadX", 1,
                                    ThreadX_SaveStateChange);
  ASSERT_NE(other, nullptr);
  auto addTo = [&](kq_DB *db, uint16_t type, uint16_t subtype, const std::string &payload) {
    return kq_AddEventFromRawBytes(db, 0, time_++, static_cast<uint32_t>(type) << 16 | subtype,
                                   payload.data(), static_cast<uint32_t>(payload.size()));
  };
  // The same threads in both, running in the first only.
  for (kq_DB *db : {db_, other}) {
    ASSERT_EQ(addTo(db, 6, 0, Record(0xA, 1, "a")), 1);
    ASSERT_EQ(addTo(db, 6, 0, Record(0xB, 1, "b")), 1);
  }
  ASSERT_EQ(addTo(db_, 1, 0, Word(0xA)), 1);
  ASSERT_EQ(addTo(other, 1, 0, Word(0xB)), 1);  // A stays ready here
  ASSERT_EQ(addTo(db_, 3, 0, Word(0xB)), 1);    // two run in the first
  ASSERT_EQ(addTo(other, 1, 0, Word(0xA)), 1);
  const auto walk = testsupport::WalkStream(testsupport::ReadWithSyscalls(otherDir.file("db.kqs")));
  ASSERT_TRUE(walk.ok) << walk.error;
  EXPECT_EQ(ToHex(walk.blocks.back().events.back().changes),
            Join({Mod(0xB, 0, "0000"), Mod(0xA, 0, "0003")}));
  EXPECT_EQ(Changes(1, 0, Word(0xC)),
            Join({NewTask(0xC, TaskValue("0003", "", "")), Mod(0xB, 0, "0000"), Mod(0xA, 0, "0000")}));
  kq_Close(other);

  // A database opened after one was closed starts with nothing known, even
  // where it reuses the closed one's memory.
  kq_Close(db_);
  db_ = nullptr;
  for (int i = 0; i < 3; i++) {
    Open();
    Add(3, 0, Word(0xD));  // created running
    EXPECT_EQ(Changes(1, 0, Word(0xE)),
              Join({NewTask(0xE, TaskValue("0003", "", "")), Mod(0xD, 0, "0000")}));
    kq_Close(db_);
    db_ = nullptr;
  }
}

TEST_F(ThreadX, CalledOnItsOwnWithTablesChangedBetweenCallsItSweepsWhatIsThere) {
  kq_State *current = kq_NewState();
  kq_State *used = kq_NewState();
  uint8_t *value = kq_GetSpaceForTask(kq_ConvertToBigEndian2(3));
  kq_SaveStateChangeNew(nullptr, current->table, used->table, 0, 0x51, 76, value);
  gen_free(value);
  const std::string word("\x52\0\0\0", 4);  // without a database: little-endian
  kq_Event event{};
  event.type = 1;
  event.data = reinterpret_cast<uint8_t *>(const_cast<char *>(word.data()));
  event.length = 4;
  ASSERT_EQ(ThreadX_SaveStateChange(nullptr, current->table, used->table, &event), 1);
  auto status = [&](uint32_t id) {
    kq_StateObject key{0, id, 0, nullptr};
    void *stored = nullptr;
    if (!HT_FindItem(current->table, &key, &stored, nullptr)) return -1;
    return static_cast<int>(kq_ConvertToHostOrder2(1, static_cast<kq_StateObject *>(stored)->value));
  };
  EXPECT_EQ(status(0x51), 0);
  EXPECT_EQ(status(0x52), 3);
  // Running again by a change the tracker didn't make: the next switch
  // still finds it.
  const uint16_t running = kq_ConvertToBigEndian2(3);
  kq_SaveStateChangeMod(nullptr, current->table, 0, 0x51, 0, 2, &running);
  ASSERT_EQ(ThreadX_SaveStateChange(nullptr, current->table, used->table, &event), 1);
  EXPECT_EQ(status(0x51), 0);
  EXPECT_EQ(status(0x52), 3);
  kq_DeleteState(current);
  kq_DeleteState(used);
}

// ---- Service calls and status changes --------------------------------------------------

TEST_F(ThreadX, AServiceCallMarksItsThreadRunningAndNoOther) {
  Open();
  EXPECT_EQ(Changes(3, 22, Word(0xA)), NewTask(0xA, TaskValue("0003", "", "")));
  EXPECT_EQ(Changes(3, 5, Word(0xB)), NewTask(0xB, TaskValue("0003", "", "")));
  EXPECT_EQ(Value(0xA), TaskValue("0003", "", ""));
  EXPECT_EQ(Changes(3, 5, Word(0xB)), "");  // already running: nothing
  Add(1, 0, Word(0xA));
  EXPECT_EQ(Changes(3, 5, Word(0xB)), Mod(0xB, 0, "0003"));
}

TEST_F(ThreadX, StatusChangesAreRemappedAndRecordedOnlyWhereTheyDiffer) {
  Open();
  EXPECT_EQ(Changes(5, 3, Word(0x7) + Word(12)), NewTask(0x7, TaskValue("000B", "0000000C", "")));
  EXPECT_EQ(Changes(5, 3, Word(0x7) + Word(12)), "");
  EXPECT_EQ(Changes(5, 11, Word(0x7) + Word(12)), "");
  Add(3, 0, Word(0x8));
  EXPECT_EQ(Changes(5, 10, Word(0x7) + Word(13)),
            Join({Mod(0x7, 0, "0003"), Mod(0x7, 4, "0000000D")}));
  EXPECT_EQ(Value(0x8), TaskValue("0003", "", ""));  // no sweep
  EXPECT_EQ(Changes(5, 4, Word(0x8) + Word(2)),
            Join({Mod(0x8, 0, "0004"), Mod(0x8, 4, "00000002"), Mod(0x8, 8, "01")}));
  EXPECT_EQ(Changes(5, 0, Word(0x8) + Word(2)), Mod(0x8, 0, "0000"));
}

// ---- Thread records ---------------------------------------------------------------

TEST_F(ThreadX, ARepeatedThreadRecordStoresOnlyWhatChanged) {
  Open();
  Add(6, 10, Record(0x5, 8, "worker"));
  EXPECT_EQ(Changes(6, 10, Record(0x5, 8, "worker")), "");
  EXPECT_EQ(Changes(6, 10, Record(0x5, 9, "work")), Mod(0x5, 4, "00000009"));
  EXPECT_EQ(Changes(6, 10, Record(0x5, 9, "worker_long")),
            Mod(0x5, 9, ToHex("worker_long") + " 00"));
  const std::string full(31, 'x');
  EXPECT_EQ(Changes(6, 2, Record(0x5, 9, full + "yyy")),
            Join({Mod(0x5, 0, "0002"), Mod(0x5, 9, ToHex(full))}));
  // The name fills its field; the flag behind it stays.
  EXPECT_EQ(Value(0x5), TaskValue("0002", "00000009", full));
}

TEST_F(ThreadX, AThreadRecordFillsInWhatASwitchLeftUnknown) {
  Open();
  Add(1, 0, Word(0x9));
  EXPECT_EQ(Changes(6, 10, Record(0x9, 4, "late")),
            Join({Mod(0x9, 0, "000A"), Mod(0x9, 4, "00000004"), Mod(0x9, 8, "01"),
                  Mod(0x9, 9, ToHex("late") + " 00"), Mod(0x9, 40, "01")}));
}

// ---- Types without threads, and unknown types ----------------------------------------

TEST_F(ThreadX, InterruptsUserEventsAndTimersMakeNoThread) {
  Open();
  EXPECT_EQ(Changes(2, 1, Word(0x44)), "");
  EXPECT_EQ(Changes(4, 0, Word(0x44)), "");
  EXPECT_EQ(Changes(7, 0, ""), "");
  EXPECT_EQ(Value(0x44), "absent");
}

TEST_F(ThreadX, AnUnknownTypeIsRefusedWithAWarning) {
  for (uint16_t type : {0, 8, 0xABCD}) {
    kq_Close(db_);  // a refusal ends what a database can take: a new one each
    db_ = nullptr;
    Open();
    testsupport::ScopedProgName name("ravelog");
    int result = -1;
    auto captured = testsupport::RunCapturing([&] { result = Add(type, 0, Word(1)); });
    EXPECT_EQ(result, 0);
    char expected[128];
    snprintf(expected, sizeof expected,
             "ravelog: warning: libkqv: [UpdateState_ThreadX]: Unrecognized event type (0x%x)\n",
             type);
    EXPECT_EQ(captured.err, expected);
    EXPECT_EQ(captured.out, "");
  }
}

// ---- Short events -------------------------------------------------------------------

TEST_F(ThreadX, ShortEventsRecordOnlyWhatTheirBytesHold) {
  Open();
  for (uint16_t type : {1, 3, 5, 6}) EXPECT_EQ(Changes(type, 0, Word(0x1).substr(0, 3)), "");
  EXPECT_EQ(Changes(5, 4, Word(0x1)), NewTask(0x1, TaskValue("0004", "", "")));
  EXPECT_EQ(Changes(5, 5, Word(0x1) + "\1\2"), Mod(0x1, 0, "0005"));
  EXPECT_EQ(Changes(6, 10, Word(0x2) + Word(3) + "ab"),
            NewTask(0x2, TaskValue("000A", "00000003", "ab")));
  EXPECT_EQ(Changes(6, 10, Word(0x2) + Word(3) + "abc"), Mod(0x2, 9, ToHex("abc") + " 00"));
  // Only the ID: no priority, and the name is the empty one of no bytes.
  EXPECT_EQ(Changes(6, 10, Word(0x3)), NewTask(0x3, TaskValue("000A", "", "", 1)));
}

// ---- Byte order ---------------------------------------------------------------------

TEST_F(ThreadX, EitherByteOrderGivesTheSameValues) {
  std::vector<std::string> changes[2];
  for (int order = 0; order < 2; order++) {
    kq_Close(db_);
    db_ = nullptr;
    Open(order == 1);
    const uint32_t ids[] = {0x01020304, 0xA0B0C0D0};
    for (uint32_t id : ids) changes[order].push_back(Changes(6, 10, Record(id, 0x11223344, "t")));
    changes[order].push_back(Changes(1, 0, Word(ids[0])));
    changes[order].push_back(Changes(5, 13, Word(ids[1]) + Word(0x55667788)));
    changes[order].push_back(Changes(3, 1, Word(0x0BADF00D)));
  }
  EXPECT_EQ(changes[0], changes[1]);
  EXPECT_EQ(changes[1][0], NewTask(0x01020304, TaskValue("000A", "11223344", "t")));
  EXPECT_EQ(changes[1][3], Join({Mod(0xA0B0C0D0, 0, "000D"), Mod(0xA0B0C0D0, 4, "55667788")}));
}

}  // namespace
