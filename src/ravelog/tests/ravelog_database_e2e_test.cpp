// End-to-end tests of the database that a conversion writes: the built
// ravelog run on corefiles from the builder, with all three files compared
// byte for byte.  The worked 132-byte log is pinned literally; longer logs
// (blocks, object lists one block late, snapshots in table order, every
// event type, repeated thread records, threads first met in events) are
// compared with the tests' own model of the tracker and the layout
// (database_model.h).  Also: the unknown type that ends a conversion,
// both byte orders, fatal paths and the files they leave, and the
// replacement of an old database.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "corefile_builder.h"
#include "database_model.h"
#include "database_walk.h"
#include "hex_bytes.h"
#include "run_process.h"
#include "temp_dir.h"

using testsupport::Corefile;
using testsupport::Endian;
using testsupport::ExpectDatabase;
using testsupport::GFileHeader;
using testsupport::HexBytes;
using testsupport::Model;
using testsupport::ProcessResult;
using testsupport::ReadWithSyscalls;
using testsupport::TempDir;
using testsupport::ToHex;

using Files = testsupport::DatabaseFiles;

namespace {

const std::string kBinary = RAVELOG_BINARY;

ProcessResult Convert(const TempDir &dir, const Corefile &core, const std::string &base = "db") {
  EXPECT_TRUE(core.WriteTo(dir.file("core")));
  return testsupport::RunProcess(kBinary, {"ravelog", dir.file("core"), dir.file(base)});
}

Files Read(const TempDir &dir, const std::string &base = "db") {
  return {ReadWithSyscalls(dir.file(base + ".kqv")), ReadWithSyscalls(dir.file(base + ".kqs")),
          ReadWithSyscalls(dir.file(base + ".kqi"))};
}

std::vector<std::string> Entries(const TempDir &dir) {
  std::vector<std::string> names;
  for (const auto &entry : std::filesystem::directory_iterator(dir.path()))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

// ---- A log and its model together ------------------------------------------------------

struct LogThread {
  std::string name;
  uint32_t id;
  uint32_t priority;
  uint8_t valid;
};
struct LogEvent {
  uint16_t type;
  uint16_t subtype;
  uint64_t time;                // absolute, as the target wrote it
  std::vector<uint32_t> words;  // the payload, up to five words
};

// Writes the log in one byte order, its events in a ring of `slots` slots
// starting at slot `start`, and feeds the model the same records.
Corefile BuildLog(Endian order, const std::vector<LogThread> &threads,
                  const std::vector<LogEvent> &events, uint32_t slots, uint32_t start, Model *model) {
  Corefile core = Corefile::V2(order, slots * 32);
  core.StartOffset(start * 32).TimerHz(32768);
  for (const LogThread &t : threads) {
    core.Thread(t.name, t.id, t.priority, t.valid);
    if (!t.valid) continue;
    std::string name = t.name;
    name.resize(31, '\0');
    model->Add(0, 6, 10, core.Words({t.id, t.priority}) + name);
  }
  for (size_t i = 0; i < events.size(); i++) {
    const LogEvent &e = events[i];
    std::string payload;
    for (uint32_t w : e.words) payload += core.Word32(w);
    payload.resize(20, '\0');
    const auto slot = static_cast<uint32_t>((start + i) % slots);
    core.Slot(slot * 32, e.type, e.subtype, static_cast<uint32_t>(e.time >> 32),
              static_cast<uint32_t>(e.time), payload);
    model->Add(e.time - events[0].time, e.type, e.subtype, payload);
  }
  return core;
}

// Threads of the list; 0x20002000 comes twice, 0x20003000 isn't valid.
const std::vector<LogThread> kThreads = {
    {"main", 0x20001000, 8, 1},
    {"sensor", 0x20002000, 12, 1},
    {"retired", 0x20003000, 4, 0},
    {"name_with_exactly_thirty_one_ch", 0x20004000, 3, 1},
    {"sensor_v2", 0x20002000, 14, 1},
    {"a_name_longer_than_the_field_of_34", 0x20005000, 1, 1},
    {"", 0x20006000, 30, 1},
};
constexpr uint32_t kFirstMetInSwitch = 0x30000001;
constexpr uint32_t kFirstMetInCall = 0x30000002;
constexpr uint32_t kFirstMetInStatus = 0x30000003;

// `count` events of every type with rising times that carry over the low
// word; fixed choices, so every run is the same log.
std::vector<LogEvent> MixedEvents(size_t count) {
  const uint32_t known[] = {0x20001000, 0x20002000, 0x20004000, 0x20005000, 0x20006000,
                            kFirstMetInSwitch, kFirstMetInCall, kFirstMetInStatus};
  std::vector<LogEvent> events;
  uint32_t seed = 12345;
  auto next = [&seed](uint32_t n) {
    seed = seed * 1103515245u + 12345u;
    return (seed >> 16) % n;
  };
  uint64_t time = 0x00000001FFFFFF00ull;
  for (size_t i = 0; i < count; i++) {
    time += 1 + next(90);
    // The newcomers appear first at fixed places, each in its own kind of event.
    const size_t known_now = i < 7 ? 5 : i < 23 ? 6 : i < 41 ? 7 : 8;
    uint32_t thread = known[next(static_cast<uint32_t>(known_now))];
    LogEvent e{0, 0, time, {}};
    switch (i == 7 ? 10 : i == 23 ? 11 : i == 41 ? 12 : next(10)) {
      case 0: case 1: case 2: e = {1, 0, time, {thread}}; break;
      case 3: case 4: e = {3, static_cast<uint16_t>(next(59)), time, {thread, 0x20003000 + next(8)}}; break;
      case 5: e = {2, static_cast<uint16_t>(next(2) ? 1 : 3), time, {next(64)}}; break;
      case 6: e = {4, static_cast<uint16_t>(next(4)), time, {thread, next(1000)}}; break;
      case 7: e = {5, static_cast<uint16_t>(next(14)), time, {thread, next(3) * 4}}; break;
      case 8: e = {7, 0, time, {}}; break;
      case 9: e = {5, 10, time, {thread, 8}}; break;
      case 10: e = {1, 0, time, {kFirstMetInSwitch}}; break;
      case 11: e = {3, 2, time, {kFirstMetInCall, 0x20003100}}; break;
      default: e = {5, 3, time, {kFirstMetInStatus, 21}}; break;
    }
    events.push_back(e);
  }
  return events;
}

// ---- The worked log, pinned -----------------------------------------------------------

TEST(DatabaseFiles, TheWorkedLogGivesThesePinnedFiles) {
  TempDir dir;
  Corefile core = Corefile::V2(Endian::kBig, 64);
  core.Location(0x00100000).StartOffset(32).TimerHz(1000).Thread("main", 0x1234, 10);
  core.Slot(0, 1, 0, 0, 100, core.Words({0x1234}));
  core.Slot(32, 3, 22, 0, 50, core.Words({0x1234}));
  ProcessResult run = Convert(dir, core);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.status, 0);
  const Files files = Read(dir);
  EXPECT_EQ(ToHex(files.kqv), ToHex(GFileHeader(6) + HexBytes("03 000003E8 00000007 \"threadx\" 01 00000064")));
  const std::string main31 = "main" + std::string(27, '\0');
  EXPECT_EQ(ToHex(files.kqs),
            ToHex(GFileHeader(4) +
                  HexBytes("03 00000000 02 00000000"
                           "01 0000000000000000 00000027 0006 000A 00001234 0000000A") + main31 +
                  HexBytes("00 0000 00001234 004C 000A 01 00 0000000A 01") + main31 + HexBytes("01") +
                  std::string(35, '\0') + HexBytes("03") +
                  HexBytes("01 0000000000000000 00000014 0003 0016 00001234") + std::string(16, '\0') +
                  HexBytes("01 0000 00001234 0000 02 0003  03") +
                  HexBytes("01 0000000000000032 00000014 0001 0000 00001234") + std::string(16, '\0') +
                  HexBytes("01 0000 00001234 0000 02 0000  01 0000 00001234 0000 02 0003  03  00")));
  EXPECT_EQ(ToHex(files.kqi), ToHex(GFileHeader(5) + HexBytes("01 0000000000000000 00000014 00")));
}

// ---- Longer logs against the model ----------------------------------------------------------

TEST(DatabaseFiles, AMixedLogOfThreeBlocksMatchesTheModelInBothByteOrders) {
  const std::vector<LogEvent> events = MixedEvents(260);
  for (Endian order : {Endian::kBig, Endian::kLittle}) {
    SCOPED_TRACE(order == Endian::kBig ? "big-endian" : "little-endian");
    TempDir dir;
    Model model(order == Endian::kBig, 32768);
    Corefile core = BuildLog(order, kThreads, events, 300, 70, &model);
    ProcessResult run = Convert(dir, core);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.status, 0);
    const Files files = Read(dir);
    ExpectDatabase(files, model.Expected());
    // 6 thread records and 260 events: three blocks.
    EXPECT_EQ(files.kqi.size(), 21u + 3 * 13);
    EXPECT_EQ(ToHex(files.kqs.substr(20, 11)), "03 00 00 00 00 02 00 00 00 00 01");
    const auto walk = testsupport::WalkStream(files.kqs);
    ASSERT_TRUE(walk.ok) << walk.error;
    // Block 1 lists every thread that block 0 made, in table order: by
    // bucket (id with its outer bytes exchanged, modulo 29), 0x20001000
    // before 0x30000001 in bucket 10 as it was made first.
    std::vector<uint32_t> ids;
    for (const auto &key : walk.blocks[1].used) ids.push_back(key.second);
    EXPECT_EQ(ids, (std::vector<uint32_t>{0x30000002, 0x20004000, 0x20005000, 0x20001000, 0x30000001,
                                          0x20006000, 0x20002000, 0x30000003}));
  }
}

