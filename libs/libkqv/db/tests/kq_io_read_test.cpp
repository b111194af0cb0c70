// Tests of opening a database and keeping its time index: the worked
// example read from literal bytes, .kqv of every format version, opening by
// the .kqs name, refusals, index damage at opening and at refresh, the block
// search, a database that grows while it is open (extent, count, the
// one-byte test for more), counting across blocks the index doesn't show
// yet, the packet readers on literal packets, damaged lengths, and files cut
// at every byte or pointing anywhere.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "gen_capture.h"
#include "hex_bytes.h"
#include "indgeninit.h"
#include "kq_io.h"
#include "kq_io_read.h"
#include "kq_state.h"
#include "kq_scripted_db.h"
#include "temp_dir.h"

using testsupport::HexBytes;
using testsupport::ReadFileBytes;
using testsupport::RunCapturing;
using testsupport::TempDir;
using testsupport::WriteFileBytes;

namespace {

// ---- Vocabulary --------------------------------------------------------

constexpr uint64_t kFarFuture = ~uint64_t{0} >> 1;

std::string GFileHeader(int fileType) {
  return HexBytes("7F544F56 00000001 000000") + std::string(1, static_cast<char>(fileType)) +
         HexBytes("00000000 04 00 00 00");
}

// The worked example: a big-endian target, 1000000 ticks per second,
// "ThreadX"; event A at 5, type 1, payload 00 00 00 2A; event B at 6, type
// 2, subtype 3; no changes.
const std::string kExampleKqv =
    GFileHeader(6) + HexBytes("03 000F4240 00000007 \"threadx\" 01 00000064");
const std::string kExampleKqs = GFileHeader(4) + HexBytes(
                                                     "03 00000000 02 00000000"
                                                     "01 0000000000000005 00000004 0001 0000 0000002A 03"
                                                     "01 0000000000000006 00000000 0002 0003 03"
                                                     "00");
const std::string kExampleKqi = GFileHeader(5) + HexBytes("01 0000000000000005 00000014 00");

class ReadTest : public ::testing::Test {
 protected:
  void TearDown() override { kq_Close(db_); }

  std::string Base() const { return dir_.file("db"); }
  std::string File(const char *suffix) const { return Base() + suffix; }
  void WriteFiles(const std::string &kqv, const std::string &kqs, const std::string &kqi) {
    ASSERT_TRUE(WriteFileBytes(File(".kqv"), kqv));
    ASSERT_TRUE(WriteFileBytes(File(".kqs"), kqs));
    ASSERT_TRUE(WriteFileBytes(File(".kqi"), kqi));
  }
  kq_DB *Open() {
    kq_Close(db_);
    db_ = kq_OpenForUse(Base().c_str());
    return db_;
  }
  uint32_t Count() {
    uint32_t start = 99, count = 0;
    EXPECT_EQ(kq_GetStartEventAndNumEvents(db_, &start, &count), 1);
    EXPECT_EQ(start, 0u);
    return count;
  }
  std::pair<uint64_t, uint64_t> Extent() {
    uint64_t start = 0, end = 0;
    EXPECT_EQ(kq_GetTimeExtent(db_, &start, &end), 1);
    return {start, end};
  }

