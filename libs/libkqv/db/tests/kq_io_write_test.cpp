// Tests of creating a database and adding events: the empty database and the
// worked example pinned byte for byte; generated scripts equal to the model
// after every addition; event numbers; refusals; a creation that can't replace.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "database_script.h"

using namespace testsupport;

namespace {

class Writing : public ::testing::Test {
 protected:
  std::string Base() const { return dir_.file("db"); }
  TempDir dir_;
};

TEST_F(Writing, TheEmptyDatabaseAndTheWorkedExampleArePinnedByteForByte) {
  const Script script = {{5, 1, 0, HexBytes("0000002A")}, {6, 2, 3}};
  ScriptWriter writer(Base(), script, {1000000, "ThreadX", true});
  const std::string kqv = GFileHeader(6) + HexBytes("03 000F4240 00000007 \"threadx\" 01 00000064");
  EXPECT_TRUE(SameFiles(ReadDatabase(Base()), {kqv, GFileHeader(4) + HexBytes("00"), GFileHeader(5) + HexBytes("00")}));  // while open
  ASSERT_TRUE(writer.AddAll());
  writer.Close();
  const DatabaseFiles worked = {kqv,
                                GFileHeader(4) + HexBytes("03 00000000 02 00000000"
                                                          "01 0000000000000005 00000004 0001 0000 0000002A 03"
                                                          "01 0000000000000006 00000000 0002 0003 03 00"),
                                GFileHeader(5) + HexBytes("01 0000000000000005 00000014 00")};
  EXPECT_TRUE(SameFiles(ReadDatabase(Base()), worked));
  EXPECT_TRUE(SameFiles(Render(script), worked));  // the model agrees
}

TEST_F(Writing, AfterEveryAdditionTheFilesAreTheModelsForTheEventsSoFar) {
  for (const DatabaseHeader &header : {DatabaseHeader{1000000, "threadx", true}, DatabaseHeader{32768, "other", false}}) {
    const uint32_t seed = header.ticksPerSecond;
    SCOPED_TRACE("seed " + std::to_string(seed));
    Random random(seed);
    const Script script = GenerateScript(random, 333);
    ScriptWriter writer(Base(), script, header);
    for (size_t i = 1; i <= script.size(); i++)
      ASSERT_TRUE(writer.Add() && SameFiles(ReadDatabase(Base()), Render(Script(script.begin(), script.begin() + i), header))) << i;
  }
}

TEST_F(Writing, EventNumbersGoOnAcrossDatabasesAndRefusalsLeaveEarlierEventsAlone) {
  static std::vector<uint32_t> numbers;
  auto tracker = [](kq_DB *db, HT_PT current, HT_PT used, kq_Event *event) {
    numbers.push_back(event->eventNumber);
    kq_SaveStateChangeNew(db, current, used, 0, 1, 1, "x");
    return event->type == 9 ? 0 : 1;  // refused: the event stays invisible, its number is taken
  };
  const Script script(100, Event(0, 4, 0, "", {New(0, 1, "x")}));
  for (int round = 0; round < 2; round++) {
    kq_DB *db = kq_OpenForCreation(Base().c_str(), 1000000, "threadx", 1, tracker);
    for (size_t i = 0; i < script.size(); i++) ASSERT_EQ(kq_AddEventFromRawBytes(db, 0, 0, 0x40000, nullptr, 0), 1);  // no payload: fine
    const uint32_t before = eventIndex;
    EXPECT_EQ(kq_AddEventFromRawBytes(nullptr, 0, 0, 0x40000, "abcd", 4) + kq_AddEventFromRawBytes(db, 0, 0, 0x40000, nullptr, 4), 0);
    EXPECT_TRUE(eventIndex == before && kq_AddEventFromRawBytes(db, 0, 0, 0x90000, "zzzz", 4) == 0);
    kq_Close(db);
    DatabaseFiles got = ReadDatabase(Base());  // the refused event's bytes behind the final 0 tag, unseen
    const DatabaseFiles want = Render(script);
    ASSERT_GT(got.kqs.size(), want.kqs.size());
    got.kqs.resize(want.kqs.size());
    EXPECT_TRUE(SameFiles(got, want));
  }
  for (size_t i = 0; i < numbers.size(); i++) EXPECT_EQ(numbers[i], numbers[0] + i) << i;
  EXPECT_TRUE(numbers.size() == 202 && eventIndex == numbers[0] + 202);
}

TEST_F(Writing, AKqsThatCannotBeRemovedStopsTheCreationAfterTheOldKqvWent) {
  // (An old database replaced whole, and a .kqs that can't be opened: the converter's tests.)
  ASSERT_TRUE(WriteFileBytes(Base() + ".kqv", "") && WriteFileBytes(Base() + ".kqi", "") && mkdir((Base() + ".kqs").c_str(), 0700) == 0);
  EXPECT_EQ(kq_OpenForCreation(Base().c_str(), 1, "x", 1, nullptr), nullptr);
  EXPECT_FALSE(FileExists(Base() + ".kqv") || FileExists(Base() + ".kqi"));
  EXPECT_TRUE(!kq_OpenForCreation(dir_.file("missing/db").c_str(), 1, "x", 1, nullptr) && !kq_OpenForCreation(nullptr, 1, "x", 1, nullptr));
  EXPECT_FALSE(FileExists(dir_.file("missing")));
}

}  // namespace