TEST(DatabaseFiles, BothByteOrdersDifferOnlyInTheFlagAndThePayloads) {
  const std::vector<LogEvent> events = MixedEvents(150);
  Files files[2];
  for (int i = 0; i < 2; i++) {
    TempDir dir;
    Model unused(i == 0, 32768);
    ProcessResult run = Convert(dir, BuildLog(i == 0 ? Endian::kBig : Endian::kLittle, kThreads,
                                              events, 160, 3, &unused));
    EXPECT_EQ(run.status, 0);
    files[i] = Read(dir);
  }
  EXPECT_EQ(files[0].kqi, files[1].kqi);
  ASSERT_EQ(files[0].kqv.size(), 41u);
  ASSERT_EQ(files[1].kqv.size(), 41u);
  EXPECT_EQ(files[0].kqv.substr(0, 36) + files[0].kqv.substr(37),
            files[1].kqv.substr(0, 36) + files[1].kqv.substr(37));
  EXPECT_EQ(files[0].kqv[36], '\1');
  EXPECT_EQ(files[1].kqv[36], '\0');
  ASSERT_EQ(files[0].kqs.size(), files[1].kqs.size());
  const auto walk = testsupport::WalkStream(files[0].kqs);
  ASSERT_TRUE(walk.ok) << walk.error;
  EXPECT_EQ(walk.EventCount(), 6u + 150u);
  const std::string masked[2] = {testsupport::MaskPayloads(files[0].kqs, walk),
                                 testsupport::MaskPayloads(files[1].kqs, walk)};
  EXPECT_NE(files[0].kqs, files[1].kqs);
  EXPECT_TRUE(masked[0] == masked[1]) << "the streams differ outside the payloads";
}