  TempDir dir_;
  kq_DB *db_ = nullptr;
};

// ---- Opening -----------------------------------------------------------------

TEST_F(ReadTest, OpensTheWorkedExampleFromItsBytes) {
  WriteFiles(kExampleKqv, kExampleKqs, kExampleKqi);
  ASSERT_NE(Open(), nullptr);
  EXPECT_EQ(db_->formatVersion, 3u);
  EXPECT_EQ(kq_GetNumTicksPerSecond(db_), 1000000u);
  EXPECT_STREQ(kq_GetNameOfConfigFile(db_), "threadx");
  EXPECT_EQ(kq_IsBigEndian(db_), 1);
  EXPECT_EQ(db_->eventsPerBlock, 100u);
  ASSERT_EQ(db_->numTimePos, 1u);
  EXPECT_EQ(db_->timePos[0].time, 5u);
  EXPECT_EQ(db_->timePos[0].position, 20u);
  EXPECT_EQ(db_->timePos[1].time, 0u);  // the spare zeroed entry
  EXPECT_EQ(db_->lastIndexTag, 33u);
  EXPECT_EQ(db_->lastStreamTag, 0u);
  EXPECT_EQ(db_->currentState, nullptr);
  EXPECT_EQ(db_->saveStateChange, nullptr);

  EXPECT_EQ(Extent(), std::make_pair(uint64_t{5}, uint64_t{7}));
  EXPECT_EQ(db_->lastStreamTag, 70u);  // the final 0 tag
  EXPECT_EQ(Count(), 2u);
}

TEST_F(ReadTest, EveryFormatVersionOpensWithItsEventsPerBlock) {
  // Stream and index of 250 events (blocks of 100, 100, 50) from the writer;
  // only the .kqv differs.  The count is the walk of the last block (50)
  // plus eventsPerBlock for each block before it.
  ASSERT_TRUE(scripted::WriteScript(Base(), scripted::CountingScript(250)));
  struct Case {
    const char *fields;  // behind the GFile header
    uint32_t version;
    uint32_t eventsPerBlock;
    uint8_t bigEndian;
    uint32_t count;
  } cases[] = {
      {"00 000003E8 00000002 \"ab\" 00", 0, 100, 0, 250},
      {"01 000003E8 00000002 \"ab\" 01 00000032", 1, 100, 1, 250},  // no such field yet
      {"02 000003E8 00000002 \"ab\" 05 00000032", 2, 50, 1, 150},
      {"03 000003E8 00000002 \"ab\" 00 00000064", 3, 100, 0, 250},
      {"09 000003E8 00000002 \"ab\" 01 00000019", 9, 25, 1, 100},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.fields);
    ASSERT_TRUE(WriteFileBytes(File(".kqv"), GFileHeader(6) + HexBytes(c.fields)));
    ASSERT_NE(Open(), nullptr);
    EXPECT_EQ(db_->formatVersion, c.version);
    EXPECT_EQ(db_->eventsPerBlock, c.eventsPerBlock);
    EXPECT_EQ(kq_GetIsBigEndian(db_), c.bigEndian);
    EXPECT_EQ(kq_GetNumTicksPerSecond(db_), 1000u);
    EXPECT_STREQ(kq_GetNameOfConfigFile(db_), "ab");
    EXPECT_EQ(Count(), c.count);
  }
}

TEST_F(ReadTest, TheConfigurationNameComesBackFolded) {
  ASSERT_TRUE(scripted::WriteScript(Base(), scripted::CountingScript(3)));
  ASSERT_NE(Open(), nullptr);
  EXPECT_STREQ(kq_GetNameOfConfigFile(db_), "threadx");
  EXPECT_EQ(kq_GetNameOfConfigFile(nullptr), nullptr);
}

TEST_F(ReadTest, OpenKqsForUseDropsTheLastFourCharactersUnseen) {
  ASSERT_TRUE(scripted::WriteScript(Base(), scripted::CountingScript(3)));
  for (const std::string &name : {Base() + ".kqs", Base() + "WXYZ"}) {
    kq_DB *db = kq_OpenKqsForUse(name.c_str());
    EXPECT_NE(db, nullptr) << name;
    kq_Close(db);
  }
  EXPECT_EQ(kq_OpenKqsForUse(Base().c_str()), nullptr);  // the directory's name, cut short
  EXPECT_EQ(kq_OpenKqsForUse("abc"), nullptr);
  EXPECT_EQ(kq_OpenKqsForUse(nullptr), nullptr);
  EXPECT_EQ(kq_OpenForUse(nullptr), nullptr);
}

TEST_F(ReadTest, AMissingOrForeignFileFailsTheOpenWithoutAMessage) {
  const char *suffixes[] = {".kqv", ".kqs", ".kqi"};
  for (const char *suffix : suffixes) {
    SCOPED_TRACE(suffix);
    WriteFiles(kExampleKqv, kExampleKqs, kExampleKqi);
    std::remove(File(suffix).c_str());
    auto run = RunCapturing([&] { EXPECT_EQ(Open(), nullptr); });
    EXPECT_EQ(run.err, "");
    WriteFiles(kExampleKqv, kExampleKqs, kExampleKqi);
    std::string foreign = GFileHeader(4) + HexBytes("00");
    foreign[1] = 'X';  // "XOV": not a GFile
    ASSERT_TRUE(WriteFileBytes(File(suffix), foreign));
    run = RunCapturing([&] { EXPECT_EQ(Open(), nullptr); });
    EXPECT_EQ(run.err, "");
  }
}

