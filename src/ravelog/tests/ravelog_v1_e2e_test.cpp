// End-to-end tests of version 1 logs: the built ravelog run on corefiles
// made by the builder, comparing standard output, standard error, exit
// status and the three database files exactly.  Pools of zero bytes, in
// rising order, filled exactly, wrapped with the oldest record in the
// middle or with a record that wraps after its length byte; the drop test
// and a first record at 0:0; payloads shorter than the tracker's words; a
// long wrapped log with blocks and snapshots, in both byte orders; cut and
// malformed pools; the shipped samples.
//
// Each case states its whole outcome in a Conversion.  The expected files
// come from the tests' model of the database (database_model.h), fed with
// the thread records and the events the walk should send, in walk order
// with their settled times; a fatal case expects the files as they stood
// when the process ended.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "corefile_builder.h"
#include "database_model.h"
#include "database_walk.h"
#include "hex_bytes.h"
#include "run_process.h"
#include "temp_dir.h"

using testsupport::Corefile;
using testsupport::DatabaseFiles;
using testsupport::Endian;
using testsupport::HexBytes;
using testsupport::Model;
using testsupport::ProcessResult;
using testsupport::TempDir;
using testsupport::ToHex;

namespace {

const std::string kBinary = RAVELOG_BINARY;

// Everything a run of ravelog shows.
struct Conversion {
  std::string out;
  std::string err;
  int status;
  DatabaseFiles database;  // as the files stand when the process has ended
};

// Runs `ravelog [-d] core db` in a fresh directory, checks the outcome and
// returns the database's files.
DatabaseFiles ExpectConversion(const Corefile &core, bool with_debug, const Conversion &expected) {
  TempDir dir;
  EXPECT_TRUE(core.WriteTo(dir.file("core")));
  std::vector<std::string> argv{kBinary};
  if (with_debug) argv.push_back("-d");
  argv.push_back(dir.file("core"));
  argv.push_back(dir.file("db"));
  const ProcessResult run = testsupport::RunProcess(kBinary, argv);
  EXPECT_EQ(run.out, expected.out);
  EXPECT_EQ(run.err, expected.err);
  EXPECT_EQ(run.status, expected.status);
  DatabaseFiles files = testsupport::ReadDatabase(dir.file("db"));
  testsupport::ExpectDatabase(files, expected.database);
  return files;
}

// One record that a conversion hands to the database.
struct Sent {
  uint64_t time;  // settled
  uint16_t type;
  uint16_t subtype;
  std::string payload;
};

// The database of a conversion of `core` (timer frequency 1000 Hz) that
// added `records` in this order.
DatabaseFiles DatabaseOf(const Corefile &core, const std::vector<Sent> &records) {
  Model model(core.big_endian(), 1000);
  for (const Sent &r : records) model.Add(r.time, r.type, r.subtype, r.payload);
  return model.Expected();
}

// The thread record of a valid thread list entry: ID and priority in the
// log's byte order, the name's first 31 bytes.
Sent ThreadRecord(const Corefile &core, std::string name, uint32_t id, uint32_t priority) {
  name.resize(31, '\0');
  return {0, 6, 10, core.Words({id, priority}) + name};
}
Sent MainRecord(const Corefile &core) { return ThreadRecord(core, "main", 0x1234, 10); }

const std::string kThreadHeading =
    "Thread List Section\n"
    "valid Next priority Thread ID  Thread name\n"
    "----- ---- -------- ---------- -------------------------------\n";
const std::string kEventsHeading =
    "\nEvents Section\n"
    "Thread ID  Event                                 Type:Sub Event time         \n"
    "---------- ------------------------------------- -------- -------------------\n";
const std::string kMain = "  1    0      10    0x00001234 main\n";
const std::string kVerify = "\nVerify that the correct target memory region was saved.\n";
const std::string kBadRecord = "ravelog: fatal: Bad event record at offset ";

// ---- Pools that decode ----------------------------------------------------------

TEST(V1Pool, OfZeroBytesOnlyGivesNoEventsAndStartsAtZero) {
  Corefile core = Corefile::V1(Endian::kBig, 40);
  core.Thread("main", 0x1234, 10);
  ExpectConversion(core, true,
                   {kThreadHeading + kMain + "Starttime is 0:0.\n" + kEventsHeading, "", 0,
                    DatabaseOf(core, {MainRecord(core)})});
}

// Three records from offset 0, zero bytes behind them.
Corefile RisingWithZerosBehind() {
  Corefile core = Corefile::V1(Endian::kLittle, 64);
  core.Thread("main", 0x1234, 10);
  core.AppendRecord(4, 0, 0, 0x100, core.Words({0x1234}));
  core.AppendRecord(7, 0, 0, 0x180);
  core.AppendRecord(3, 0x14, 0, 0x1f0, core.Words({0x1234, 0x20003000}));
  return core;
}

TEST(V1Pool, InRisingOrderWithZerosBehindStartsAtItsFirstRecord) {
  const Corefile core = RisingWithZerosBehind();
  // The service call makes main, at 10 from its thread record, running.
  const DatabaseFiles database = DatabaseOf(core, {MainRecord(core),
                                                   {0, 4, 0, core.Words({0x1234})},
                                                   {0x80, 7, 0, ""},
                                                   {0xf0, 3, 0x14, core.Words({0x1234, 0x20003000})}});
  ExpectConversion(core, true,
                   {kThreadHeading + kMain +
                    "Event (Type 4:0) time was: 0:100\n"
                    "Event (Type 7:0) time was: 0:180\n"
                    "Event (Type 3:20) time was: 0:1f0\n"
                    "Starttime is 0:100.\n" +
                    kEventsHeading +
                    "Sending event of type 0x4:0x0 time 0:0\n"
                    "Sending event of type 0x7:0x0 time 0:80\n"
                    "Sending event of type 0x3:0x14 time 0:f0\n",
                    "", 0, database});
  ExpectConversion(core, false, {"", "", 0, database});
}

TEST(V1Pool, FilledExactlyIsWalkedFromItsStart) {
  Corefile core = Corefile::V1(Endian::kBig, 47);
  core.AppendRecord(1, 0, 5, 0xfffffff0u, core.Words({0x20002100}));
  core.AppendRecord(2, 1, 6, 0x10, core.Words({0x13}));
  core.AppendRecord(7, 0, 6, 0x20);
  ASSERT_EQ(core.RecordEnd(), 0u);
  ExpectConversion(core, true,
                   {kThreadHeading +
                    "Event (Type 1:0) time was: 5:fffffff0\n"
                    "Event (Type 2:1) time was: 6:10\n"
                    "Event (Type 7:0) time was: 6:20\n"
                    "Starttime is 5:fffffff0.\n" +
                    kEventsHeading +
                    "Sending event of type 0x1:0x0 time 0:0\n"
                    "Context Switch to task 20002100.\n"
                    "Sending event of type 0x2:0x1 time 0:20\n"
                    "Sending event of type 0x7:0x0 time 0:30\n",
                    "", 0,
                    DatabaseOf(core, {{0, 1, 0, core.Words({0x20002100})},
                                      {0x20, 2, 1, core.Words({0x13})},
                                      {0x30, 7, 0, ""}})});
}

// Newer records at offsets 0 and 17, filler, the oldest record at 32, then
// two more and filler up to the pool's end.
Corefile WrappedInTheMiddle(Endian order) {
  Corefile core = Corefile::V1(order, 88);
  core.Thread("main", 0x1234, 10).Thread("idle", 0x2000, 31, 0, 1);
  core.AppendRecord(1, 0, 0, 0x300, core.Words({0x1234})).AppendRecord(7, 0, 0, 0x310);
  core.Record(32, 3, 0x14, 0, 0x100, core.Words({0x1234, 2}));
  core.AppendRecord(5, 4, 0, 0x180, core.Words({0x1234, 10})).AppendRecord(7, 0, 0, 0x200);
  return core;
}

std::string WrappedListing(const std::string &task_bytes) {
  return kThreadHeading + kMain + "  0    1      31    0x00002000 idle\n" +
         "Event (Type 1:0) time was: 0:300\n"
         "Event (Type 7:0) time was: 0:310\n"
         "Breaking out of loop.\n"
         "Starttime is 0:100.\n" +
         kEventsHeading +
         "Sending event of type 0x3:0x14 time 0:0\n"
         "Sending event of type 0x5:0x4 time 0:80\n"
         "Sending event of type 0x7:0x0 time 0:100\n"
         "Sending event of type 0x1:0x0 time 0:200\n"
         "Context Switch to task " + task_bytes + ".\n" +
         "Sending event of type 0x7:0x0 time 0:210\n";
}

// What the walk of WrappedInTheMiddle sends: idle isn't valid; main goes
// from 10 to running, to 4 (priority 10 as before) and running again.
DatabaseFiles WrappedDatabase(const Corefile &core) {
  return DatabaseOf(core, {MainRecord(core),
                           {0, 3, 0x14, core.Words({0x1234, 2})},
                           {0x80, 5, 4, core.Words({0x1234, 10})},
                           {0x100, 7, 0, ""},
                           {0x200, 1, 0, core.Words({0x1234})},
                           {0x210, 7, 0, ""}});
}

TEST(V1Pool, WrappedIsWalkedFromTheOldestRecordAndListsAlikeInBothByteOrders) {
  // Only the context switch line differs: it shows the bytes as they stand.
  const Corefile big = WrappedInTheMiddle(Endian::kBig);
  const Corefile little = WrappedInTheMiddle(Endian::kLittle);
  ExpectConversion(big, true, {WrappedListing("00001234"), "", 0, WrappedDatabase(big)});
  ExpectConversion(little, true, {WrappedListing("34120000"), "", 0, WrappedDatabase(little)});
}

TEST(V1Pool, LengthByteInTheLastPlaceHasItsHeadAtThePoolsStart) {
  // The scan reads the wrapped record's head at offset 0 as two short
  // records and is back in step at offset 16; the walk wraps after the
  // length byte at 63 and reads the head at 0.
  Corefile core = Corefile::V1(Endian::kBig, 64);
  core.Record(63, 4, 0, 0, 4, core.Words({0x1234}));
  core.AppendRecord(1, 0, 0, 0x50000, core.Words({0x1234}));
  core.Record(36, 2, 1, 0, 1).AppendRecord(3, 0x16, 0, 2, "\xab");
  ExpectConversion(core, true,
                   {kThreadHeading +
                    "Event (Type 0:0) time was: 0:40000\n"
                    "Event (Type 0:4660) time was: 10000100:0\n"
                    "Event (Type 1:0) time was: 0:50000\n"
                    "Breaking out of loop.\n"
                    "Starttime is 0:1.\n" +
                    kEventsHeading +
                    "Sending event of type 0x2:0x1 time 0:0\n"
                    "Sending event of type 0x3:0x16 time 0:1\n"
                    "Sending event of type 0x4:0x0 time 0:3\n"
                    "Sending event of type 0x1:0x0 time 0:4ffff\n"
                    "Context Switch to task 00001234.\n",
                    "", 0,
                    // A service call of one payload byte names no thread.
                    DatabaseOf(core, {{0, 2, 1, ""},
                                      {1, 3, 0x16, "\xab"},
                                      {3, 4, 0, core.Words({0x1234})},
                                      {0x4ffff, 1, 0, core.Words({0x1234})}})});
}

TEST(V1Pool, ContextSwitchShorterThanAThreadIdShowsZeroForTheMissingBytes) {
  // The second record ends at the pool's end: nothing behind it is read.
  Corefile core = Corefile::V1(Endian::kBig, 28);
  core.AppendRecord(1, 0, 0, 1).AppendRecord(1, 0, 0, 2, "\xab\xcd");
  ASSERT_EQ(core.RecordEnd(), 0u);
  ExpectConversion(core, true,
                   {kThreadHeading +
                    "Event (Type 1:0) time was: 0:1\n"
                    "Event (Type 1:0) time was: 0:2\n"
                    "Starttime is 0:1.\n" +
                    kEventsHeading +
                    "Sending event of type 0x1:0x0 time 0:0\n"
                    "Context Switch to task 00000000.\n"
                    "Sending event of type 0x1:0x0 time 0:1\n"
                    "Context Switch to task abcd0000.\n",
                    "", 0,
                    // Neither names a thread: no Task.
                    DatabaseOf(core, {{0, 1, 0, ""}, {1, 1, 0, "\xab\xcd"}})});
}

// ---- Times --------------------------------------------------------------------

TEST(V1Times, DropIsJudgedAgainstTheFirstRecordAndAFallAboveItIsAReversal) {
  Corefile core = Corefile::V1(Endian::kBig, 80);
  core.AppendRecord(4, 0, 0, 0x100).AppendRecord(4, 1, 0, 0x300).AppendRecord(4, 2, 0, 0x200);
  core.AppendRecord(4, 3, 0, 0x50).AppendRecord(4, 4, 0, 0x80);
  const std::string reversal =
      "Error: Timestamp reverses from 0x0:2b0 to 0x0:1b0 \n\tfor event of type 0x4:0x2.\n";
  // The reversed event keeps the time before it.
  const DatabaseFiles database = DatabaseOf(
      core, {{0, 4, 3, ""}, {0x30, 4, 4, ""}, {0xb0, 4, 0, ""}, {0x2b0, 4, 1, ""}, {0x2b0, 4, 2, ""}});
  ExpectConversion(core, true,
                   {kThreadHeading +
                    "Event (Type 4:0) time was: 0:100\n"
                    "Event (Type 4:1) time was: 0:300\n"
                    "Event (Type 4:2) time was: 0:200\n"
                    "Breaking out of loop.\n"
                    "Starttime is 0:50.\n" +
                    kEventsHeading +
                    "Sending event of type 0x4:0x3 time 0:0\n"
                    "Sending event of type 0x4:0x4 time 0:30\n"
                    "Sending event of type 0x4:0x0 time 0:b0\n"
                    "Sending event of type 0x4:0x1 time 0:2b0\n" +
                    reversal + "Sending event of type 0x4:0x2 time 0:2b0\n",
                    "", 0, database});
  ExpectConversion(core, false, {reversal, "", 0, database});
}

TEST(V1Times, FirstRecordAtZeroLeavesTheStartToTheNextAndWrapsToAHugeTime) {
  Corefile core = Corefile::V1(Endian::kLittle, 60);
  core.AppendRecord(4, 0, 0, 0).AppendRecord(4, 1, 0, 0x10).AppendRecord(4, 2, 0, 0x20);
  ExpectConversion(
      core, true,
      {kThreadHeading +
       "Event (Type 4:0) time was: 0:0\n"
       "Event (Type 4:1) time was: 0:10\n"
       "Event (Type 4:2) time was: 0:20\n"
       "Starttime is 0:10.\n" +
       kEventsHeading +
       "Sending event of type 0x4:0x0 time ffffffff:fffffff0\n"
       "Error: Timestamp reverses from 0xffffffff:fffffff0 to 0x0:0 \n\tfor event of type 0x4:0x1.\n"
       "Sending event of type 0x4:0x1 time ffffffff:fffffff0\n"
       "Error: Timestamp reverses from 0xffffffff:fffffff0 to 0x0:10 \n\tfor event of type 0x4:0x2.\n"
       "Sending event of type 0x4:0x2 time ffffffff:fffffff0\n",
       "", 0,
       DatabaseOf(core, {{0xfffffffffffffff0, 4, 0, ""},
                         {0xfffffffffffffff0, 4, 1, ""},
                         {0xfffffffffffffff0, 4, 2, ""}})});
}

// ---- Payloads of any length, and blocks ----------------------------------------

TEST(V1Tracking, ShortPayloadsRecordOnlyWhatTheyHold) {
  Corefile core = Corefile::V1(Endian::kLittle, 480);
  core.Thread("main", 0x1234, 10);
  const std::string thirty_one = "a_name_of_exactly_thirty_one_ch";
  // Written at 0x10 + the settled time, so the first is at 0.
  const std::vector<Sent> events = {
      {0, 5, 4, core.Words({0x1234})},                       // status, no priority
      {1, 5, 10, "\x34\x12"},                                 // no thread ID: nothing
      {2, 6, 7, core.Words({0x5678})},                        // a new thread, no priority
      {3, 6, 10, core.Words({0x5678, 20}) + "wor"},           // priority and a 3-byte name
      {4, 6, 10, core.Words({0x1234, 10}) + "ma"},            // "ma" begins "main": kept
      {5, 5, 3, core.Words({0x5678}) + "\x01\x02\x03"},       // 7 bytes: no priority
      {6, 1, 0, std::string("\x78\x56\x00", 3)},              // no thread ID: nothing
      {7, 3, 1, core.Words({0x9abc})},                        // a new running thread
      {8, 6, 10, core.Words({0x1234, 10}) + thirty_one + "xyz"},  // 31 name bytes, no terminator
      {9, 5, 10, ""},                                         // length 12, empty payload
      {10, 4, 0, std::string(243, '\xee')},                   // length 255
  };
  std::vector<Sent> sent = {MainRecord(core)};
  for (const Sent &e : events) {
    core.AppendRecord(e.type, e.subtype, 0, static_cast<uint32_t>(0x10 + e.time), e.payload);
    sent.push_back(e);
  }
  ASSERT_EQ(core.RecordEnd(), 473u);
  TempDir dir;
  ASSERT_TRUE(core.WriteTo(dir.file("core")));
  const ProcessResult run = testsupport::RunProcess(kBinary, {kBinary, dir.file("core"), dir.file("db")});
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.status, 0);
  const DatabaseFiles files = testsupport::ReadDatabase(dir.file("db"));
  testsupport::ExpectDatabase(files, DatabaseOf(core, sent));

