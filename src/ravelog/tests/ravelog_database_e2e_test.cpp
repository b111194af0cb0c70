// End-to-end tests of the database a conversion writes: seeded logs against the
// model in both byte orders; an unknown event type, which ends the conversion
// behind the events before it; a database that can't be made or replaces one.
#include <gtest/gtest.h>
#include <unistd.h>

#include "ravelog_run.h"

using namespace ravelogtest;

namespace {

// `count` events from a seed in a ring of `slots` from slot `start`, times
// carrying over the low word; `log` receives what the conversion should send.
Corefile Mixed(Endian order, size_t count, uint32_t slots, uint32_t start, ThreadXLog &log) {
  Corefile core = Corefile::V2(order, slots * 32).Start(start * 32).TimerHz(32768);
  const std::tuple<const char *, uint32_t, uint32_t, uint8_t> threads[] = {
      {"main", 0x20001000, 8, 1}, {"sensor", 0x20002000, 12, 1}, {"retired", 0x20003000, 4, 0},
      {"name_with_exactly_thirty_one_ch", 0x20004000, 3, 1}, {"sensor_v2", 0x20002000, 14, 1},
      {"a_name_longer_than_the_field_of_34", 0x20005000, 1, 1}, {"", 0x20006000, 30, 1}};
  for (const auto &[name, id, priority, valid] : threads) {
    core.Thread(name, id, priority, valid);
    if (valid) log.Add(0, 6, 10, core.Words({id, priority}) + (std::string(name) + std::string(31, '\0')).substr(0, 31));
  }
  const uint32_t known[] = {0x20001000, 0x20002000, 0x20004000, 0x20005000, 0x20006000, 0x30000001, 0x30000002, 0x30000003};
  const uint16_t types[] = {1, 1, 1, 3, 3, 2, 4, 5, 7, 5, 1, 3, 5};  // 10 to 12: the first of a new thread, in its event
  Random random(12345);
  for (uint64_t i = 0, time = 0x00000001FFFFFF00ull, first = time; i < count; i++, time += 1 + random.Below(90)) {
    const uint32_t roll = i == 7 ? 10 : i == 23 ? 11 : i == 41 ? 12 : random.Below(10);
    const uint32_t who = roll >= 10 ? 0x30000001 + roll - 10 : known[random.Below(i < 7 ? 5 : i < 23 ? 6 : i < 41 ? 7 : 8)];
    const uint16_t subtype = static_cast<uint16_t>(roll == 9 ? 10 : roll == 12 ? 3 : random.Below(14));
    const std::string payload = core.Words({types[roll] == 2 ? random.Below(64) : who, random.Below(3) * 4, random.Below(1000)});
    core.Slot((start + i) % slots * 32, types[roll], subtype, uint32_t(time >> 32), uint32_t(time), payload);
    log.Add(time - first, types[roll], subtype, payload + std::string(8, '\0'));
  }
  return core;
}

TEST(ConvertedDatabase, SeededLogsOfThreeBlocksAreTheModelsInBothByteOrders) {
  for (Endian order : {Endian::kBig, Endian::kLittle}) {
    ThreadXLog log(order == Endian::kBig);
    const std::string core = Mixed(order, 260, 300, 70, log).Bytes();
    ExpectConversion(core, false, {"", "", 0, log.Files(32768)});
    EXPECT_EQ(log.script().size(), 266u);
  }
}

TEST(ConvertedDatabase, AnUnknownTypeEndsTheConversionBehindTheEventsBeforeIt) {
  ThreadXLog log(true), before(true);
  Corefile core = Mixed(Endian::kBig, 40, 64, 0, log);
  Mixed(Endian::kBig, 30, 64, 0, before);
  TempDir dir;
  ASSERT_TRUE(WriteFileBytes(dir.file("core"), core.PoolBytes(30 * 32, core.Word16(8)).Bytes()));  // the 31st event's type
  const ProcessResult run = Ravelog({dir.file("core"), dir.file("db")});
  EXPECT_EQ(run.out + run.err + std::to_string(run.status),
            "ravelog: warning: libkqv: [UpdateState_ThreadX]: Unrecognized event type (0x8)\n"
            "ravelog: fatal: Unexpected return value from libkqv.\n1");
  DatabaseFiles files = ReadDatabase(dir.file("db"));  // up to the 0 tag in front of it, the files of the events before
  const DatabaseFiles want = before.Files(32768);
  ASSERT_GT(files.kqs.size(), want.kqs.size());
  files.kqs.resize(want.kqs.size());
  EXPECT_TRUE(SameFiles(files, want));
}

TEST(ConvertedDatabase, ADatabaseThatCannotBeMadeIsFatalAndAnOldOneIsReplacedItsKqvFirst) {
  TempDir dir;
  ThreadXLog log(true);
  ASSERT_TRUE(WriteFileBytes(dir.file("core"), Mixed(Endian::kBig, 5, 8, 0, log).Bytes()));
  const std::string cannot = "ravelog: fatal: Failed to create indexed event resource file ";
  ProcessResult run = Ravelog({dir.file("core"), dir.file("missing/db")});
  EXPECT_EQ(run.out + run.err + std::to_string(run.status), cannot + dir.file("missing/db") + ".*.\n1");
  for (const char *suffix : {".kqv", ".kqs", ".kqi"}) ASSERT_TRUE(WriteFileBytes(dir.file("db") + suffix, std::string(500, 'o')));
  EXPECT_EQ(Ravelog({dir.file("core"), dir.file("db")}).status, 0);
  EXPECT_TRUE(SameFiles(ReadDatabase(dir.file("db")), log.Files(32768)));
  // A .kqs that can't be opened (a link into nowhere): the old .kqv and .kqi are gone all the same.
  ASSERT_EQ(unlink(dir.file("db.kqs").c_str()) + symlink(dir.file("gone/x").c_str(), dir.file("db.kqs").c_str()), 0);
  run = Ravelog({dir.file("core"), dir.file("db")});
  EXPECT_EQ(run.err + std::to_string(run.status), cannot + dir.file("db") + ".*.\n1");
  EXPECT_FALSE(FileExists(dir.file("db.kqv")) || FileExists(dir.file("db.kqi")));
}

}  // namespace