TEST_F(ReadTest, IndexTagsAtOpening) {
  const std::string entry0 = HexBytes("01 0000000000000005 00000014");
  const std::string entry1 = HexBytes("01 0000000000000009 00000040");
  struct Case {
    const char *name;
    std::string body;
    bool opens;
    uint32_t entries;
    uint32_t lastIndexTag;
  } cases[] = {
      {"no entries", HexBytes("00"), true, 0, 20},
      {"two entries", entry0 + entry1 + HexBytes("00"), true, 2, 46},
      {"a wrong tag at a boundary", entry0 + HexBytes("02") + entry1.substr(1) + HexBytes("00"),
       false, 0, 0},
      {"the final 0 tag lost", entry0 + entry1, false, 0, 0},
      {"an entry cut short", entry0 + entry1.substr(0, 9), true, 1, 33},
      {"a tag alone at the end", entry0 + HexBytes("01"), true, 1, 33},
      {"an empty index file", "", false, 0, 0},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    WriteFiles(kExampleKqv, kExampleKqs, GFileHeader(5) + c.body);
    if (!c.opens) {
      EXPECT_EQ(Open(), nullptr);
      continue;
    }
    ASSERT_NE(Open(), nullptr);
    EXPECT_EQ(db_->numTimePos, c.entries);
    EXPECT_EQ(db_->lastIndexTag, c.lastIndexTag);
  }
}

// ---- The index in memory ----------------------------------------------------------

TEST_F(ReadTest, UpdateKqiTakesWholeEntriesAndLeavesDamageAlone) {
  const std::string e0 = HexBytes("01 0000000000000005 00000014");
  const std::string e1 = HexBytes("01 0000000000000007 00000100");
  const std::string e2 = HexBytes("01 0000000000000009 00000200");
  const std::string kqi = GFileHeader(5);
  WriteFiles(kExampleKqv, kExampleKqs, kqi + e0 + HexBytes("00"));
  ASSERT_NE(Open(), nullptr);
  EXPECT_EQ(UpdateKqi(db_), 0u);
  EXPECT_EQ(db_->numTimePos, 1u);

  // One new entry and one still being written.
  ASSERT_TRUE(WriteFileBytes(File(".kqi"), kqi + e0 + e1 + e2.substr(0, 6)));
  EXPECT_EQ(UpdateKqi(db_), 1u);
  EXPECT_EQ(db_->numTimePos, 2u);
  EXPECT_EQ(db_->timePos[1].time, 7u);
  EXPECT_EQ(db_->timePos[1].position, 0x100u);
  EXPECT_EQ(db_->lastIndexTag, 46u);

  ASSERT_TRUE(WriteFileBytes(File(".kqi"), kqi + e0 + e1 + e2 + HexBytes("00")));
  EXPECT_EQ(UpdateKqi(db_), 1u);
  EXPECT_EQ(db_->numTimePos, 3u);
  EXPECT_EQ(db_->timePos[2].position, 0x200u);
  EXPECT_EQ(db_->lastIndexTag, 59u);

  // A wrong tag behind a good entry changes nothing.
  ASSERT_TRUE(
      WriteFileBytes(File(".kqi"), kqi + e0 + e1 + e2 + e2 + HexBytes("07") + HexBytes("00")));
  EXPECT_EQ(UpdateKqi(db_), 0u);
  EXPECT_EQ(db_->numTimePos, 3u);
  EXPECT_EQ(db_->lastIndexTag, 59u);
}

TEST(BlockSearch, GoesBackOverEveryBlockNotStrictlyBeforeTheTime) {
  TimePos table[] = {{10, 20}, {20, 200}, {20, 400}, {30, 600}};
  kq_DB db{};
  db.timePos = table;
  db.numTimePos = 4;
  const uint64_t times[] = {0, 5, 10, 15, 20, 21, 30, 31, ~uint64_t{0} >> 1};
  const uint32_t blocks[] = {0, 0, 0, 0, 0, 2, 2, 3, 3};
  for (size_t i = 0; i < std::size(times); i++) {
    EXPECT_EQ(SearchBlockForTime(&db, times[i]), blocks[i]) << "t = " << times[i];
  }
  db.numTimePos = 1;
  EXPECT_EQ(SearchBlockForTime(&db, 5), 0u);
  EXPECT_EQ(SearchBlockForTime(&db, 500), 0u);
}

