// Tests of the version 2 decoder through its database points: what is
// handed over, in what order, with which normalised times and bytes, for the
// worked 132-byte log in both byte orders, for reversals and wraps, and the
// refusal of pools that don't fit the ring (allocation failure included).
// The points are replaced by a recorder; the listing is checked end to end.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "corefile_builder.h"
#include "decode_fixture.h"

using testsupport::Captured;
using testsupport::Corefile;
using testsupport::Endian;

namespace {

class V2Decode : public ravelogtest::DecodeFixture {
 protected:
  V2Decode() : DecodeFixture(cv_ParseVersion2) {}
};

// The worked example: one thread, a pool of two slots, start at offset 32.
Corefile WorkedExample(Endian order) {
  Corefile core = Corefile::V2(order, 64);
  core.Location(0x00100000).StartOffset(32).TimerHz(1000).Thread("main", 0x1234, 10);
  core.Slot(0, 1, 0, 0, 100, core.Words({0x1234, 1, 2, 3, 4}));
  core.Slot(32, 3, 22, 0, 50, core.Words({0x1234, 5, 6, 7, 8}));
  return core;
}

std::string Name31(const std::string &name) {
  std::string field = name;
  field.resize(31, '\0');
  return field;
}

TEST_F(V2Decode, WorkedExampleHandsOverThreadThenEventsInWalkOrder) {
  for (Endian order : {Endian::kBig, Endian::kLittle}) {
    Corefile core = WorkedExample(order);
    ASSERT_EQ(core.Bytes().size(), 132u);
    Captured run = Decode(core.Bytes());
    EXPECT_FALSE(run.exited) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(Trace(), "open thread event@0:0/30016 event@0:32/10000 close");
    ASSERT_EQ(calls.size(), 5u);
    EXPECT_EQ(calls[0].name, "db");
    EXPECT_EQ(calls[0].ticks, 1000);
    EXPECT_EQ(calls[0].bigEndian, order == Endian::kBig ? 1 : 0);
    const std::string id_priority = order == Endian::kBig
                                        ? std::string("\x00\x00\x12\x34\x00\x00\x00\x0a", 8)
                                        : std::string("\x34\x12\x00\x00\x0a\x00\x00\x00", 8);
    EXPECT_EQ(calls[1].bytes, id_priority + Name31("main"));
    EXPECT_EQ(calls[2].bytes, core.Words({0x1234, 5, 6, 7, 8}));
    EXPECT_EQ(calls[3].bytes, core.Words({0x1234, 1, 2, 3, 4}));
  }
}

TEST_F(V2Decode, ThreadRecordsCarry31NameBytesAndOnlyValidEntries) {
  Corefile core = Corefile::V2(Endian::kBig, 32);
  const std::string thirty = "abcdefghijklmnopqrstuvwxyz0123";
  core.Thread(thirty, 1, 2).Thread("gone", 3, 4, 0).Thread(thirty + "45678", 5, 6, 7);
  Decode(core.Bytes());
  EXPECT_EQ(Trace(), "open thread thread close");
  ASSERT_EQ(calls.size(), 4u);
  EXPECT_EQ(calls[1].bytes.substr(8), thirty + std::string(1, '\0'));
  EXPECT_EQ(calls[2].bytes, std::string("\0\0\0\5\0\0\0\6", 8) + thirty + "4");
}

TEST_F(V2Decode, NegativeThreadCountReadsNoEntriesAndFindsThePoolAt24) {
  Corefile core = Corefile::V2(Endian::kLittle, 32);
  core.ThreadCount(-1).Slot(0, 4, 0, 0, 9);
  Decode(core.Bytes());
  EXPECT_EQ(Trace(), "open event@0:0/40000 close");
}

TEST_F(V2Decode, EmptySlotsAreSkippedAndTheWalkWrapsToOffsetZero) {
  Corefile core = Corefile::V2(Endian::kBig, 128);
  core.StartOffset(64).Slot(0, 1, 0, 0, 500).Slot(32, 2, 1, 0, 700);
  Decode(core.Bytes());
  EXPECT_EQ(Trace(), "open event@0:0/10000 event@0:c8/20001 close");
}

TEST_F(V2Decode, EmptyPoolGivesNoEvents) {
  Decode(Corefile::V2(Endian::kBig, 96).Thread("t", 1, 1).Bytes());
  EXPECT_EQ(Trace(), "open thread close");
}

TEST_F(V2Decode, ReversedTimesAreStoredWithTheLatestTimeBefore) {
  Corefile core = Corefile::V2(Endian::kBig, 6 * 32);
  const uint32_t times[] = {100, 300, 200, 250, 300, 400};
  for (uint32_t i = 0; i < 6; i++) core.Slot(i * 32, 1, static_cast<uint16_t>(i), 0, times[i]);
  Captured run = Decode(core.Bytes());
  EXPECT_EQ(Trace(),
            "open event@0:0/10000 event@0:c8/10001 event@0:c8/10002 event@0:c8/10003 "
            "event@0:c8/10004 event@0:12c/10005 close");
  EXPECT_EQ(run.out,
            "Error: Timestamp reverses from 0x0:c8 to 0x0:64 \n\tfor event of type 0x1:0x2.\n"
            "Error: Timestamp reverses from 0x0:c8 to 0x0:96 \n\tfor event of type 0x1:0x3.\n");
  EXPECT_FALSE(run.exited);
}

TEST_F(V2Decode, TimesBorrowFromTheHighWordAndAnOriginOfZeroCounts) {
  Corefile borrow = Corefile::V2(Endian::kLittle, 96);
  borrow.Slot(0, 4, 0, 0, 0xFFFFFFF0u).Slot(32, 4, 1, 1, 0x10).Slot(64, 4, 2, 1, 0);
  Captured run = Decode(borrow.Bytes());
  EXPECT_EQ(Trace(), "open event@0:0/40000 event@0:20/40001 event@0:20/40002 close");
  EXPECT_EQ(run.out, "Error: Timestamp reverses from 0x0:20 to 0x0:10 \n\tfor event of type 0x4:0x2.\n");

  Corefile zero = Corefile::V2(Endian::kBig, 96);
  zero.Slot(0, 4, 0, 0, 0).Slot(32, 4, 1, 0, 10).Slot(64, 4, 2, 0, 5);
  run = Decode(zero.Bytes());
  EXPECT_EQ(Trace(), "open event@0:0/40000 event@0:a/40001 event@0:a/40002 close");
}

TEST_F(V2Decode, ATimeBelowTheOriginWrapsToAHugeValueThatLaterSlotsCarry) {
  Corefile core = Corefile::V2(Endian::kBig, 96);
  core.Slot(0, 5, 3, 0, 100).Slot(32, 5, 4, 0, 99).Slot(64, 5, 5, 0, 101);
  Captured run = Decode(core.Bytes());
  EXPECT_EQ(Trace(),
            "open event@0:0/50003 event@ffffffff:ffffffff/50004 event@ffffffff:ffffffff/50005 close");
  EXPECT_EQ(run.out,
            "Error: Timestamp reverses from 0xffffffff:ffffffff to 0x0:1 \n\tfor event of type 0x5:0x5.\n");
}

// ---- Refusals -------------------------------------------------------------

TEST_F(V2Decode, PoolsThatDoNotFitTheRingAreRefusedBeforeTheWalk) {
  struct Case {
    const char *what;
    Corefile core;
    const char *message;
  } cases[] = {
      {"size not a multiple of 32", Corefile::V2(Endian::kBig, 48),
       "ravelog: fatal: Bad event pool size 48 in core file.  It is not a positive multiple of 32 "
       "bytes.\nVerify that the correct target memory region was saved.\n"},
      {"start inside a slot", Corefile::V2(Endian::kBig, 64).StartOffset(16),
       "ravelog: fatal: Bad current event pointer 0x00100010 in core file.  It is not an event slot "
       "of the pool of 64 bytes at 0x00100000.\nVerify that the correct target memory region was "
       "saved.\n"},
      {"start at the end", Corefile::V2(Endian::kLittle, 64).StartOffset(64),
       "ravelog: fatal: Bad current event pointer 0x00100040 in core file.  It is not an event slot "
       "of the pool of 64 bytes at 0x00100000.\nVerify that the correct target memory region was "
       "saved.\n"},
      {"pointer below the pool", Corefile::V2(Endian::kBig, 64).CurrentPointer(0x000FFFE0),
       "ravelog: fatal: Bad current event pointer 0x000fffe0 in core file.  It is not an event slot "
       "of the pool of 64 bytes at 0x00100000.\nVerify that the correct target memory region was "
       "saved.\n"},
  };
  for (Case &c : cases) {
    c.core.Slot(0, 1, 0, 0, 1);
    Captured run = Decode(c.core.Bytes());
    EXPECT_TRUE(run.exited) << c.what;
    EXPECT_EQ(run.status, 1) << c.what;
    EXPECT_EQ(run.err, c.message) << c.what;
    EXPECT_EQ(Trace(), "open") << c.what;
  }
}

void *RefusingRealloc(void *, size_t) { return nullptr; }

TEST_F(V2Decode, APoolThatCannotBeAllocatedEndsWithStatusOne) {
  auto saved = cv_poolRealloc;
  cv_poolRealloc = RefusingRealloc;
  Captured run = Decode(WorkedExample(Endian::kBig).Bytes());
  cv_poolRealloc = saved;
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            "ravelog: fatal: Cannot allocate 64 bytes for the event pool.\n"
            "Verify that the correct target memory region was saved.\n");
  EXPECT_EQ(Trace(), "open thread");
}