  // The changes of some events, pinned: events[i] is event i + 1 behind the
  // thread record.
  const auto walk = testsupport::WalkStream(files.kqs);
  ASSERT_TRUE(walk.ok) << walk.error;
  ASSERT_EQ(walk.blocks.size(), 1u);
  const auto &got = walk.blocks[0].events;
  ASSERT_EQ(got.size(), 12u);
  const std::string zeros31(31, '\0'), zeros35(35, '\0');
  EXPECT_EQ(ToHex(got[1].changes), ToHex(HexBytes("01 0000 00001234 0000 02 0004")));
  EXPECT_EQ(got[2].changes, "");
  EXPECT_EQ(ToHex(got[3].changes),
            ToHex(HexBytes("00 0000 00005678 004C 0007 01 00 FFFFFFFF 00") + zeros31 + HexBytes("01") + zeros35));
  EXPECT_EQ(ToHex(got[4].changes), ToHex(HexBytes("01 0000 00005678 0000 02 000A"
                                                  "01 0000 00005678 0004 04 00000014"
                                                  "01 0000 00005678 0008 01 01"
                                                  "01 0000 00005678 0009 04 \"wor\" 00")));
  EXPECT_EQ(ToHex(got[5].changes), ToHex(HexBytes("01 0000 00001234 0000 02 000A")));
  EXPECT_EQ(ToHex(got[6].changes), ToHex(HexBytes("01 0000 00005678 0000 02 000B")));
  EXPECT_EQ(got[7].changes, "");
  EXPECT_EQ(ToHex(got[8].changes),
            ToHex(HexBytes("00 0000 00009ABC 004C 0003 01 00 FFFFFFFF 00") + zeros31 + HexBytes("00") + zeros35));
  EXPECT_EQ(ToHex(got[9].changes), ToHex(HexBytes("01 0000 00001234 0009 1F") + thirty_one));
  EXPECT_EQ(got[10].payload, "");
  EXPECT_EQ(got[10].changes, "");
  EXPECT_EQ(got[11].payload.size(), 243u);
}