TEST(BlockSearch, BinSearchTimeLandsNearThePlace) {
  const TimePos table[] = {{10, 0}, {20, 0}, {20, 0}, {30, 0}, {40, 0}};
  const int hit = BinSearchTime(0, 4, table, 20);
  EXPECT_TRUE(hit == 1 || hit == 2) << hit;
  EXPECT_EQ(BinSearchTime(0, 4, table, 30), 3);
  // A miss ends on an entry beside the gap.
  const int miss = BinSearchTime(0, 4, table, 35);
  EXPECT_TRUE(miss == 3 || miss == 4) << miss;
  EXPECT_EQ(BinSearchTime(0, 4, table, 1), 0);
  EXPECT_EQ(BinSearchTime(0, 4, table, 99), 4);
  EXPECT_EQ(BinSearchTime(0, -1, table, 20), -1);  // nothing to look at
}

// ---- Following a growing database ----------------------------------------------------

TEST_F(ReadTest, ExtentCountAndMoreEventsFollowTheWriter) {
  const scripted::Script script = scripted::CountingScript(250, 10, 10);  // event k at 10 + 10k
  scripted::ScriptWriter writer(Base(), script);
  ASSERT_TRUE(writer.ok());
  ASSERT_TRUE(writer.Add(50));
  ASSERT_NE(Open(), nullptr);
  EXPECT_EQ(kq_MoreEvents(db_), 1);  // before the first refresh
  EXPECT_EQ(Extent(), std::make_pair(uint64_t{10}, uint64_t{501}));
  EXPECT_EQ(kq_MoreEvents(db_), 0);
  EXPECT_EQ(kq_MoreEvents(db_), 0);

  ASSERT_TRUE(writer.Add(1));
  EXPECT_EQ(kq_MoreEvents(db_), 1);
  EXPECT_EQ(Count(), 51u);
  EXPECT_EQ(kq_MoreEvents(db_), 0);

  ASSERT_TRUE(writer.Add(49));  // 100: the block is full, no second block yet
  EXPECT_EQ(Count(), 100u);
  EXPECT_EQ(db_->numTimePos, 1u);
  ASSERT_TRUE(writer.Add(1));  // 101 opens block 1
  EXPECT_EQ(kq_MoreEvents(db_), 1);
  EXPECT_EQ(Extent(), std::make_pair(uint64_t{10}, uint64_t{1011}));
  EXPECT_EQ(db_->numTimePos, 2u);
  EXPECT_EQ(db_->timePos[1].time, 1010u);
  EXPECT_EQ(Count(), 101u);

  ASSERT_TRUE(writer.AddAll());
  writer.Close();
  EXPECT_EQ(Count(), 250u);
  EXPECT_EQ(db_->numTimePos, 3u);
  EXPECT_EQ(kq_MoreEvents(db_), 0);
}

TEST_F(ReadTest, AFinishedDatabaseHasMoreEventsOnlyBeforeTheFirstRefresh) {
  ASSERT_TRUE(scripted::WriteScript(Base(), scripted::CountingScript(120)));
  ASSERT_NE(Open(), nullptr);
  EXPECT_EQ(kq_MoreEvents(db_), 1);
  EXPECT_EQ(Extent(), std::make_pair(uint64_t{10}, uint64_t{1201}));
  EXPECT_EQ(kq_MoreEvents(db_), 0);
  ASSERT_NE(Open(), nullptr);
  EXPECT_EQ(kq_MoreEvents(db_), 1);
  EXPECT_EQ(Count(), 120u);
  EXPECT_EQ(kq_MoreEvents(db_), 0);
}

TEST_F(ReadTest, TheCountWalksBlocksTheIndexDoesNotShowYet) {
  // The stream has three blocks, the index still one: the count walks on.
  ASSERT_TRUE(scripted::WriteScript(Base(), scripted::CountingScript(250)));
  const std::string kqi = ReadFileBytes(File(".kqi"));
  ASSERT_EQ(kqi.size(), 21u + 3 * 13);
  ASSERT_TRUE(WriteFileBytes(File(".kqi"), kqi.substr(0, 33) + HexBytes("00")));
  ASSERT_NE(Open(), nullptr);
  EXPECT_EQ(Count(), 250u);
  EXPECT_EQ(db_->numTimePos, 1u);
  EXPECT_EQ(Extent(), std::make_pair(uint64_t{10}, uint64_t{2501}));
  EXPECT_EQ(kq_MoreEvents(db_), 0);
}

