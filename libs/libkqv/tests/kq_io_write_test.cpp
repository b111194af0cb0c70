// Tests of creating a database and adding events: the worked example pinned
// byte for byte, the empty database, block boundaries at 99, 100 and 101
// events, what the object lists and snapshots of later blocks hold, the
// files as another process sees them after every addition, the process-wide
// event numbers, refusals, a tracker that refuses, and the replacement of
// an old database (its .kqv goes first).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "database_walk.h"
#include "hex_bytes.h"
#include "kq_io.h"
#include "kq_misc.h"
#include "temp_dir.h"

using testsupport::HexBytes;
using testsupport::ObjectKey;
using testsupport::ReadWithSyscalls;
using testsupport::TempDir;
using testsupport::ToHex;

namespace {

// ---- Vocabulary --------------------------------------------------------

// The tracker of the database under test; NoChanges unless a test says.
std::function<int(kq_DB *, HT_PT, HT_PT, kq_Event *)> g_tracker;
int Track(kq_DB *db, HT_PT current, HT_PT used, kq_Event *event) {
  return g_tracker ? g_tracker(db, current, used, event) : 1;
}

std::string GFileHeader(int fileType) {
  return HexBytes("7F544F56 00000001 000000") + std::string(1, static_cast<char>(fileType)) +
         HexBytes("00000000 04 00 00 00");
}

class Database : public ::testing::Test {
 protected:
  void TearDown() override {
    kq_Close(db_);
    g_tracker = nullptr;
  }

  std::string Base() const { return dir_.file("db"); }
  void Open(uint8_t bigEndian = 1, const char *config = "ThreadX") {
    db_ = kq_OpenForCreation(Base().c_str(), 1000000, config, bigEndian, Track);
    ASSERT_NE(db_, nullptr);
  }
  int Add(uint64_t time, uint32_t typeWord, const std::string &payload = "") {
    return kq_AddEventFromRawBytes(db_, static_cast<uint32_t>(time >> 32),
                                   static_cast<uint32_t>(time), typeWord,
                                   payload.empty() ? nullptr : payload.data(),
                                   static_cast<uint32_t>(payload.size()));
  }
  void AddMany(int count) {
    for (int i = 0; i < count; i++) ASSERT_EQ(Add(static_cast<uint64_t>(i), 0x40000), 1);
  }
  void Close() {
    kq_Close(db_);
    db_ = nullptr;
  }
  std::string Kqs() const { return ReadWithSyscalls(Base() + ".kqs"); }
  std::string Kqi() const { return ReadWithSyscalls(Base() + ".kqi"); }
  std::string Kqv() const { return ReadWithSyscalls(Base() + ".kqv"); }

