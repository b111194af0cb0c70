// Tests of the state model where the database tests don't reach it: the
// table callbacks' contract (hash, the reversed-sign compare, deep clones),
// the messages for unknown kinds of change, and the Task that kq_KeepTaskID
// makes (priority from the target's order, names copied whole, one that
// exists found and left alone).  Applying and recording changes is held
// against the model in the writer's and the read side's tests.
#include <gtest/gtest.h>

#include "database_script.h"
#include "gen_capture.h"
#include "hex_bytes.h"
#include "indgen_string.h"
#include "indgeninit.h"

using namespace testsupport;

namespace {

TEST(StateModel, TableCallbacksHashCompareAndCloneAsDocumented) {
  const kq_StateObject a{0, 0x12345678u, 0, nullptr}, b{5, 0xFFu, 0, nullptr}, c{1, 0, 0, nullptr}, d{1, 0x80000000u, 0, nullptr},
      e{0, 0xFFFFFFFFu, 0, nullptr};
  EXPECT_EQ(std::vector<uint32_t>({HashStateObject(&a), HashStateObject(&b), HashStateObjectByType(&b)}),
            std::vector<uint32_t>({0x78345612u, 0xFF000005u, 0x15725243u}));
  EXPECT_EQ(std::vector<int>({CmpStateObject(&c, &e), CmpStateObject(&e, &c), CmpStateObject(&d, &c), CmpStateObject(&c, &d),
                              CmpStateObject(&d, &d), CmpStateObjectByType(&d, &c)}),
            std::vector<int>({-1, 1, -1, 1, 0, 0}));  // type, then id unsigned; -1 when the first is greater
  kq_State *state = kq_NewState();
  ApplyStateChangeNew(state->table, nullptr, 2, 7, 3, "abc", nullptr, nullptr);
  ApplyStateChangeNew(state->table, nullptr, 2, 8, 0, nullptr, nullptr, nullptr);
  HT_PT copy = HT_Clone(state->table);
  kq_FindStateObject(state->table, 2, 7)->value[0] = 'X';
  EXPECT_EQ(StateOf(copy), State({{{2, 7}, "abc"}, {{2, 8}, ""}}));
  EXPECT_EQ(kq_FindStateObject(copy, 2, 8)->value, nullptr);
  HT_Delete(copy);
  kq_DeleteState(state);
}

TEST(StateModel, ListsApplyFromFrontToBackAndUnknownKindsAreReported) {
  List_PT list = List_New(StateChangeDelete, nullptr);
  for (const auto &[kind, number, bytes] : {std::tuple{0, 3, "abc"}, {1, 1, "Z"}, {2, 0, ""}, {0, 3, "xyz"}, {1, 0, "Q"}, {3, 0, ""}, {9, 0, ""}}) {
    auto *change = static_cast<StateChange *>(gen_alloc(1, sizeof(StateChange)));
    *change = {uint8_t(kind), 0, 1, uint16_t(number), uint8_t(strlen(bytes)), *bytes ? reinterpret_cast<uint8_t *>(gen_copy(bytes)) : nullptr};
    List_Push(list, change, 1);
  }
  kq_State *state = kq_NewState();
  kq_Event event{};
  event.changes = list;
  EXPECT_EQ(RunCapturing([&] { kq_UpdateStateFromStateAndEvent(state, &event); }).err, "Unrecognized StateChange->type\n");  // kind 9
  EXPECT_EQ(StateOf(state), State({{{0, 1}, "Qyz"}}));
  EXPECT_EQ(RunCapturing([&] { List_Delete(list); }).err, "Unrecognized StateChange type\nUnrecognized StateChange type\n");  // 3, 9
  kq_DeleteState(state);
}

TEST(StateModel, KeepTaskIdMakesATaskFromTheTargetsBytesOrFindsTheOneThere) {
  kq_DB db{};  // little-endian payloads, no stream: the tables alone
  kq_State *current = kq_NewState();
  std::string name(31, 'n'), second(31, 's');
  name[3] = '\0';  // bytes behind a terminator are copied too
  EXPECT_EQ(kq_KeepTaskID(0x77, &db, current->table, nullptr, 1, name.data(), 1, 0x0203, 1, "\x0A\0\0\0", 1, second.data(), nullptr), 1);
  EXPECT_EQ(kq_KeepTaskID(5, &db, current->table, nullptr, 0, nullptr, 0, 0, 0, nullptr, 0, nullptr, nullptr), 1);
  kq_StateObject *found = nullptr;
  EXPECT_EQ(kq_KeepTaskID(5, &db, current->table, nullptr, 1, name.data(), 1, 7, 0, nullptr, 0, nullptr, &found), 0);
  EXPECT_EQ(found, kq_FindStateObject(current->table, 0, 5));
  EXPECT_EQ(StateOf(current), State({{{0, 0x77}, HexBytes("0203 01 00 0000000A 01") + name + "\1" + second + HexBytes("01 000000")},
                                     {{0, 5}, TaskValue({})}}));
  uint8_t *space = kq_GetSpaceForTask(0x0102);  // the status as it stands in memory
  const uint16_t status = 0x0102;
  EXPECT_EQ(ToHex(std::string(reinterpret_cast<char *>(space), 76)),
            ToHex(std::string(reinterpret_cast<const char *>(&status), 2) + HexBytes("01 00 FFFFFFFF") + std::string(68, '\0')));
  gen_free(space);
  kq_DeleteState(current);
}

}  // namespace