// ---- The conversion's end ----------------------------------------------------------------

TEST(DatabaseFiles, AnUnknownTypeEndsTheConversionAndLeavesTheEventsBefore) {
  TempDir dir;
  std::vector<LogEvent> events = MixedEvents(40);
  events[30] = {8, 1, events[30].time, {0x20001000}};
  Model model(true, 32768);
  std::vector<LogEvent> before(events.begin(), events.begin() + 30);
  Model prefix(true, 32768);
  BuildLog(Endian::kBig, kThreads, before, 64, 0, &prefix);
  ProcessResult run = Convert(dir, BuildLog(Endian::kBig, kThreads, events, 64, 0, &model));
  EXPECT_EQ(run.err,
            "ravelog: warning: libkqv: [UpdateState_ThreadX]: Unrecognized event type (0x8)\n"
            "ravelog: fatal: Unexpected return value from libkqv.\n");
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.status, 1);
  // Everything up to the 0 tag in front of the refused event is as it
  // would be without it; what stands behind that tag is not visible.
  const Files files = Read(dir);
  const Files want = prefix.Expected();
  EXPECT_EQ(files.kqv, want.kqv);
  EXPECT_EQ(files.kqi, want.kqi);
  ASSERT_GE(files.kqs.size(), want.kqs.size());
  EXPECT_TRUE(files.kqs.substr(0, want.kqs.size()) == want.kqs);
  const auto walk = testsupport::WalkStream(files.kqs, false);
  ASSERT_TRUE(walk.ok) << walk.error;
  EXPECT_EQ(walk.EventCount(), 6u + 30u);
}