TEST_F(ReadTest, AWrongTagInTheLastBlockCountsNothingThere) {
  ASSERT_TRUE(scripted::WriteScript(Base(), scripted::CountingScript(150)));
  std::string kqs = ReadFileBytes(File(".kqs"));
  // The tag of the last event: the final 0 tag is the last byte, and each
  // event of this script is 17 bytes of fields, a 4-byte payload, a 13-byte
  // New and the end tag.
  const size_t lastEventTag = kqs.size() - 1 - 35;
  ASSERT_EQ(kqs[lastEventTag], '\x01');
  kqs[lastEventTag] = '\x09';
  ASSERT_TRUE(WriteFileBytes(File(".kqs"), kqs));
  ASSERT_NE(Open(), nullptr);
  EXPECT_EQ(Count(), 100u);  // block 0 by the index, block 1 walked: nothing
  EXPECT_EQ(Extent(), std::make_pair(uint64_t{10}, uint64_t{11}));
  EXPECT_EQ(db_->lastStreamTag, lastEventTag);
  EXPECT_EQ(kq_MoreEvents(db_), 1);  // a damaged end keeps answering 1
}

TEST_F(ReadTest, AnEmptyDatabaseHasNoEventsUntilItsFirstOne) {
  const scripted::Script script = scripted::CountingScript(3, 70, 5);
  scripted::ScriptWriter writer(Base(), script);
  ASSERT_TRUE(writer.ok());
  ASSERT_NE(Open(), nullptr);
  EXPECT_EQ(db_->numTimePos, 0u);
  EXPECT_EQ(kq_MoreEvents(db_), 1);  // the header's first byte, as for any database
  EXPECT_EQ(Extent(), std::make_pair(uint64_t{0}, uint64_t{1}));
  EXPECT_EQ(db_->lastStreamTag, 20u);  // the stream's first tag
  EXPECT_EQ(kq_MoreEvents(db_), 0);
  EXPECT_EQ(Count(), 0u);

  ASSERT_TRUE(writer.Add(1));
  EXPECT_EQ(kq_MoreEvents(db_), 1);
  // The start comes from the index as it stood before the refresh, which
  // was empty; the next refresh has the first event's time.
  EXPECT_EQ(Extent(), std::make_pair(uint64_t{0}, uint64_t{71}));
  EXPECT_EQ(db_->numTimePos, 1u);
  EXPECT_EQ(Extent(), std::make_pair(uint64_t{70}, uint64_t{71}));
  EXPECT_EQ(Count(), 1u);
  EXPECT_EQ(kq_MoreEvents(db_), 0);
}

TEST(ReadHandles, NullAndWritingHandlesAnswerNothing) {
  TempDir dir;
  kq_DB *writing = kq_OpenForCreation(dir.file("w").c_str(), 1, "x", 1, nullptr);
  ASSERT_NE(writing, nullptr);
  for (kq_DB *db : {static_cast<kq_DB *>(nullptr), writing}) {
    uint64_t start = 7, end = 7;
    uint32_t first = 7, count = 7;
    EXPECT_EQ(kq_GetTimeExtent(db, &start, &end), 0);
    EXPECT_EQ(kq_GetStartEventAndNumEvents(db, &first, &count), 0);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(kq_MoreEvents(db), 0);
    EXPECT_EQ(UpdateKqi(db), 0u);
    kq_FlushFiles(db);
  }
  EXPECT_EQ(kq_GetNumTicksPerSecond(nullptr), 0u);
  kq_Close(writing);
}

// ---- Packet readers ----------------------------------------------------------------------

// A GFile opened on `body` behind a stream header, standing on its first
// byte (position 20).
class PacketTest : public ::testing::Test {
 protected:
  GFile *Reader(const std::string &body) {
    EXPECT_TRUE(WriteFileBytes(dir_.file("p"), GFileHeader(4) + body));
    file_ = gf_open_for_read(nullptr, nullptr, dir_.file("p").c_str());
    return file_;
  }
  void TearDown() override {
    if (file_ != nullptr) gf_close(file_);
  }
  TempDir dir_;
  GFile *file_ = nullptr;
};