// A record of a longer log: its payload is the words in the log's byte
// order, then `tail`, cut to `keep` bytes when keep isn't -1.
struct RingRecord {
  uint16_t type;
  uint16_t subtype;
  uint64_t time;  // as the target wrote it
  std::vector<uint32_t> words;
  std::string tail;
  int keep = -1;
};

std::string PayloadOf(const Corefile &core, const RingRecord &r) {
  std::string payload;
  for (uint32_t w : r.words) payload += core.Word32(w);
  payload += r.tail;
  if (r.keep >= 0) payload.resize(static_cast<size_t>(r.keep));
  return payload;
}

// `count` records of every type in rising time order, with times that carry
// over the low word and payloads from 0 to 243 bytes long; a fixed
// seed, so every run is the same log.
std::vector<RingRecord> RingRecords(size_t count) {
  const uint32_t threads[] = {0x20001000, 0x20002000, 0x20004000, 0x30000001, 0x30000002};
  const std::string names[] = {"sensor", "sens", "sensor_renamed", "a_name_of_exactly_thirty_one_ch",
                               "a_name_longer_than_thirty_one_bytes", ""};
  uint32_t seed = 4711;
  auto next = [&seed](uint32_t n) {
    seed = seed * 1103515245u + 12345u;
    return (seed >> 16) % n;
  };
  auto bytes = [&next](uint32_t n) {
    std::string out;
    for (uint32_t i = 0; i < n; i++) out += static_cast<char>(next(256));
    return out;
  };
  std::vector<RingRecord> records;
  uint64_t time = 0x00000001FFFFF000ull;
  for (size_t i = 0; i < count; i++) {
    time += 1 + next(90);
    const uint32_t thread = threads[next(5)];
    RingRecord r{7, 0, time, {}, ""};
    switch (i == 57 ? 9 : next(9)) {
      case 0: case 1:
        r = {1, 0, time, {thread}, "", next(6) == 0 ? static_cast<int>(next(4)) : -1};
        break;
      case 2: r = {3, static_cast<uint16_t>(next(59)), time, {thread, next(8)}, bytes(next(6))}; break;
      case 3: r = {2, static_cast<uint16_t>(next(2) ? 1 : 3), time, {next(64)}, ""}; break;
      case 4: r = {4, static_cast<uint16_t>(next(4)), time, {thread, next(1000)}, bytes(next(40))}; break;
      case 5:
        r = {5, static_cast<uint16_t>(next(14)), time, {thread, next(3) * 4}, "",
             next(4) == 0 ? static_cast<int>(4 + next(4)) : -1};
        break;
      case 6: {
        const std::string &name = names[next(6)];
        r = {6, static_cast<uint16_t>(next(2) ? 10 : next(12)), time, {thread, next(3) * 4}, name,
             next(3) == 0 ? static_cast<int>(next(9 + static_cast<uint32_t>(name.size()))) : -1};
        break;
      }
      case 7: break;  // a timer, length 12
      case 8: r = {5, 10, time, {thread, 8}, ""}; break;
      default: r = {4, 0, time, {thread}, bytes(239)}; break;  // length 255
    }
    records.push_back(r);
  }
  return records;
}

