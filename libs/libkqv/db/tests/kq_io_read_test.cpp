// Tests of opening a database and keeping its time index: every format
// version, refusals, index tags at opening and refresh, extent, count and more
// events while a writer adds them, and damage: files cut at every byte, index
// entries pointing anywhere, bytes changed.
#include <gtest/gtest.h>

#include <cstdio>

#include "database_script.h"
#include "gen_capture.h"
#include "indgeninit.h"
#include "kq_io_read.h"

using namespace testsupport;

namespace {

class Reading : public ReadingTest {
 protected:
  std::string Seen() {  // "count [start, end)" after the two refreshes
    uint64_t start = 0, end = 0;
    uint32_t first = 9, count = 0;
    kq_GetTimeExtent(db_, &start, &end);
    kq_GetStartEventAndNumEvents(db_, &first, &count);
    return std::to_string(count + first) + " [" + std::to_string(start) + ", " + std::to_string(end) + ")";
  }
};

TEST_F(Reading, EveryFormatVersionOpensWithItsEventsPerBlockAndRefusalsSayNothing) {
  DatabaseFiles files = Render(CountingScript(250));  // counted: the last block walked, eventsPerBlock for each before
  // .kqv fields (version, ticks, name, order, events per block), what they say, and the count and extent.
  const std::tuple<const char *, uint64_t, uint64_t, uint64_t, const char *> rows[] = {
      {"00 000003E8 00000002 \"ab\" 00", 0, 100, 0, "250 [10, 2501)"},
      {"01 000003E8 00000002 \"ab\" 01 00000032", 1, 100, 1, "250 [10, 2501)"},  // no such field yet
      {"02 000003E8 00000002 \"ab\" 05 00000032", 2, 50, 1, "150 [10, 2501)"},
      {"09 000003E8 00000002 \"ab\" 00 00000019", 9, 25, 0, "100 [10, 2501)"}};
  for (const auto &[fields, version, perBlock, bigEndian, seen] : rows) {
    files.kqv = GFileHeader(6) + HexBytes(fields);
    Write(files);
    ASSERT_NE(Reopen(), nullptr) << fields;
    EXPECT_EQ(std::vector<uint64_t>({db_->formatVersion, db_->eventsPerBlock, uint64_t(kq_IsBigEndian(db_)), kq_GetNumTicksPerSecond(db_)}),
              std::vector<uint64_t>({version, perBlock, bigEndian, 1000}));
    EXPECT_EQ(std::string(kq_GetNameOfConfigFile(db_)) + " " + Seen(), std::string("ab ") + seen);
  }
  kq_DB *db = kq_OpenKqsForUse((Base() + "WXYZ").c_str());  // the last four characters go, unseen
  EXPECT_TRUE(db != nullptr && !kq_OpenKqsForUse("abc") && !kq_OpenKqsForUse(nullptr) && !kq_OpenForUse(nullptr));
  kq_Close(db);
  const std::string foreign = GFileHeader(4).replace(1, 1, "X") + '\0';
  for (const char *suffix : {".kqv", ".kqs", ".kqi"}) {  // missing, then not a GFile
    std::remove((Base() + suffix).c_str());
    EXPECT_EQ(RunCapturing([&] { EXPECT_EQ(Reopen(), nullptr) << suffix; }).err, "");
    ASSERT_TRUE(WriteFileBytes(Base() + suffix, foreign));
    EXPECT_EQ(RunCapturing([&] { EXPECT_EQ(Reopen(), nullptr) << suffix; }).err, "");
    Write(files);
  }
}

TEST_F(Reading, TheIndexTakesWholeEntriesAtOpeningAndAtRefresh) {
  DatabaseFiles files = Render(CountingScript(5));
  const std::string e0 = HexBytes("01 0000000000000005 00000014"), e1 = HexBytes("01 0000000000000009 00000040"),
                    e2 = HexBytes("01 000000000000000B 00000060"), end = HexBytes("00");
  const std::tuple<std::string, int, uint32_t> rows[] = {
      {end, 0, 20}, {e0 + e1 + end, 2, 46}, {e0 + "\x02" + e1.substr(1) + end, -1, 0}, {e0 + e1, -1, 0},  // a wrong tag, no end
      {e0 + e1.substr(0, 9), 1, 33}, {e0 + "\x01", 1, 33}, {"", -1, 0}};  // an entry cut, a tag alone, nothing
  for (const auto &[body, entries, lastIndexTag] : rows) {  // entries -1: refused
    files.kqi = GFileHeader(5) + body;
    Write(files);
    ASSERT_EQ(Reopen() == nullptr, entries < 0) << ToHex(body);
    EXPECT_TRUE(!db_ || (db_->numTimePos == uint32_t(entries) && db_->lastIndexTag == lastIndexTag)) << ToHex(body);
  }
  Write({files.kqv, files.kqs, GFileHeader(5) + e0 + end});
  ASSERT_NE(Reopen(), nullptr);
  EXPECT_EQ(UpdateKqi(db_), 0u);
  // An entry being written, then whole, then one behind a wrong tag.
  for (const auto &[kqi, added, entries, last] : {std::tuple{e0 + e1 + e2.substr(0, 6), 1u, 2u, 46u},
                                                  std::tuple{e0 + e1 + e2 + end, 1u, 3u, 59u},
                                                  std::tuple{e0 + e1 + e2 + e2 + "\x07" + end, 0u, 3u, 59u}}) {
    ASSERT_TRUE(WriteFileBytes(Base() + ".kqi", GFileHeader(5) + kqi));
    EXPECT_EQ(std::vector<uint32_t>({UpdateKqi(db_), db_->numTimePos, db_->lastIndexTag}), std::vector<uint32_t>({added, entries, last}));
  }
  EXPECT_TRUE(db_->timePos[1].position == 0x40 && db_->timePos[2].time == 11);
}

TEST_F(Reading, ExtentCountAndMoreEventsFollowTheWriterFromNoEventOn) {
  const Script script = CountingScript(250, 70, 10);
  ScriptWriter writer(Base(), script);
  ASSERT_NE(Reopen(), nullptr);
  // Events added, the test for more (1 before the first refresh), and what is seen (the start: the index's before the refresh).
  const std::tuple<size_t, int, const char *> steps[] = {
      {0, 1, "0 [0, 1)"},       {1, 1, "1 [0, 71)"},       {0, 0, "1 [70, 71)"},     {49, 1, "50 [70, 561)"},
      {50, 1, "100 [70, 1061)"}, {1, 1, "101 [70, 1071)"}, {0, 0, "101 [70, 1071)"}, {149, 1, "250 [70, 2561)"}};
  for (const auto &[add, more, seen] : steps) {
    ASSERT_TRUE(writer.Add(add));
    EXPECT_EQ(kq_MoreEvents(db_), more) << seen;
    EXPECT_EQ(Seen(), seen);
    EXPECT_EQ(kq_MoreEvents(db_), 0) << seen;
  }
  DatabaseFiles files = Render(CountingScript(250));
  files.kqi = files.kqi.substr(0, 33) + HexBytes("00");  // the index shows block 0 only: the count walks on
  Write(files);
  ASSERT_NE(Reopen(), nullptr);
  EXPECT_EQ(Seen() + " " + std::to_string(db_->numTimePos), "250 [10, 2501) 1");
  files = Render(CountingScript(150));
  const size_t lastTag = files.kqs.size() - 36;  // events of 35 bytes, then the final 0 tag
  files.kqs[lastTag] = '\x09';
  Write(files);
  ASSERT_NE(Reopen(), nullptr);
  EXPECT_EQ(Seen(), "100 [10, 11)");  // block 1 walked: nothing
  EXPECT_TRUE(db_->lastStreamTag == lastTag && kq_MoreEvents(db_) == 1);  // a damaged end keeps answering 1
}

// Every reading operation on the database at base; the events of the whole extent.
Script ExerciseEverything(const std::string &base) {
  kq_DB *db = kq_OpenForUse(base.c_str());
  if (db == nullptr) return {};
  uint64_t start = 0, end = 0;
  uint32_t count = 0, n = 0, *ids = nullptr;
  uint16_t *types = nullptr;
  kq_State *states[3] = {};
  kq_MoreEvents(db);
  kq_GetTimeExtent(db, &start, &end);
  kq_GetStartEventAndNumEvents(db, nullptr, &count);
  const Script listed = TakeList(kq_GetEventListAndStateFromTimeRange(db, 0, kFarFuture, &states[0]));
  TakeList(kq_GetEventListAndStateFromTimeRange(db, start + (end - start) / 2, end, &states[1]));
  TakeList(kq_GetNEventsAndStateFromEventNum(db, count / 2, 20, &states[2]));
  TakeList(kq_GetNEventsAndStateFromEventNum(db, count + 5, 0, nullptr));
  kq_GetObjectTypesInTimeRange(db, &types, &n, start, kFarFuture);  // every object query underneath
  kq_GetObjectIdsInTimeRange(db, &ids, &n, 0, 0, end);
  for (kq_State *state : states) kq_DeleteState(state);
  gen_free(types);
  gen_free(ids);
  kq_Close(db);
  return listed;
}

TEST_F(Reading, DamagedFilesListWholeEventsOnlyAndNeverCrash) {
  Random random(20240607);  // two blocks of small events with every kind of change
  Script script = GenerateScript(random, 104);
  for (Event &e : script) e.payload.resize(std::min<size_t>(e.payload.size(), 4)), e.changes.resize(std::min<size_t>(e.changes.size(), 1));
  const DatabaseFiles good = Render(script);
  auto exercise = [&](const std::string &kqv, const std::string &kqs, const std::string &kqi) {
    Write({kqv, kqs, kqi});
    return ExerciseEverything(Base());
  };
  RunCapturing([&] {
    size_t longest = 0, opened = 0;
    for (size_t cut = 0; cut < good.kqs.size(); cut++) {  // a longer file never lists less
      const Script listed = exercise(good.kqv, good.kqs.substr(0, cut), good.kqi);
      ASSERT_TRUE(listed == Listed(script, 0, listed.size()) && listed.size() >= longest) << "cut at " << cut;
      longest = listed.size();
    }
    EXPECT_EQ(longest, script.size());  // cut at the final 0 tag: the last event is whole
    // Cut behind a whole entry the final tag reads as 255: no open; cut in
    // the second the stream is walked beyond it; in the first, nothing is indexed.
    for (size_t cut = 0; cut < good.kqi.size(); cut++) {
      const Script listed = exercise(good.kqv, good.kqs, good.kqi.substr(0, cut));
      opened += !listed.empty();
      EXPECT_TRUE(listed.empty() || listed == Listed(script, 0, script.size())) << "cut at " << cut;
    }
    EXPECT_EQ(opened, 12u);
    for (size_t cut = 0; cut < good.kqv.size(); cut++) exercise(good.kqv.substr(0, cut), good.kqs, good.kqi);
    for (const char *perBlock : {"00000000", "00000001", "FFFFFFFF"})  // lists by time stay whole
      EXPECT_EQ(exercise(good.kqv.substr(0, 37) + HexBytes(perBlock), good.kqs, good.kqi).size(), script.size());
    for (const char *at : {"00000000", "00000019", "00000030", "000001F5", "7FFFFFFF", "80000000", "FFFFFFFF"})
      for (size_t entry = 0; entry < 2; entry++)
        exercise(good.kqv, good.kqs, std::string(good.kqi).replace(29 + 13 * entry, 4, HexBytes(at)));
    for (size_t at = 20; at < good.kqs.size(); at += 7)  // tags, lengths and counts made wrong
      for (const char value : {'\x00', '\x03', '\x07', '\xFF'})
        exercise(good.kqv, std::string(good.kqs).replace(at, 1, 1, value), good.kqi);
  });
}

}  // namespace
