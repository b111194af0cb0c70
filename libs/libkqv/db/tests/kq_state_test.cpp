// Tests of state objects and state changes: the table callbacks, applying
// New, Mod and Del (boundaries, filters, the used table), lists of changes,
// the messages for unknown kinds, recording into a stream (the records'
// bytes, recorded whatever the application did) and kq_KeepTaskID.
#include "kq_state.h"
#include "kq_tracker.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "gen_capture.h"
#include "hex_bytes.h"
#include "indgeninit.h"
#include "temp_dir.h"

using testsupport::HexBytes;
using testsupport::RunCapturing;
using testsupport::TempDir;
using testsupport::ToHex;

namespace {

// ---- Vocabulary --------------------------------------------------------

// A database handle with a stream file and the two tables, as a tracker
// sees it, without the rest of the writer.
class Recorder {
 public:
  explicit Recorder(uint8_t isBigEndian = 1) : name_(dir_.file("stream")) {
    db_ = New_kq_DB();
    db_->streamFile = gf_open_for_write(nullptr, nullptr, name_.c_str(), 4, 0, 2, 0, 0);
    db_->isBigEndian = isBigEndian;
    db_->currentState = kq_NewState();
    db_->usedState = kq_NewState();
  }
  ~Recorder() { kq_Close(db_); }
  Recorder(const Recorder &) = delete;
  Recorder &operator=(const Recorder &) = delete;

  kq_DB *db() const { return db_; }
  HT_PT current() const { return db_->currentState->table; }
  HT_PT used() const { return db_->usedState->table; }

  // What was recorded so far: the stream behind its 20-byte header.
  std::string Recorded() const {
    gf_seek(db_->streamFile, gf_tell(db_->streamFile, nullptr));  // pushes the bytes out
    return testsupport::ReadFileBytes(name_).substr(20);
  }

 private:
  TempDir dir_;
  std::string name_;
  kq_DB *db_;
};

kq_StateObject *Find(HT_PT table, uint16_t type, uint32_t id) {
  kq_StateObject key{type, id, 0, nullptr};
  void *stored = nullptr;
  HT_FindItem(table, &key, &stored, nullptr);
  return static_cast<kq_StateObject *>(stored);
}

// The value of (type, id) as bytes; "absent" when there is no such object.
std::string ValueOf(HT_PT table, uint16_t type, uint32_t id) {
  kq_StateObject *object = Find(table, type, id);
  if (object == nullptr) return "absent";
  return std::string(reinterpret_cast<const char *>(object->value), object->length);
}

void New(HT_PT current, HT_PT used, uint16_t type, uint32_t id, const std::string &value,
         kq_StateFilter filter = nullptr, void *arg = nullptr) {
  ApplyStateChangeNew(current, used, type, id, static_cast<uint16_t>(value.size()), value.data(),
                      filter, arg);
}

// A heap StateChange as a reader's list holds it.
StateChange *Change(uint8_t kind, uint16_t type, uint32_t id, uint16_t offsetOrLength = 0,
                    const std::string &bytes = "") {
  auto *change = static_cast<StateChange *>(gen_alloc(1, sizeof(StateChange)));
  change->kind = kind;
  change->type = type;
  change->id = id;
  change->offsetOrLength = offsetOrLength;
  change->modLength = static_cast<uint8_t>(bytes.size());
  if (!bytes.empty()) {
    change->bytes = static_cast<uint8_t *>(gen_alloc(bytes.size(), 1));
    memcpy(change->bytes, bytes.data(), bytes.size());
  }
  return change;
}

class State {
 public:
  State() : state_(kq_NewState()) {}
  ~State() { kq_DeleteState(state_); }
  State(const State &) = delete;
  State &operator=(const State &) = delete;
  HT_PT table() const { return state_->table; }
  kq_State *get() const { return state_; }