// Writes `records` into a version 1 pool as a ring whose oldest record
// stands a third into the pool: end to end with zero bytes now and then
// between them; a record that wouldn't end by the pool's end goes to
// offset 0, with zero bytes behind the one before.  The pool has room for
// 300 bytes more than the records and the zero bytes between them.  The thread list is main, sensor, a retired
// thread and one with a name of 31 characters.  `sent` receives what the
// conversion should add: the thread records, then the records in time
// order, timed from the first.
Corefile RingLog(Endian order, const std::vector<RingRecord> &records, std::vector<Sent> *sent) {
  auto gap_behind = [](size_t i) { return i % 7 == 3 ? 1 + static_cast<uint32_t>(i % 3) : 0u; };
  uint32_t pool_size = 300;
  for (size_t i = 0; i < records.size(); i++)
    pool_size += static_cast<uint32_t>(13 + PayloadOf(Corefile::V1(order, 0), records[i]).size()) + gap_behind(i);
  const uint32_t start = pool_size / 3;
  Corefile core = Corefile::V1(order, pool_size);
  core.Thread("main", 0x20001000, 8).Thread("sensor", 0x20002000, 12).Thread("retired", 0x20003000, 4, 0);
  core.Thread("name_with_exactly_thirty_one_ch", 0x20004000, 3);
  *sent = {ThreadRecord(core, "main", 0x20001000, 8), ThreadRecord(core, "sensor", 0x20002000, 12),
           ThreadRecord(core, "name_with_exactly_thirty_one_ch", 0x20004000, 3)};
  uint32_t at = start;
  bool wrapped = false;
  for (size_t i = 0; i < records.size(); i++) {
    const RingRecord &r = records[i];
    const std::string payload = PayloadOf(core, r);
    const auto size = static_cast<uint32_t>(13 + payload.size());
    if (at + size > pool_size) {
      EXPECT_FALSE(wrapped) << "the records don't fit the pool";
      at = 0;
      wrapped = true;
    }
    core.Record(at, r.type, r.subtype, static_cast<uint32_t>(r.time >> 32), static_cast<uint32_t>(r.time),
                payload);
    at += size + gap_behind(i);
    sent->push_back({r.time - records[0].time, r.type, r.subtype, payload});
  }
  EXPECT_TRUE(wrapped && at <= start) << "the ring must wrap and end before its oldest record";
  return core;
}