TEST(DatabaseFiles, ALogWithoutThreadsOrEventsGivesAnEmptyDatabase) {
  TempDir dir;
  ProcessResult run = Convert(dir, Corefile::V2(Endian::kLittle, 64));
  EXPECT_EQ(run.status, 0);
  const Files files = Read(dir);
  EXPECT_EQ(ToHex(files.kqs), ToHex(GFileHeader(4) + HexBytes("00")));
  EXPECT_EQ(ToHex(files.kqi), ToHex(GFileHeader(5) + HexBytes("00")));
  EXPECT_EQ(ToHex(files.kqv), ToHex(GFileHeader(6) + HexBytes("03 000003E8 00000007 \"threadx\" 00 00000064")));
}

TEST(DatabaseFiles, ADumpCutInTheThreadListLeavesTheRecordsSoFar) {
  TempDir dir;
  Model model(true, 32768);
  const std::vector<LogThread> two(kThreads.begin(), kThreads.begin() + 2);
  Corefile whole = BuildLog(Endian::kBig, kThreads, {}, 4, 0, &model);
  Model expected(true, 32768);
  BuildLog(Endian::kBig, two, {}, 4, 0, &expected);
  ASSERT_TRUE(testsupport::WriteFileBytes(dir.file("core"), whole.Bytes().substr(0, 24 + 44 * 2 + 30)));
  ProcessResult run = testsupport::RunProcess(kBinary, {"ravelog", dir.file("core"), dir.file("db")});
  EXPECT_EQ(run.err, "ravelog: fatal: Error reading buffer from corefile.\n");
  EXPECT_EQ(run.status, 1);
  ExpectDatabase(Read(dir), expected.Expected());
}

TEST(DatabaseFiles, ADatabaseThatCannotBeCreatedIsFatal) {
  TempDir dir;
  ProcessResult run = Convert(dir, Corefile::V2(Endian::kBig, 64), "missing/db");
  EXPECT_EQ(run.err, "ravelog: fatal: Failed to create indexed event resource file " +
                         dir.file("missing/db") + ".*.\n");
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(Entries(dir), std::vector<std::string>{"core"});
}

// ---- Replacing an old database -------------------------------------------------------------

TEST(DatabaseFiles, AConversionReplacesAnOldDatabaseOfTheSameName) {
  TempDir dir;
  Model big(true, 32768);
  ASSERT_EQ(Convert(dir, BuildLog(Endian::kBig, kThreads, MixedEvents(230), 256, 9, &big)).status, 0);
  Model small(false, 32768);
  ASSERT_EQ(Convert(dir, BuildLog(Endian::kLittle, kThreads, MixedEvents(12), 16, 0, &small)).status,
            0);
  ExpectDatabase(Read(dir), small.Expected());
}

TEST(DatabaseFiles, TheOldKqvIsGoneWhenTheNewKqsCannotBeMade) {
  TempDir dir;
  Model model(true, 32768);
  ASSERT_EQ(Convert(dir, BuildLog(Endian::kBig, kThreads, MixedEvents(5), 8, 0, &model)).status, 0);
  // Replace the old .kqs with a link into nowhere, which can't be opened.
  ASSERT_EQ(unlink(dir.file("db.kqs").c_str()), 0);
  ASSERT_EQ(symlink(dir.file("gone/x").c_str(), dir.file("db.kqs").c_str()), 0);
  ProcessResult run = Convert(dir, BuildLog(Endian::kBig, kThreads, MixedEvents(5), 8, 0, &model));
  EXPECT_EQ(run.err, "ravelog: fatal: Failed to create indexed event resource file " + dir.file("db") +
                         ".*.\n");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(Entries(dir), (std::vector<std::string>{"core", "db.kqs"}));
}

}  // namespace
