// Tests of creating a database and adding events: the worked example pinned
// byte for byte, the empty database, block boundaries at 99, 100 and 101
// events, what the object lists and snapshots of later blocks hold, the
// files as another process sees them after every addition, the process-wide
// event numbers, refusals, a tracker that refuses, and the replacement of
// an old database (its .kqv goes first).  With the files written through
// mappings: a reader in another process sees every event the moment its
// addition returns, and only whole records while the writer runs free.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "database_walk.h"
#include "hex_bytes.h"
#include "indgfile.h"
#include "kq_io.h"
#include "kq_state.h"
#include "kq_tracker.h"
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

// A tracker that makes records of every kind and length; with
// g_pausingTracker it stops for a while in every 40th event, behind some of
// its records, so that a reader has time to find an event half-written.
bool g_pausingTracker = false;
int VariedChanges(kq_DB *db, HT_PT current, HT_PT used, kq_Event *event) {
  const uint32_t n = static_cast<uint32_t>(event->time);
  if (g_pausingTracker && n % 40 == 0) {
    kq_SaveStateChangeMod(db, current, 0, (n + 7) % 13, 0, 1, "P");
    usleep(300);
  }
  const std::string value(n % 7, static_cast<char>('a' + n % 26));
  kq_SaveStateChangeNew(db, current, used, 0, n % 13, static_cast<uint16_t>(value.size()), value.data());
  if (n % 3 == 0) kq_SaveStateChangeMod(db, current, 0, (n + 5) % 13, 0, 1, "M");
  if (n % 5 == 0) kq_SaveStateChangeDel(db, current, 0, (n + 2) % 13);
  return 1;
}

std::string PayloadOf(int i) { return std::string(static_cast<size_t>(i % 25), static_cast<char>(i)); }

// In a child process: a database at base, written through mappings from its
// first seek on, with `events` events, their times 0, 1, ...  After each
// addition, with `notify`, it writes one byte to `notify` and waits for one
// from `ack`; without, it runs free, its tracker pausing now and then.
// Ends with _exit: 0, or 2 when a file wasn't mapped or an addition failed.
pid_t WriteInChild(const std::string &base, int events, int notify, int ack) {
  const pid_t child = fork();
  if (child != 0) return child;
  gf_set_write_mapping_threshold(0);
  g_pausingTracker = notify < 0;
  kq_DB *db = kq_OpenForCreation(base.c_str(), 1000, "x", 1, VariedChanges);
  if (db == nullptr) _exit(2);
  for (int i = 0; i < events; i++) {
    const std::string payload = PayloadOf(i);
    if (kq_AddEventFromRawBytes(db, 0, static_cast<uint32_t>(i), 0x30000u | static_cast<uint32_t>(i % 50),
                                payload.empty() ? nullptr : payload.data(),
                                static_cast<uint32_t>(payload.size())) != 1 ||
        !gf_is_write_mapped(db->streamFile) || !gf_is_write_mapped(db->indexFile)) {
      _exit(2);
    }
    char byte = 'e';
    if (notify >= 0 && (write(notify, &byte, 1) != 1 || read(ack, &byte, 1) != 1)) _exit(2);
  }
  kq_Close(db);
  _exit(0);
}

// A file as read(2) gives it, in as few calls as its size allows: files
// written through mappings grow ahead of their writer in steps of MiBs, and
// a reader beside the writer reads it again and again.
std::string ReadWritten(const std::string &name) {
  std::string bytes;
  const int fd = open(name.c_str(), O_RDONLY);
  if (fd < 0) return bytes;
  struct stat info {};
  if (fstat(fd, &info) == 0) bytes.resize(static_cast<size_t>(info.st_size) + 4096);
  size_t got = 0;
  for (;;) {
    if (got == bytes.size()) bytes.resize(bytes.size() * 2 + 4096);
    const ssize_t n = read(fd, bytes.data() + got, bytes.size() - got);
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  close(fd);
  bytes.resize(got);
  return bytes;
}

// What a reader finds in the files, as a reader in any process does: the
// walks, which stop at the end tags.  The index is read first: it never
// runs ahead of the stream, so every entry it has points at a block of the
// stream read after it.  With a writer at rest (`still`) the two hold the
// same blocks.
size_t EventsSeen(const std::string &base, bool still, std::string *why) {
  const auto index = testsupport::WalkIndex(ReadWritten(base + ".kqi"), false);
  const auto stream = testsupport::WalkStream(ReadWritten(base + ".kqs"), false);
  if (!stream.ok || !index.ok) {
    *why = stream.ok ? "index: " + index.error : "stream: " + stream.error;
    return 0;
  }
  if (index.entries.size() > stream.blocks.size() ||
      (still && index.entries.size() != stream.blocks.size())) {
    *why = "index and stream disagree";
    return 0;
  }
  for (size_t k = 0; k < index.entries.size(); k++) {
    if (index.entries[k].position != stream.blocks[k].position) *why = "index points elsewhere";
  }
  return stream.EventCount();
}

TEST_F(Database, AReaderInAnotherProcessSeesEachEventTheMomentItsAdditionReturns) {
  int toParent[2], toChild[2];
  ASSERT_EQ(pipe(toParent), 0);
  ASSERT_EQ(pipe(toChild), 0);
  const int kEvents = 333;
  const pid_t child = WriteInChild(Base(), kEvents, toParent[1], toChild[0]);
  for (int i = 0; i < kEvents; i++) {
    char byte = 0;
    ASSERT_EQ(read(toParent[0], &byte, 1), 1) << "after event " << i;
    std::string why;
    ASSERT_EQ(EventsSeen(Base(), true, &why), static_cast<size_t>(i + 1)) << "after event " << i << why;
    ASSERT_TRUE(why.empty()) << why;
    const auto stream = testsupport::WalkStream(ReadWritten(Base() + ".kqs"), false);
    ASSERT_EQ(stream.blocks.back().events.back().payload, PayloadOf(i));
    ASSERT_EQ(write(toChild[1], &byte, 1), 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  for (int fd : {toParent[0], toParent[1], toChild[0], toChild[1]}) close(fd);
  // Closed: cut to their length, the end tags the last bytes.
  EXPECT_TRUE(testsupport::WalkStream(Kqs()).ok);
  EXPECT_TRUE(testsupport::WalkIndex(Kqi()).ok);
}

TEST_F(Database, AReaderBesideAWriterThatRunsFreeSeesWholeRecordsOnly) {
  const int kEvents = 8000;
  const pid_t child = WriteInChild(Base(), kEvents, -1, -1);
  size_t last = 0;
  int between = 0;  // reads that found the writer half-way
  for (;;) {
    int status = 0;
    const bool done = waitpid(child, &status, WNOHANG) == child;
    struct stat info {};
    if (stat((Base() + ".kqv").c_str(), &info) == 0) {  // the .kqv comes last: rule (5)
      std::string why;
      const size_t seen = EventsSeen(Base(), false, &why);
      ASSERT_TRUE(why.empty()) << why << " with " << seen << " events";
      ASSERT_GE(seen, last);
      if (seen > 0 && seen < static_cast<size_t>(kEvents)) between++;
      last = seen;
    }
    if (done) {
      ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
      break;
    }
  }
  std::string why;
  EXPECT_EQ(EventsSeen(Base(), true, &why), static_cast<size_t>(kEvents)) << why;
  EXPECT_GT(between, 0);
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