TEST(V1Database, ALongWrappedLogHasBlocksAndSnapshotsAndMatchesTheModelInBothByteOrders) {
  const std::vector<RingRecord> records = RingRecords(230);
  // The log holds the payloads it is meant to try.
  size_t no_thread = 0, no_priority = 0, cut_names = 0, empty = 0, longest = 0;
  for (const RingRecord &r : records) {
    const size_t size = PayloadOf(Corefile::V1(Endian::kBig, 0), r).size();
    const bool reads_thread = r.type == 1 || r.type == 3 || r.type == 5 || r.type == 6;
    no_thread += reads_thread && size < 4;
    no_priority += (r.type == 5 || r.type == 6) && size >= 4 && size < 8;
    cut_names += r.type == 6 && size > 8 && size < 8 + r.tail.size();
    empty += size == 0;
    longest += size == 243;
  }
  EXPECT_GE(no_thread, 3u);
  EXPECT_GE(no_priority, 3u);
  EXPECT_GE(cut_names, 2u);
  EXPECT_GE(empty, 10u);
  EXPECT_EQ(longest, 1u);
  for (Endian order : {Endian::kBig, Endian::kLittle}) {
    SCOPED_TRACE(order == Endian::kBig ? "big-endian" : "little-endian");
    std::vector<Sent> sent;
    const Corefile core = RingLog(order, records, &sent);
    const DatabaseFiles files = ExpectConversion(core, false, {"", "", 0, DatabaseOf(core, sent)});
    // 3 thread records and 230 events: three blocks.
    const auto walk = testsupport::WalkStream(files.kqs);
    ASSERT_TRUE(walk.ok) << walk.error;
    ASSERT_EQ(walk.blocks.size(), 3u);
    EXPECT_EQ(walk.blocks[2].events.size(), 33u);
    EXPECT_EQ(files.kqi.size(), 21u + 3 * 13);
    // Block 1's snapshot holds the three threads of the list and the two
    // first met in events, with their names and priorities as they stood.
    EXPECT_EQ(walk.blocks[1].snapshot.size(), 5u);
  }
}