// Counts the bytes asked of the pool allocator.
size_t largest_request = 0;
void *CountingRealloc(void *block, size_t size) {
  largest_request = std::max(largest_request, size);
  return realloc(block, size);
}

TEST_F(V2Decode, AnAbsurdPoolSizeCostsOnlyWhatTheFileHolds) {
  auto saved = cv_poolRealloc;
  cv_poolRealloc = CountingRealloc;
  largest_request = 0;
  Corefile core = Corefile::V2(Endian::kLittle, 64);
  core.Evps(0x7FFFFFE0u);
  Captured run = Decode(core.Bytes());
  cv_poolRealloc = saved;
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("Error reading event pool."), std::string::npos);
  EXPECT_LE(largest_request, 64u * 1024u);
}

TEST_F(V2Decode, APoolLargerThanOneChunkArrivesWhole) {
  const uint32_t size = 8192 * 32;  // four times the first chunk
  Corefile core = Corefile::V2(Endian::kBig, size);
  core.StartOffset(size - 32).Slot(size - 32, 1, 0, 0, 1).Slot(0, 1, 1, 0, 2);
  core.Slot(size / 2, 1, 2, 0, 3).Slot(size - 64, 1, 3, 0, 4);
  Decode(core.Bytes());
  EXPECT_EQ(Trace(), "open event@0:0/10000 event@0:1/10001 event@0:2/10002 event@0:3/10003 close");
}

// A pool of 2 MiB in a regular file is mapped instead of read: the decoder
// must hand over the same events, from a pool that starts at no page
// boundary, and a file too short for the pool must still be refused.
TEST_F(V2Decode, ALargePoolInAFileGivesWhatItGivesFromMemory) {
  const uint32_t size = 2u << 20;
  Corefile core = Corefile::V2(Endian::kLittle, size);
  core.StartOffset(size - 64).Thread("t", 7, 3);
  for (uint32_t i = 0; i < 64; i++) core.Slot((size - 64 + i * 32 * 1031) % size, 1, 0, 0, i + 1);
  Decode(core.Bytes());
  const std::string fromMemory = Trace(true);
  ASSERT_EQ(calls.size(), 67u);
  Captured run = Decode(core.Bytes(), false, true);
  EXPECT_FALSE(run.exited) << run.err;
  EXPECT_EQ(Trace(true), fromMemory);

  std::string cut = core.Bytes();
  cut.resize(cut.size() - 1);
  run = Decode(cut, false, true);
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("Error reading event pool."), std::string::npos) << run.err;
}

}  // namespace