  TempDir dir_;
  kq_DB *db_ = nullptr;
};

std::vector<ObjectKey> Sorted(std::vector<ObjectKey> keys) {
  std::sort(keys.begin(), keys.end());
  return keys;
}

std::vector<ObjectKey> KeysOf(const std::vector<testsupport::SnapshotObject> &snapshot) {
  std::vector<ObjectKey> keys;
  for (const auto &object : snapshot) keys.push_back(object.key);
  return Sorted(keys);
}

// ---- The worked example ----------------------------------------------------------

TEST_F(Database, TwoEventsWithoutChangesGiveTheWorkedFiles) {
  Open(1, "ThreadX");
  EXPECT_EQ(Add(5, 0x10000, HexBytes("0000002A")), 1);
  EXPECT_EQ(Add(6, 0x20003), 1);
  Close();
  EXPECT_EQ(ToHex(Kqv()), ToHex(GFileHeader(6) + HexBytes("03 000F4240 00000007 \"threadx\" 01 00000064")));
  EXPECT_EQ(ToHex(Kqs()), ToHex(GFileHeader(4) + HexBytes("03 00000000 02 00000000"
                                                          "01 0000000000000005 00000004 0001 0000 0000002A 03"
                                                          "01 0000000000000006 00000000 0002 0003 03"
                                                          "00")));
  EXPECT_EQ(ToHex(Kqi()), ToHex(GFileHeader(5) + HexBytes("01 0000000000000005 00000014 00")));
  EXPECT_EQ(Kqv().size(), 41u);
  EXPECT_EQ(Kqs().size(), 71u);
  EXPECT_EQ(Kqi().size(), 34u);
}

TEST_F(Database, AnEmptyDatabaseIsTwentyOneBytesOfStreamAndOfIndex) {
  Open(0, "Other-Kernel");
  // Already in the files while the handle is open.
  EXPECT_EQ(ToHex(Kqs()), ToHex(GFileHeader(4) + HexBytes("00")));
  EXPECT_EQ(ToHex(Kqi()), ToHex(GFileHeader(5) + HexBytes("00")));
  EXPECT_EQ(ToHex(Kqv()),
            ToHex(GFileHeader(6) + HexBytes("03 000F4240 0000000C \"other-kernel\" 00 00000064")));
  EXPECT_EQ(db_->headerFile, nullptr);
  EXPECT_STREQ(db_->configName, "Other-Kernel");
  Close();  // a writing handle closes without its .kqv file
  EXPECT_EQ(Kqs().size(), 21u);
  EXPECT_EQ(Kqi().size(), 21u);
}

// ---- Blocks ------------------------------------------------------------------------

TEST_F(Database, BlocksOpenAtTheFirstAndTheHundredAndFirstEvent) {
  // Without changes: block opening 10 bytes, event 18 bytes, end tag 1.
  struct Case {
    int events;
    size_t kqsSize;
    size_t kqiSize;
  } cases[] = {{99, 1813, 34}, {100, 1831, 34}, {101, 1859, 47}};
  for (const Case &c : cases) {
    TempDir dir;
    kq_DB *db = kq_OpenForCreation(dir.file("db").c_str(), 100, "x", 1, Track);
    ASSERT_NE(db, nullptr);
    for (int i = 0; i < c.events; i++) {
      ASSERT_EQ(kq_AddEventFromRawBytes(db, 0, static_cast<uint32_t>(i), 0x40000, nullptr, 0), 1);
    }
    const std::string kqs = ReadWithSyscalls(dir.file("db.kqs"));
    const std::string kqi = ReadWithSyscalls(dir.file("db.kqi"));
    EXPECT_EQ(kqs.size(), c.kqsSize) << c.events;
    EXPECT_EQ(kqi.size(), c.kqiSize) << c.events;
    EXPECT_EQ(kqs.back(), '\0') << c.events;
    if (c.events == 100) {
      EXPECT_EQ(ToHex(kqs.substr(1812)), ToHex(HexBytes("01 0000000000000063 00000000 0004 0000 03 00")));
    }
    if (c.events == 101) {
      EXPECT_EQ(ToHex(kqs.substr(1830)),
                ToHex(HexBytes("03 00000000 02 00000000 01 0000000000000064 00000000 0004 0000 03 00")));
      EXPECT_EQ(ToHex(kqi.substr(33)), ToHex(HexBytes("01 0000000000000064 00000726 00")));
    }
    kq_Close(db);
  }
}

TEST_F(Database, LaterBlocksListWhatTheBlockBeforeUsedAndSnapshotWhatLives) {
  // Event 0 creates A and B; event 150 deletes B and creates C.
  g_tracker = [](kq_DB *db, HT_PT current, HT_PT used, kq_Event *event) {
    if (event->time == 0) {
      kq_SaveStateChangeNew(db, current, used, 1, 0xA, 2, "aa");
      kq_SaveStateChangeNew(db, current, used, 1, 0xB, 0, nullptr);
    }
    if (event->time == 150) {
      kq_SaveStateChangeDel(db, current, 1, 0xB);
      kq_SaveStateChangeNew(db, current, used, 2, 0xC, 1, "c");
    }
    if (event->time == 160) kq_SaveStateChangeMod(db, current, 1, 0xA, 1, 1, "A");
    return 1;
  };
  Open();
  AddMany(401);
  Close();
  const auto walk = testsupport::WalkStream(Kqs());
  ASSERT_TRUE(walk.ok) << walk.error;
  ASSERT_EQ(walk.blocks.size(), 5u);
  const ObjectKey a{1, 0xA}, b{1, 0xB}, c{2, 0xC};
  EXPECT_TRUE(walk.blocks[0].used.empty());
  EXPECT_TRUE(walk.blocks[0].snapshot.empty());
  // Created in block 0: listed and saved in block 1.
  EXPECT_EQ(Sorted(walk.blocks[1].used), (std::vector<ObjectKey>{a, b}));
  EXPECT_EQ(KeysOf(walk.blocks[1].snapshot), (std::vector<ObjectKey>{a, b}));
  // B was deleted in block 1 and stays listed; C was created there.
  EXPECT_EQ(Sorted(walk.blocks[2].used), (std::vector<ObjectKey>{a, b, c}));
  EXPECT_EQ(KeysOf(walk.blocks[2].snapshot), (std::vector<ObjectKey>{a, c}));
  // Alive at the start of block 3 though no event of it touched them.
  EXPECT_EQ(Sorted(walk.blocks[4].used), (std::vector<ObjectKey>{a, c}));
  for (const auto &object : walk.blocks[4].snapshot) {
    EXPECT_EQ(object.value, object.key == a ? "aA" : "c");
  }
  // An object with an empty value takes 10 bytes in a snapshot.
  const std::string kqs = Kqs();
  const std::string emptyB = HexBytes("0001 0000000B 00000000");
  EXPECT_NE(kqs.find(emptyB, walk.blocks[1].position), std::string::npos);

  const auto index = testsupport::WalkIndex(Kqi());
  ASSERT_TRUE(index.ok) << index.error;
  ASSERT_EQ(index.entries.size(), 5u);
  for (size_t k = 0; k < 5; k++) {
    EXPECT_EQ(index.entries[k].position, walk.blocks[k].position);
    EXPECT_EQ(index.entries[k].time, 100 * k);
    EXPECT_EQ(kqs[index.entries[k].position], '\3');
  }
}

// ---- What another process sees ---------------------------------------------------------

TEST_F(Database, AfterEveryAdditionTheFilesEndInZeroTagsBehindWholeRecords) {
  // A tracker that makes records of every kind and length.
  g_tracker = [](kq_DB *db, HT_PT current, HT_PT used, kq_Event *event) {
    const uint32_t n = static_cast<uint32_t>(event->time);
    const std::string value(n % 7, static_cast<char>('a' + n % 26));
    kq_SaveStateChangeNew(db, current, used, 0, n % 13, static_cast<uint16_t>(value.size()), value.data());
    if (n % 3 == 0) kq_SaveStateChangeMod(db, current, 0, (n + 5) % 13, 0, 1, "M");
    if (n % 5 == 0) kq_SaveStateChangeDel(db, current, 0, (n + 2) % 13);
    return 1;
  };
  Open();
  const int kEvents = 333;
  for (int i = 0; i < kEvents; i++) {
    const std::string payload(static_cast<size_t>(i % 25), static_cast<char>(i));
    ASSERT_EQ(Add(static_cast<uint64_t>(i), 0x30000u | static_cast<uint32_t>(i % 50), payload), 1);
    const auto stream = testsupport::WalkStream(Kqs());
    ASSERT_TRUE(stream.ok) << "after event " << i << ": " << stream.error;
    ASSERT_EQ(stream.EventCount(), static_cast<size_t>(i + 1));
    const auto index = testsupport::WalkIndex(Kqi());
    ASSERT_TRUE(index.ok) << "after event " << i << ": " << index.error;
    ASSERT_EQ(index.entries.size(), stream.blocks.size());
    for (size_t k = 0; k < index.entries.size(); k++) {
      ASSERT_EQ(index.entries[k].position, stream.blocks[k].position);
    }
    const auto &last = stream.blocks.back().events.back();
    ASSERT_EQ(last.time, static_cast<uint64_t>(i));
    ASSERT_EQ(last.payload, payload);
  }
}

// ---- Event numbers -------------------------------------------------------------------

TEST_F(Database, EventNumbersGoOnAcrossDatabasesAndDoNotChangeTheFiles) {
  std::vector<uint32_t> numbers;
  g_tracker = [&numbers](kq_DB *, HT_PT, HT_PT, kq_Event *event) {
    numbers.push_back(event->eventNumber);
    return 1;
  };
  Open();
  AddMany(3);
  Close();
  const std::string first = Kqs();
  Open();
  AddMany(3);
  Close();
  ASSERT_EQ(numbers.size(), 6u);
  for (size_t i = 1; i < numbers.size(); i++) EXPECT_EQ(numbers[i], numbers[0] + i);
  EXPECT_EQ(Kqs(), first);
  EXPECT_EQ(numbers[0] + 6, eventIndex);
}

// ---- Refusals -------------------------------------------------------------------------

TEST_F(Database, RefusedCallsLeaveNoTrace) {
  Open();
  const uint32_t before = eventIndex;
  EXPECT_EQ(kq_AddEventFromRawBytes(nullptr, 0, 0, 0x10000, "abcd", 4), 0);
  EXPECT_EQ(kq_AddEventFromRawBytes(db_, 0, 0, 0x10000, nullptr, 4), 0);
  EXPECT_EQ(eventIndex, before);
  EXPECT_EQ(db_->numEvents, 0u);
  EXPECT_EQ(Kqs().size(), 21u);
  EXPECT_EQ(Kqi().size(), 21u);
  EXPECT_EQ(kq_AddEventFromRawBytes(db_, 0, 0, 0x10000, nullptr, 0), 1);  // empty is fine
  kq_Close(nullptr);
}

TEST_F(Database, AnEventTheTrackerRefusesStaysInvisibleAndEarlierOnesStay) {
  g_tracker = [](kq_DB *db, HT_PT current, HT_PT used, kq_Event *event) {
    if (event->type == 9) return 0;
    kq_SaveStateChangeNew(db, current, used, 0, 1, 1, "x");
    return 1;
  };
  Open();
  AddMany(100);
  const std::string kqi = Kqi();
  const uint32_t before = eventIndex;
  EXPECT_EQ(Add(100, 0x90000, "zzzz"), 0);
  EXPECT_EQ(eventIndex, before + 1);  // the number was taken
  const auto walk = testsupport::WalkStream(Kqs(), false);
  ASSERT_TRUE(walk.ok) << walk.error;
  EXPECT_EQ(walk.EventCount(), 100u);
  EXPECT_EQ(Kqi(), kqi);
  Close();
}

// ---- Replacing an old database -----------------------------------------------------------

TEST_F(Database, AnOldDatabaseOfTheSameNameIsReplacedWhole) {
  for (const char *suffix : {".kqs", ".kqi", ".kqv"}) {
    ASSERT_TRUE(testsupport::WriteFileBytes(Base() + suffix, std::string(500, 'o')));
  }
  Open();
  Close();
  EXPECT_EQ(Kqs(), GFileHeader(4) + HexBytes("00"));
  EXPECT_EQ(Kqi(), GFileHeader(5) + HexBytes("00"));
  EXPECT_EQ(Kqv().size(), 41u);
}

TEST_F(Database, TheOldKqvIsGoneBeforeTheNewKqsIsOpened) {
  // The .kqs name can't be opened for writing: a link into nowhere.
  ASSERT_TRUE(testsupport::WriteFileBytes(Base() + ".kqv", "old kqv"));
  ASSERT_TRUE(testsupport::WriteFileBytes(Base() + ".kqi", "old kqi"));
  ASSERT_EQ(symlink(dir_.file("missing/stream").c_str(), (Base() + ".kqs").c_str()), 0);
  EXPECT_EQ(kq_OpenForCreation(Base().c_str(), 1, "x", 1, Track), nullptr);
  EXPECT_FALSE(testsupport::FileExists(Base() + ".kqv"));
  EXPECT_FALSE(testsupport::FileExists(Base() + ".kqi"));
  struct stat link {};
  EXPECT_EQ(lstat((Base() + ".kqs").c_str(), &link), 0);

  // A .kqs that can't be removed stops the open after the .kqv went.
  TempDir other;
  const std::string base = other.file("db");
  ASSERT_TRUE(testsupport::WriteFileBytes(base + ".kqv", "old kqv"));
  ASSERT_EQ(mkdir((base + ".kqs").c_str(), 0700), 0);
  EXPECT_EQ(kq_OpenForCreation(base.c_str(), 1, "x", 1, Track), nullptr);
  EXPECT_FALSE(testsupport::FileExists(base + ".kqv"));
  EXPECT_TRUE(testsupport::FileExists(base + ".kqs"));
}

TEST_F(Database, NamesThatCannotBeCreatedFailWithoutAHandle) {
  EXPECT_EQ(kq_OpenForCreation(dir_.file("missing/db").c_str(), 1, "x", 1, Track), nullptr);
  EXPECT_EQ(kq_OpenForCreation(nullptr, 1, "x", 1, Track), nullptr);
  EXPECT_FALSE(testsupport::FileExists(dir_.file("missing")));
}

}  // namespace
