// Tests of the state model where the database tests don't reach it: the table
// compare's contract (its sign reversed) and the messages for unknown kinds of
// change.
#include <gtest/gtest.h>

#include "database_script.h"
#include "gen_capture.h"
#include "indgen_string.h"
#include "indgeninit.h"

using namespace testsupport;

namespace {

TEST(StateModel, TheCompareTakesTypeThenIdUnsignedWithTheSignReversed) {
  const kq_StateObject c{1, 0, 0, nullptr}, d{1, 0x80000000u, 0, nullptr}, e{0, 0xFFFFFFFFu, 0, nullptr};
  EXPECT_EQ(std::vector<int>({CmpStateObject(&c, &e), CmpStateObject(&e, &c), CmpStateObject(&d, &c), CmpStateObject(&c, &d),
                              CmpStateObject(&d, &d), CmpStateObjectByType(&d, &c)}),
            std::vector<int>({-1, 1, -1, 1, 0, 0}));  // type, then id unsigned; -1 when the first is greater
}

TEST(StateModel, ListsApplyFromFrontToBackAndUnknownKindsAreReported) {
  List_PT list = List_New(StateChangeDelete, nullptr);
  for (const auto &[k, n, text] : {std::tuple{0, 3, "abc"}, {1, 1, "Z"}, {2, 0, ""}, {0, 3, "xyz"}, {1, 0, "Q"}, {3, 0, ""}, {9, 0, ""}}) {
    auto *change = static_cast<StateChange *>(gen_alloc(1, sizeof(StateChange)));
    *change = {uint8_t(k), 0, 1, uint16_t(n), uint8_t(strlen(text)), *text ? reinterpret_cast<uint8_t *>(gen_copy(text)) : nullptr};
    List_Push(list, change, 1);
  }
  kq_State *state = kq_NewState();
  kq_Event event{};
  event.changes = list;
  EXPECT_EQ(RunCapturing([&] { kq_UpdateStateFromStateAndEvent(state, &event); }).err, "Unrecognized StateChange->type\n");  // kind 9
  EXPECT_EQ(TakeState(state), State({{{0, 1}, "Qyz"}}));
  EXPECT_EQ(RunCapturing([&] { List_Delete(list); }).err, "Unrecognized StateChange type\nUnrecognized StateChange type\n");  // 3, 9
}

}  // namespace