TEST_F(PacketTest, GetEventReadsFieldsInFileOrderAndChangesUpToTheirEnd) {
  const std::string packet = HexBytes(
      "0000000100000002 00000003 0004 0005 AABBCC"
      "00 0000 00001234 0002 0102"        // New task 0x1234, 2 bytes
      "01 0003 00000009 0001 02 EEFF"     // Mod: offset 1, 2 bytes
      "02 0000 00001234"                  // Del
      "03"
      "01");                              // the next packet's tag
  GFile *file = Reader(packet);
  ASSERT_NE(file, nullptr);
  uint64_t time = 0;
  uint16_t type = 0, subtype = 0;
  uint8_t *payload = nullptr;
  uint32_t length = 0;
  List_PT changes = nullptr;
  ASSERT_EQ(GetEvent(file, &time, &type, &subtype, &payload, &length, &changes, 1), 1);
  EXPECT_EQ(time, 0x0000000100000002u);
  EXPECT_EQ(length, 3u);
  EXPECT_EQ(type, 4u);
  EXPECT_EQ(subtype, 5u);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(payload), 3), HexBytes("AABBCC"));
  EXPECT_EQ(gf_tell(file, nullptr), static_cast<int32_t>(20 + packet.size() - 1));

  const std::vector<scripted::Change> expected = {
      scripted::New(0, 0x1234, HexBytes("0102")), scripted::Mod(3, 9, 1, HexBytes("EEFF")),
      scripted::Del(0, 0x1234)};
  std::vector<scripted::Change> got;
  for (ListIter_PT it = List_Begin(changes, 0); it != List_End(changes, 1); ListIter_Next(&it, 1)) {
    void *c = nullptr;
    ListIter_GetValue(it, &c);
    got.push_back(scripted::ChangeOf(*static_cast<StateChange *>(c)));
  }
  EXPECT_EQ(got, expected);
  gen_free(payload);
  List_Delete(changes);

  // Without want the payload and changes are passed over and left alone.
  gf_seek(file, 20);
  payload = reinterpret_cast<uint8_t *>(&time);
  changes = nullptr;
  EXPECT_EQ(GetEvent(file, &time, &type, &subtype, &payload, &length, &changes, 0), 1);
  EXPECT_EQ(payload, reinterpret_cast<uint8_t *>(&time));
  EXPECT_EQ(changes, nullptr);
  EXPECT_EQ(gf_get_1(file), 1u);
}

TEST_F(PacketTest, AWrongChangeTagEndsTheChangesWithAMessage) {
  GFile *file = Reader(HexBytes("07 0000 00000001"));
  ASSERT_NE(file, nullptr);
  StateChange *change = nullptr;
  const auto run = RunCapturing([&] { EXPECT_EQ(GetStateChange(file, &change, 1), 0); });
  EXPECT_EQ(run.err, "Unrecognized StateChange type\n");
  EXPECT_EQ(change, nullptr);
}

TEST_F(PacketTest, SnapshotsAndObjectListsComeBackAsStates) {
  GFile *file = Reader(HexBytes("00000003 0000 00000001 00000002 0A0B"
                                "0003 00000002 00000000"
                                "0000 00000001 00000001 FF"  // the same key again: first stays
                                "00000002 0001 00000005 0002 00000006"
                                "AA"));
  ASSERT_NE(file, nullptr);
  kq_State *save = GetStateSave(file, 1);
  const scripted::Model expected = {{{0, 1}, HexBytes("0A0B")}, {{3, 2}, ""}};
  EXPECT_EQ(scripted::StateOf(save), expected);
  kq_DeleteState(save);
  kq_State *used = GetObjUsed(file, 1);
  const scripted::Model keys = {{{1, 5}, ""}, {{2, 6}, ""}};
  EXPECT_EQ(scripted::StateOf(used), keys);
  kq_DeleteState(used);
  EXPECT_EQ(gf_get_1(file), 0xAAu);

  gf_seek(file, 20);
  EXPECT_EQ(GetStateSave(file, 0), nullptr);
  EXPECT_EQ(GetObjUsed(file, 0), nullptr);
  EXPECT_EQ(gf_get_1(file), 0xAAu);
}