 private:
  kq_State *state_;
};

// ---- Table callbacks -------------------------------------------------------

TEST(StateObjectTable, HashExchangesTheOuterBytesOfTheIdAndMixesInTheType) {
  kq_StateObject a{0, 0x12345678u, 0, nullptr};
  EXPECT_EQ(HashStateObject(&a), 0x78345612u);
  kq_StateObject b{5, 0x000000FFu, 0, nullptr};
  EXPECT_EQ(HashStateObject(&b), 0xFF000005u);
  EXPECT_EQ(HashStateObjectByType(&b), 0x15725243u);
}

TEST(StateObjectTable, ComparesTypeThenIdUnsignedWithTheReversedSign) {
  kq_StateObject t0big{0, 0xFFFFFFFFu, 0, nullptr};
  kq_StateObject t1small{1, 0, 0, nullptr};
  kq_StateObject t1one{1, 1, 0, nullptr};
  kq_StateObject t1high{1, 0x80000000u, 0, nullptr};
  EXPECT_EQ(CmpStateObject(&t1small, &t0big), -1);
  EXPECT_EQ(CmpStateObject(&t0big, &t1small), 1);
  EXPECT_EQ(CmpStateObject(&t1high, &t1one), -1);
  EXPECT_EQ(CmpStateObject(&t1one, &t1high), 1);
  EXPECT_EQ(CmpStateObject(&t1one, &t1one), 0);
  EXPECT_EQ(CmpStateObjectByType(&t1small, &t0big), -1);
  EXPECT_EQ(CmpStateObjectByType(&t0big, &t1high), 1);
  EXPECT_EQ(CmpStateObjectByType(&t1one, &t1high), 0);
}

TEST(StateObjectTable, ClonesOwnTheirValueAndAnEmptyValueStaysEmpty) {
  State state;
  New(state.table(), nullptr, 2, 7, "abc");
  New(state.table(), nullptr, 2, 8, "");
  HT_PT copy = HT_Clone(state.table());
  ASSERT_NE(copy, nullptr);
  Find(state.table(), 2, 7)->value[0] = 'X';
  EXPECT_EQ(ValueOf(copy, 2, 7), "abc");
  kq_StateObject *empty = Find(copy, 2, 8);
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(empty->length, 0u);
  EXPECT_EQ(empty->value, nullptr);
  HT_Delete(copy);

  int target = 0;
  void *pointer = nullptr;
  EXPECT_EQ(ClonePtr(&target, &pointer), 1);
  EXPECT_EQ(pointer, &target);
}

TEST(StateChanges, DeletingUnknownKindsSaysSoAndFreesTheRecord) {
  auto captured = RunCapturing([] {
    StateChangeDelete(Change(0, 0, 1, 2, "ab"));
    StateChangeDelete(Change(1, 0, 1, 0, "c"));
    StateChangeDelete(Change(2, 0, 1));
  });
  EXPECT_EQ(captured.err, "");
  captured = RunCapturing([] { StateChangeDelete(Change(5, 0, 1)); });
  EXPECT_EQ(captured.err, "Unrecognized StateChange type\n");
}

// ---- Applying ----------------------------------------------------------------

TEST(ApplyNew, CreatesInCurrentAndMarksInUsedWithoutValue) {
  State current, used;
  New(current.table(), used.table(), 3, 9, "value");
  EXPECT_EQ(ValueOf(current.table(), 3, 9), "value");
  kq_StateObject *mark = Find(used.table(), 3, 9);
  ASSERT_NE(mark, nullptr);
  EXPECT_EQ(mark->length, 0u);
  EXPECT_EQ(mark->value, nullptr);
}

TEST(ApplyNew, AnExistingObjectKeepsItsValueAndUsedStaysAsItWas) {
  State current, used;
  New(current.table(), nullptr, 3, 9, "old");
  New(current.table(), used.table(), 3, 9, "new!");
  EXPECT_EQ(ValueOf(current.table(), 3, 9), "old");
  EXPECT_EQ(HT_GetSize(used.table()), 0);
}

TEST(ApplyNew, WithoutCurrentOnlyUsedCollectsAndAFilterKeepsObjectsOut) {
  State current, used;
  std::vector<uint32_t> asked;
  kq_StateFilter evenOnly = [](kq_StateObject *object, void *arg) {
    static_cast<std::vector<uint32_t> *>(arg)->push_back(object->id);
    return object->id % 2 == 0 ? 1 : 0;
  };
  New(nullptr, used.table(), 1, 4, "x", evenOnly, &asked);
  New(current.table(), used.table(), 1, 5, "y", evenOnly, &asked);
  EXPECT_EQ(asked, (std::vector<uint32_t>{4, 5}));
  EXPECT_NE(Find(used.table(), 1, 4), nullptr);
  EXPECT_EQ(Find(used.table(), 1, 5), nullptr);
  EXPECT_EQ(ValueOf(current.table(), 1, 5), "y");
  // A second mark of the same key replaces the first: one entry.
  New(nullptr, used.table(), 1, 4, "z");
  EXPECT_EQ(HT_GetSize(used.table()), 1);
}

TEST(ApplyMod, AppliesUpToTheValuesEndAndNothingOfAChangeThatSticksOut) {
  State current;
  New(current.table(), nullptr, 0, 1, "abcdef");
  ApplyStateChangeMod(current.table(), 0, 1, 4, 2, "XY");
  EXPECT_EQ(ValueOf(current.table(), 0, 1), "abcdXY");
  ApplyStateChangeMod(current.table(), 0, 1, 4, 3, "123");
  EXPECT_EQ(ValueOf(current.table(), 0, 1), "abcdXY");
  ApplyStateChangeMod(current.table(), 0, 1, 0xFFFF, 255, std::string(255, 'q').data());
  EXPECT_EQ(ValueOf(current.table(), 0, 1), "abcdXY");
  ApplyStateChangeMod(current.table(), 0, 2, 0, 1, "Z");  // missing: no fault
  ApplyStateChangeMod(nullptr, 0, 1, 0, 1, "Z");
  EXPECT_EQ(ValueOf(current.table(), 0, 1), "abcdXY");
}

TEST(ApplyDel, RemovesFromCurrentOnlyAndAMissingKeyIsNoFault) {
  State current, used;
  New(current.table(), used.table(), 0, 1, "a");
  ApplyStateChangeDel(current.table(), 0, 1);
  ApplyStateChangeDel(current.table(), 0, 1);
  EXPECT_EQ(ValueOf(current.table(), 0, 1), "absent");
  EXPECT_NE(Find(used.table(), 0, 1), nullptr);
}

TEST(ApplyList, AppliesFromFrontToBackAndReportsUnknownKinds) {
  State current, used;
  List_PT list = List_New(StateChangeDelete, nullptr);
  List_Push(list, Change(0, 0, 1, 3, "abc"), 1);
  List_Push(list, Change(1, 0, 1, 1, "Z"), 1);
  List_Push(list, Change(2, 0, 1), 1);
  List_Push(list, Change(0, 0, 1, 3, "xyz"), 1);
  List_Push(list, Change(1, 0, 1, 0, "Q"), 1);
  List_Push(list, Change(3, 0, 1), 1);
  auto captured = RunCapturing(
      [&] { ApplyListOfStateChanges(list, current.table(), used.table(), nullptr, nullptr); });
  EXPECT_EQ(captured.err, "");
  EXPECT_EQ(ValueOf(current.table(), 0, 1), "Qyz");
  EXPECT_EQ(HT_GetSize(used.table()), 1);

  StateChange *odd = Change(9, 0, 1);
  captured = RunCapturing([&] { ApplyStateChange(current.table(), nullptr, nullptr, nullptr, odd); });
  EXPECT_EQ(captured.err, "Unrecognized StateChange->type\n");
  gen_free(odd);

  kq_Event event{};
  event.changes = list;
  State fresh;
  kq_UpdateStateFromStateAndEvent(fresh.get(), &event);
  EXPECT_EQ(ValueOf(fresh.table(), 0, 1), "Qyz");
  List_Delete(list);
}

// ---- Recording ----------------------------------------------------------------

TEST(Recording, ATaskCreatedWithStatusThreeIsANewOf85Bytes) {
  Recorder r;
  EXPECT_EQ(kq_KeepTaskID(0x1234, r.db(), r.current(), r.used(), 0, nullptr, 1, 3, 0, nullptr, 0,
                          nullptr, nullptr),
            1);
  const std::string expected =
      HexBytes("00 0000 00001234 004C  0003 01 00 FFFFFFFF 00") + std::string(67, '\0');
  ASSERT_EQ(expected.size(), 85u);
  EXPECT_EQ(ToHex(r.Recorded()), ToHex(expected));
  EXPECT_NE(Find(r.used(), 0, 0x1234), nullptr);
}

TEST(Recording, ModAndDelRecordsAreWrittenWhateverTheApplicationDid) {
  Recorder r;
  kq_SaveStateChangeNew(r.db(), r.current(), r.used(), 7, 0x0A0B0C0D, 2, "hi");
  kq_SaveStateChangeNew(r.db(), r.current(), r.used(), 7, 0x0A0B0C0D, 1, "X");  // exists
  kq_SaveStateChangeMod(r.db(), r.current(), 7, 0x0A0B0C0D, 1, 2, "ZZ");        // sticks out
  kq_SaveStateChangeMod(r.db(), r.current(), 7, 0x0A0B0C0D, 1, 1, "o");
  kq_SaveStateChangeMod(r.db(), r.current(), 7, 99, 0, 1, "M");                 // missing
  kq_SaveStateChangeDel(r.db(), r.current(), 7, 0x0A0B0C0D);
  kq_SaveStateChangeDel(r.db(), r.current(), 7, 0x0A0B0C0D);                    // nothing there
  EXPECT_EQ(ToHex(r.Recorded()), ToHex(HexBytes("00 0007 0A0B0C0D 0002 \"hi\""
                                                "00 0007 0A0B0C0D 0001 \"X\""
                                                "01 0007 0A0B0C0D 0001 02 \"ZZ\""
                                                "01 0007 0A0B0C0D 0001 01 \"o\""
                                                "01 0007 00000063 0000 01 \"M\""
                                                "02 0007 0A0B0C0D"
                                                "02 0007 0A0B0C0D")));
  EXPECT_EQ(ValueOf(r.current(), 7, 0x0A0B0C0D), "absent");
}

TEST(Recording, RecordsGoToTheStreamInTheOrderOfTheCallsAndTablesFollow) {
  Recorder r;
  kq_SaveStateChangeNew(r.db(), r.current(), r.used(), 1, 2, 3, "abc");
  kq_SaveStateChangeMod(r.db(), r.current(), 1, 2, 2, 1, "C");
  EXPECT_EQ(ValueOf(r.current(), 1, 2), "abC");
  EXPECT_EQ(ToHex(r.Recorded()),
            ToHex(HexBytes("00 0001 00000002 0003 \"abc\" 01 0001 00000002 0002 01 \"C\"")));
}

// ---- Tasks --------------------------------------------------------------------

TEST(Tasks, SpaceForATaskHoldsTheStatusUnconvertedAndUnknownPriority) {
  uint8_t *value = kq_GetSpaceForTask(0x0102);
  uint16_t status = 0;
  memcpy(&status, value, 2);
  EXPECT_EQ(status, 0x0102);
  EXPECT_EQ(ToHex(std::string(reinterpret_cast<char *>(value) + 2, 74)),
            ToHex(HexBytes("01 00 FFFFFFFF") + std::string(68, '\0')));
  gen_free(value);
}

TEST(Tasks, KeepTaskIdWithoutArgumentsKnowsNothing) {
  Recorder r;
  kq_StateObject *found = reinterpret_cast<kq_StateObject *>(1);
  EXPECT_EQ(kq_KeepTaskID(5, r.db(), r.current(), r.used(), 0, nullptr, 0, 0, 0, nullptr, 0,
                          nullptr, &found),
            1);
  EXPECT_EQ(found, nullptr);
  EXPECT_EQ(ToHex(ValueOf(r.current(), 0, 5)),
            ToHex(HexBytes("0000 00 00 FFFFFFFF 00") + std::string(67, '\0')));
}

TEST(Tasks, KeepTaskIdConvertsThePriorityFromTheTargetsOrderAndCopiesNamesWhole) {
  Recorder r(0);  // little-endian target
  std::string name(31, 'n');
  name[3] = '\0';  // bytes behind a terminator are copied too
  std::string second = std::string(31, 's');
  EXPECT_EQ(kq_KeepTaskID(0x77, r.db(), r.current(), r.used(), 1, name.data(), 1, 0x0203, 1,
                          HexBytes("0A000000").data(), 1, second.data(), nullptr),
            1);
  EXPECT_EQ(ToHex(ValueOf(r.current(), 0, 0x77)),
            ToHex(HexBytes("0203 01 00 0000000A 01") + name + HexBytes("01") + second +
                  HexBytes("01 000000")));
}

TEST(Tasks, AnExistingTaskIsFoundAndNeitherChangedNorRecorded) {
  Recorder r;
  kq_KeepTaskID(9, r.db(), r.current(), r.used(), 0, nullptr, 1, 3, 0, nullptr, 0, nullptr, nullptr);
  const std::string before = r.Recorded();
  const std::string value = ValueOf(r.current(), 0, 9);
  kq_StateObject *found = nullptr;
  std::string name(31, 'x');
  EXPECT_EQ(kq_KeepTaskID(9, r.db(), r.current(), r.used(), 1, name.data(), 1, 7, 1, "\1\1\1\1", 0,
                          nullptr, &found),
            0);
  EXPECT_EQ(found, Find(r.current(), 0, 9));
  EXPECT_EQ(kq_GetStateObjectId(found), 9u);
  EXPECT_EQ(kq_GetStateObjectValue(found), found->value);
  EXPECT_EQ(ValueOf(r.current(), 0, 9), value);
  EXPECT_EQ(r.Recorded(), before);
  EXPECT_EQ(kq_KeepTaskID(9, r.db(), r.current(), r.used(), 0, nullptr, 0, 0, 0, nullptr, 0,
                          nullptr, nullptr),
            0);
}

}  // namespace