TEST(V1Database, BothByteOrdersDifferOnlyInTheFlagAndThePayloads) {
  const std::vector<RingRecord> records = RingRecords(150);
  DatabaseFiles files[2];
  for (int i = 0; i < 2; i++) {
    std::vector<Sent> unused;
    TempDir dir;
    const Corefile core = RingLog(i == 0 ? Endian::kBig : Endian::kLittle, records, &unused);
    ASSERT_TRUE(core.WriteTo(dir.file("core")));
    ASSERT_EQ(testsupport::RunProcess(kBinary, {kBinary, dir.file("core"), dir.file("db")}).status, 0);
    files[i] = testsupport::ReadDatabase(dir.file("db"));
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
  EXPECT_EQ(walk.EventCount(), 3u + 150u);
  EXPECT_NE(files[0].kqs, files[1].kqs);
  EXPECT_TRUE(testsupport::MaskPayloads(files[0].kqs, walk) == testsupport::MaskPayloads(files[1].kqs, walk))
      << "the streams differ outside the payloads";
}

// ---- Cut and malformed logs ------------------------------------------------------

TEST(V1Malformed, CutShortFilesEndInTheReadersOrThePoolsMessage) {
  const Corefile core = RisingWithZerosBehind();
  const std::string whole = core.Bytes();  // 28 + 44 + 64 bytes
  // Cut in the header: no database yet.  Cut later: the database as it
  // stood, unclosed, with the thread records read so far and no event.
  const DatabaseFiles empty = DatabaseOf(core, {});
  const DatabaseFiles threads = DatabaseOf(core, {MainRecord(core)});
  struct Case {
    size_t keep;
    std::string out, err;
    const DatabaseFiles *database;
  } cases[] = {
      {3, "", "ravelog: fatal: Error reading short from corefile.\n", nullptr},
      {27, "", "ravelog: fatal: Error reading int4 from corefile.\n", nullptr},
      {62, kThreadHeading, "ravelog: fatal: Error reading char from corefile.\n", &empty},
      {72, kThreadHeading + kMain, "ravelog: fatal: Error reading in event pool.\n", &threads},
      {135, kThreadHeading + kMain, "ravelog: fatal: Error reading in event pool.\n", &threads},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.keep);
    TempDir dir;
    ASSERT_TRUE(testsupport::WriteFileBytes(dir.file("core"), whole.substr(0, c.keep)));
    const ProcessResult run =
        testsupport::RunProcess(kBinary, {kBinary, "-d", dir.file("core"), dir.file("db")});
    EXPECT_EQ(run.out, c.out);
    EXPECT_EQ(run.err, c.err);
    EXPECT_EQ(run.status, 1);
    if (c.database != nullptr) {
      testsupport::ExpectDatabase(testsupport::ReadDatabase(dir.file("db")), *c.database);
    } else {
      for (const char *suffix : {".kqv", ".kqs", ".kqi"})
        EXPECT_FALSE(testsupport::FileExists(dir.file("db") + suffix)) << suffix;
    }
  }
}