TEST_F(PacketTest, LengthsBeyondTheFileAllocateNothing) {
  // Payload length 0x7FFFFFF0 in a file of a few bytes.
  GFile *file = Reader(HexBytes("0000000000000001 7FFFFFF0 0001 0000 0102030403"));
  ASSERT_NE(file, nullptr);
  uint8_t *payload = nullptr;
  List_PT changes = nullptr;
  uint32_t length = 0;
  EXPECT_EQ(GetEvent(file, nullptr, nullptr, nullptr, &payload, &length, &changes, 1), 0);
  EXPECT_EQ(length, 0x7FFFFFF0u);
  EXPECT_EQ(payload, nullptr);
  EXPECT_EQ(List_GetSize(changes), 0);
  EXPECT_EQ(ReadHitEnd(file), 1);
  List_Delete(changes);
  gf_close(file);

  // A snapshot that claims 2^32 - 1 objects, the second one with a huge
  // value: the first whole object is kept.
  file = Reader(HexBytes("FFFFFFFF 0000 00000001 00000001 AB 0000 00000002 FFFFFFFF 0102"));
  kq_State *save = GetStateSave(file, 1);
  const scripted::Model expected = {{{0, 1}, HexBytes("AB")}};
  EXPECT_EQ(scripted::StateOf(save), expected);
  EXPECT_EQ(ReadHitEnd(file), 1);
  kq_DeleteState(save);
  gf_close(file);

  file = Reader(HexBytes("FFFFFFFF 0000 00000001 0001"));
  kq_State *used = GetObjUsed(file, 1);
  EXPECT_EQ(HT_GetSize(used->table), 1);
  kq_DeleteState(used);
  gf_close(file);

  // A New cut inside its value gives no change.
  file_ = Reader(HexBytes("00 0000 00000001 FFFF 0102"));
  StateChange *change = nullptr;
  EXPECT_EQ(GetStateChange(file_, &change, 1), 0);
  EXPECT_EQ(change, nullptr);
}

// ---- Damaged databases ----------------------------------------------------------------------

// Runs every reading operation on the database at base and returns the
// events of the whole extent.  Messages go where they go: the callers
// capture them once around a whole loop.
std::vector<scripted::Listed> ExerciseEverything(const std::string &base) {
  std::vector<scripted::Listed> listed;
  kq_DB *db = kq_OpenForUse(base.c_str());
  if (db == nullptr) return listed;
  uint64_t start = 0, end = 0;
  uint32_t first = 0, count = 0;
  kq_MoreEvents(db);
  kq_GetTimeExtent(db, &start, &end);
  kq_GetStartEventAndNumEvents(db, &first, &count);
  kq_MoreEvents(db);
  kq_State *state = nullptr;
  listed = scripted::TakeList(kq_GetEventListAndStateFromTimeRange(db, 0, kFarFuture, &state));
  kq_DeleteState(state);
  const uint64_t middle = start + (end - start) / 2;
  scripted::TakeList(kq_GetEventListAndStateFromTimeRange(db, middle, end, &state));
  kq_DeleteState(state);
  scripted::TakeList(kq_GetNEventsAndStateFromEventNum(db, count / 2, 20, &state));
  kq_DeleteState(state);
  scripted::TakeList(kq_GetNEventsAndStateFromEventNum(db, count + 5, 0, nullptr));
  HT_PT used =
      HT_New(0, HashStateObject, CmpStateObject, DelStateObject, nullptr, nullptr, nullptr);
  kq_GetObjectStuffUsedInTimeRange(db, start, end, used, nullptr, nullptr);
  kq_GetObjectStuffUsedInTimeRange(db, middle, kFarFuture, used, nullptr, nullptr);
  HT_Delete(used);
  uint16_t *types = nullptr;
  uint32_t *ids = nullptr;
  uint32_t n = 0;
  kq_GetObjectTypesInTimeRange(db, &types, &n, start, end);
  gen_free(types);
  kq_GetObjectIdsInTimeRange(db, &ids, &n, 0, 0, end);
  gen_free(ids);
  kq_Close(db);
  return listed;
}

class DamageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // Two blocks of small events, every kind of change among them: small,
    // because the tests below read the database thousands of times.
    script_ = scripted::GenerateScript(20240607, 104);
    for (scripted::Event &e : script_) {
      if (e.payload.size() > 4) e.payload.resize(4);
      if (e.changes.size() > 1) e.changes.resize(1);
    }
    ASSERT_TRUE(scripted::WriteScript(dir_.file("good"), script_));
    for (const char *suffix : {".kqv", ".kqs", ".kqi"}) {
      good_[suffix] = ReadFileBytes(dir_.file("good") + suffix);
      ASSERT_TRUE(WriteFileBytes(dir_.file("bad") + suffix, good_[suffix]));
    }
    ASSERT_EQ(good_[".kqi"].size(), 21u + 2 * 13);
  }
  // Database "bad": the good files, `suffix` replaced by `bytes` (until the
  // next call).
  std::string Bad(const std::string &suffix, const std::string &bytes) {
    if (!last_.empty() && last_ != suffix) WriteFileBytes(dir_.file("bad") + last_, good_[last_]);
    WriteFileBytes(dir_.file("bad") + suffix, bytes);
    last_ = suffix;
    return dir_.file("bad");
  }
  // Whether `listed` are the first events of the script, whole.
  ::testing::AssertionResult IsAPrefixOfTheScript(const std::vector<scripted::Listed> &listed) {
    const auto expected = scripted::Expected(script_, 0, listed.size());
    for (size_t i = 0; i < listed.size(); i++) {
      if (!(listed[i] == expected[i])) {
        return ::testing::AssertionFailure() << "event " << i << ": " << listed[i];
      }
    }
    return ::testing::AssertionSuccess();
  }

  TempDir dir_{scripted::FastTempParent()};
  scripted::Script script_;
  std::map<std::string, std::string> good_;
  std::string last_;
};