TEST(V1Malformed, LengthBelowTwelveIsRefusedWhereTheWalkMeetsIt) {
  Corefile core = Corefile::V1(Endian::kBig, 32);
  core.AppendRecord(4, 0, 0, 0x10).AppendRecord(4, 1, 0, 5, "", 5);
  ExpectConversion(core, true,
                   {kThreadHeading +
                    "Event (Type 4:0) time was: 0:10\n"
                    "Breaking out of loop.\n"
                    "Starttime is 0:5.\n" +
                    kEventsHeading,
                    kBadRecord + "13 of the event pool: its length 5 is below 12." + kVerify, 1,
                    DatabaseOf(core, {})});
}

TEST(V1Malformed, HeadPastThePoolsEndIsRefusedByTheScan) {
  // A nonzero length byte in the last place, and one whose head would end
  // a byte behind the pool.
  for (const uint32_t at : {31u, 20u}) {
    SCOPED_TRACE(at);
    Corefile core = Corefile::V1(Endian::kLittle, 32);
    core.AppendRecord(4, 0, 0, 0x10).PoolBytes(at, "\x0c");
    ExpectConversion(core, true,
                     {kThreadHeading + "Event (Type 4:0) time was: 0:10\n",
                      kBadRecord + std::to_string(at) +
                          " of the event pool: it runs past the end of the pool of 32 bytes." + kVerify,
                      1, DatabaseOf(core, {})});
  }
}

TEST(V1Malformed, PayloadPastThePoolsEndIsRefusedByTheScanAndByTheWalk) {
  Corefile scan = Corefile::V1(Endian::kLittle, 40);
  scan.AppendRecord(4, 0, 0, 0x10).Record(20, 4, 1, 0, 0x20, "", 30);
  ExpectConversion(scan, true,
                   {kThreadHeading + "Event (Type 4:0) time was: 0:10\n",
                    kBadRecord + "20 of the event pool: it runs past the end of the pool of 40 bytes." +
                        kVerify,
                    1, DatabaseOf(scan, {})});
  // Behind the drop only the walk reads the records.
  Corefile walk = Corefile::V1(Endian::kBig, 48);
  walk.AppendRecord(4, 0, 0, 0x100).AppendRecord(4, 1, 0, 0x50).AppendRecord(4, 2, 0, 0x60, "", 30);
  ExpectConversion(walk, true,
                   {kThreadHeading +
                    "Event (Type 4:0) time was: 0:100\n"
                    "Breaking out of loop.\n"
                    "Starttime is 0:50.\n" +
                    kEventsHeading + "Sending event of type 0x4:0x1 time 0:0\n",
                    kBadRecord + "26 of the event pool: it runs past the end of the pool of 48 bytes." +
                        kVerify,
                    1, DatabaseOf(walk, {{0, 4, 1, ""}})});
}