TEST_F(DamageTest, AStreamCutAtAnyByteListsWholeEventsOnly) {
  const std::string &kqs = good_[".kqs"];
  size_t longest = 0;
  RunCapturing([&] {
    for (size_t cut = 0; cut < kqs.size(); cut++) {
      const auto listed = ExerciseEverything(Bad(".kqs", kqs.substr(0, cut)));
      ASSERT_TRUE(IsAPrefixOfTheScript(listed)) << "cut at " << cut;
      ASSERT_GE(listed.size(), longest) << "cut at " << cut;  // a longer file never lists less
      longest = listed.size();
    }
  });
  EXPECT_EQ(longest, script_.size());  // cut at the final 0 tag: the last event is whole
}

TEST_F(DamageTest, AnIndexCutAtAnyByteStillListsEveryEvent) {
  const std::string &kqi = good_[".kqi"];
  size_t opened = 0;
  RunCapturing([&] {
    for (size_t cut = 0; cut < kqi.size(); cut++) {
      const auto listed = ExerciseEverything(Bad(".kqi", kqi.substr(0, cut)));
      // Cut behind a whole entry the final tag reads as 255 and the open
      // fails; cut inside an entry the entry is left out and the stream is
      // walked beyond it.
      if (listed.empty()) continue;
      opened++;
      EXPECT_EQ(listed.size(), script_.size()) << "cut at " << cut;
      EXPECT_TRUE(IsAPrefixOfTheScript(listed)) << "cut at " << cut;
    }
  });
  // 12 cuts inside the second entry.  Cut inside the first one the index
  // is empty: the database opens and, having no indexed block, lists
  // nothing.
  EXPECT_EQ(opened, 12u);
}

TEST_F(DamageTest, AHeaderCutOrWrongDoesNoHarm) {
  const std::string &kqv = good_[".kqv"];
  RunCapturing([&] {
    for (size_t cut = 0; cut < kqv.size(); cut++) ExerciseEverything(Bad(".kqv", kqv.substr(0, cut)));
    // eventsPerBlock 0, 1 and 0xFFFFFFFF: lists by time are still whole.
    for (const char *epb : {"00000000", "00000001", "FFFFFFFF"}) {
      const std::string bytes = kqv.substr(0, kqv.size() - 4) + HexBytes(epb);
      EXPECT_EQ(ExerciseEverything(Bad(".kqv", bytes)).size(), script_.size()) << epb;
    }
  });
}

TEST_F(DamageTest, IndexEntriesPointingAnywhereDoNoHarm) {
  const std::string &kqi = good_[".kqi"];
  RunCapturing([&] {
    for (const char *position : {"00000000", "00000019", "00000030", "000001F5", "00010000",
                                 "7FFFFFFF", "80000000", "FFFFFFFF"}) {
      for (size_t entry = 0; entry < 2; entry++) {
        std::string bytes = kqi;
        bytes.replace(20 + 13 * entry + 9, 4, HexBytes(position));
        ExerciseEverything(Bad(".kqi", bytes));
      }
    }
  });
}

TEST_F(DamageTest, BytesOfTheStreamChangedDoNoHarm) {
  // Every seventh byte in turn replaced by values that make tags, lengths and
  // counts wrong; only the absence of crashes, leaks and hangs is checked.
  const std::string &kqs = good_[".kqs"];
  RunCapturing([&] {
    for (size_t at = 20; at < kqs.size(); at += 7) {
      for (const char value : {'\x00', '\x03', '\x07', '\xFF'}) {
        std::string bytes = kqs;
        bytes[at] = value;
        ExerciseEverything(Bad(".kqs", bytes));
      }
    }
  });
}

}  // namespace