TEST(V1Malformed, RecordThatWrapsPastTheWalksStartIsRefusedNotLappedForEver) {
  Corefile core = Corefile::V1(Endian::kBig, 64);
  core.Record(63, 0, 0, 0, 0x0c, std::string(4, '\0') + core.Words({0, 0x200}) +
                                        std::string(1, '\x0c') + core.Word16(2) + core.Word16(0) +
                                        core.Words({0, 0x10}));
  ExpectConversion(core, true,
                   {kThreadHeading +
                    "Event (Type 0:0) time was: 0:200\n"
                    "Breaking out of loop.\n"
                    "Starttime is 0:10.\n" +
                    kEventsHeading + "Sending event of type 0x2:0x0 time 0:0\n",
                    kBadRecord + "63 of the event pool: it runs past offset 24, where the oldest part of "
                                 "the ring begins." + kVerify,
                    1, DatabaseOf(core, {{0, 2, 0, ""}})});
}

TEST(V1Malformed, PoolOfSizeZeroIsRefusedWhenTheWalkWouldBegin) {
  Corefile core = Corefile::V1(Endian::kBig, 0);
  core.Thread("main", 0x1234, 10);
  ExpectConversion(core, true,
                   {kThreadHeading + kMain + "Starttime is 0:0.\n" + kEventsHeading,
                    "ravelog: fatal: Bad event pool size 0 in core file.  It holds no byte to read." +
                        kVerify,
                    1, DatabaseOf(core, {MainRecord(core)})});
}

// ---- Shipped samples ------------------------------------------------------------

TEST(V1Samples, BothByteOrdersListAndStoreTheSameApartFromTheirBytes) {
  const char *source = getenv("RAVELOG_SOURCE_DIR");
  ASSERT_NE(source, nullptr) << "run through ctest, which sets RAVELOG_SOURCE_DIR";
  const std::string examples = std::string(source) + "/examples/";
  TempDir dir;
  const ProcessResult big =
      testsupport::RunProcess(kBinary, {kBinary, "-d", examples + "sample_v1_big.core", dir.file("b")});
  const ProcessResult little = testsupport::RunProcess(
      kBinary, {kBinary, "-d", examples + "sample_v1_little.core", dir.file("l")});
  EXPECT_EQ(big.status, 0);
  EXPECT_EQ(big.err, "");
  EXPECT_EQ(little.status, 0);
  EXPECT_EQ(little.err, "");
  EXPECT_EQ(big.out.find("Error:"), std::string::npos);
  EXPECT_NE(big.out.find("Breaking out of loop.\n"), std::string::npos);

  // Line by line equal, but for the bytes of a context switch.
  auto lines = [](const std::string &text) {
    std::vector<std::string> split;
    size_t at = 0;
    for (size_t end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
      split.push_back(text.substr(at, end - at));
    return split;
  };
  const std::vector<std::string> big_lines = lines(big.out), little_lines = lines(little.out);
  ASSERT_EQ(big_lines.size(), little_lines.size());
  size_t sent = 0, switches = 0;
  for (size_t i = 0; i < big_lines.size(); i++) {
    if (big_lines[i].rfind("Context Switch to task ", 0) == 0) {
      switches++;
      const std::string b = big_lines[i].substr(23, 8), l = little_lines[i].substr(23, 8);
      EXPECT_EQ(b, l.substr(6, 2) + l.substr(4, 2) + l.substr(2, 2) + l.substr(0, 2)) << i;
    } else {
      EXPECT_EQ(big_lines[i], little_lines[i]) << i;
      if (big_lines[i].rfind("Sending event", 0) == 0) sent++;
    }
  }
  EXPECT_GT(switches, 0u);
  EXPECT_EQ(sent, 300u);

  // And their databases differ in the byte-order flag and the payloads only.
  const DatabaseFiles b = testsupport::ReadDatabase(dir.file("b"));
  const DatabaseFiles l = testsupport::ReadDatabase(dir.file("l"));
  EXPECT_EQ(b.kqi, l.kqi);
  ASSERT_EQ(b.kqv.size(), 41u);
  EXPECT_EQ(b.kqv.substr(0, 36) + b.kqv.substr(37), l.kqv.substr(0, 36) + l.kqv.substr(37));
  const auto walk = testsupport::WalkStream(b.kqs);
  ASSERT_TRUE(walk.ok) << walk.error;
  EXPECT_GE(walk.blocks.size(), 4u);
  EXPECT_TRUE(testsupport::MaskPayloads(b.kqs, walk) == testsupport::MaskPayloads(l.kqs, walk));
}

}  // namespace
