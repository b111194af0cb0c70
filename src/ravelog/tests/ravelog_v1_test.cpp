// Tests of the version 1 decoder through its database points: what is
// handed over (times, type words, payloads of every length, thread records,
// the header's words), payloads across the ring's wrap, and how the pool is
// read (in pieces, refused when short, when unallocatable or absurd).  The
// points are replaced by a recorder.  The listing, the scan's and walk's
// edge cases and every refusal of a record are checked end to end in
// ravelog_v1_e2e_test.cpp.
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

class V1Decode : public ravelogtest::DecodeFixture {
 protected:
  V1Decode() : DecodeFixture(cv_ParseVersion1) {}
};

const char kVerify[] = "\nVerify that the correct target memory region was saved.\n";

TEST_F(V1Decode, HandsOverThreadsThenRecordsOfEveryLengthWithTheirPayloads) {
  for (Endian order : {Endian::kBig, Endian::kLittle}) {
    Corefile core = Corefile::V1(order, 400);
    core.TimerHz(32768).EQsize(11).Evploc(0x20010000).Qhead(0x20010040).Qtail(0x20010080);
    core.Thread("main", 0x1234, 10).Thread("gone", 5, 6, 0).Thread("net", 0x2000, 3);
    const std::string longest(243, '\x5a');
    core.AppendRecord(7, 0, 0, 0x1000);                                  // L = 12
    core.AppendRecord(1, 2, 0, 0x1010, core.Words({0x1234}));             // L = 16
    core.AppendRecord(3, 0x16, 0, 0x1010, "\x01");                        // L = 13
    core.AppendRecord(4, 1, 1, 0x20, longest);                            // L = 255
    Captured run = Decode(core.Bytes());
    EXPECT_FALSE(run.exited) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(Trace(true),
              "open thread thread event@0:0/70000+0 event@0:10/10002+4 event@0:10/30016+1 "
              "event@0:fffff020/40001+243 close");
    ASSERT_EQ(calls.size(), 8u);
    EXPECT_EQ(calls[0].ticks, 32768);
    EXPECT_EQ(calls[0].bigEndian, order == Endian::kBig ? 1 : 0);
    EXPECT_EQ(calls[0].name, "db");
    EXPECT_EQ(calls[2].bytes.substr(0, 12),
              order == Endian::kBig ? std::string("\0\0\x20\0\0\0\0\3net", 11) + '\0'
                                    : std::string("\0\x20\0\0\3\0\0\0net", 11) + '\0');
    EXPECT_EQ(calls[4].bytes, core.Words({0x1234}));
    EXPECT_EQ(calls[5].bytes, "\x01");
    EXPECT_EQ(calls[6].bytes, longest);
    // The header's stored words are kept, though nothing decodes with them.
    EXPECT_EQ(EQsize, 11);
    EXPECT_EQ(evploc, 0x20010000);
    EXPECT_EQ(Qhead, 0x20010040);
    EXPECT_EQ(Qtail, 0x20010080);
    EXPECT_EQ(EVPS, 400);
    EXPECT_EQ(TNIS, 3);
  }
}

TEST_F(V1Decode, WrappedPoolIsWalkedFromItsOldestRecordRoundToItsNewest) {
  // By pool offset: newer records at 0 and 17, filler, then the oldest at 32.
  Corefile core = Corefile::V1(Endian::kLittle, 88);
  core.AppendRecord(1, 0, 0, 0x300, core.Words({0x1234})).AppendRecord(7, 0, 0, 0x310);
  core.Record(32, 3, 0x14, 0, 0x100, core.Words({1, 2})).AppendRecord(5, 4, 0, 0x180, core.Words({9}));
  core.AppendRecord(7, 0, 0, 0x200);
  Decode(core.Bytes());
  EXPECT_EQ(Trace(true),
            "open event@0:0/30014+8 event@0:80/50004+4 event@0:100/70000+0 "
            "event@0:200/10000+4 event@0:210/70000+0 close");
}

TEST_F(V1Decode, LengthByteInTheLastPlaceIsFollowedByItsHeadAtThePoolsStart) {
  // The scan reads the wrapped record's head at offset 0 as records of
  // lengths 4 and 4 (stepped over) and comes back in step at offset 16.
  Corefile core = Corefile::V1(Endian::kBig, 64);
  core.Record(63, 4, 0, 0, 4, core.Words({0x1234}));
  ASSERT_EQ(core.RecordEnd(), 16u);
  core.AppendRecord(1, 0, 0, 0x50000, core.Words({0x1234}));
  core.Record(36, 2, 1, 0, 1).AppendRecord(3, 0x16, 0, 2, "\xab");
  ASSERT_EQ(core.RecordEnd(), 63u);
  Decode(core.Bytes());
  EXPECT_EQ(Trace(true),
            "open event@0:0/20001+0 event@0:1/30016+1 event@0:3/40000+4 event@0:4ffff/10000+4 close");
  ASSERT_EQ(calls.size(), 6u);
  EXPECT_EQ(calls[3].bytes, std::string("\0\0\x12\x34", 4));
}

// ---- Reading the pool -------------------------------------------------------------

TEST_F(V1Decode, PoolLargerThanOneReadPieceArrivesWhole) {
  const uint32_t size = 300000;  // more than four pieces of 64 KiB
  Corefile core = Corefile::V1(Endian::kBig, size);
  core.Record(size - 13, 4, 0, 0, 1).Record(70000, 4, 1, 0, 2).Record(200000, 4, 2, 0, 3);
  Decode(core.Bytes());
  EXPECT_EQ(Trace(), "open event@0:0/40000 event@0:1/40001 event@0:2/40002 close");
  // Cut one byte short, the same pool fails however many pieces came.
  const std::string whole = core.Bytes();
  Captured run = Decode(whole.substr(0, whole.size() - 1));
  EXPECT_EQ(run.err, "ravelog: fatal: Error reading in event pool.\n");
}

// A pool of 2 MiB in a regular file is mapped instead of read, from no page
// boundary; the records and the refusal of a short file stay the same.
TEST_F(V1Decode, LargePoolInAFileGivesWhatItGivesFromMemory) {
  const uint32_t size = 2u << 20;
  Corefile core = Corefile::V1(Endian::kLittle, size);
  core.Thread("t", 1, 1).Record(size - 13, 4, 0, 0, 1).Record(70000, 4, 1, 0, 2);
  core.Record(size / 2 + 3, 4, 2, 0, 3).Record(0, 4, 3, 0, 4);
  Decode(core.Bytes());
  const std::string fromMemory = Trace(true);
  ASSERT_EQ(calls.size(), 7u) << fromMemory;
  Captured run = Decode(core.Bytes(), false, true);
  EXPECT_FALSE(run.exited) << run.err;
  EXPECT_EQ(Trace(true), fromMemory);

  const std::string whole = core.Bytes();
  run = Decode(whole.substr(0, whole.size() - 1), false, true);
  EXPECT_EQ(run.err, "ravelog: fatal: Error reading in event pool.\n");
}

void *RefusingRealloc(void *, size_t) { return nullptr; }

size_t largest_request = 0;
void *CountingRealloc(void *block, size_t size) {
  largest_request = std::max(largest_request, size);
  return realloc(block, size);
}

TEST_F(V1Decode, PoolAllocationFailsCleanlyAndAbsurdSizesCostOnlyWhatTheFileHolds) {
  auto saved = cv_poolRealloc;
  cv_poolRealloc = RefusingRealloc;
  Captured refused = Decode(Corefile::V1(Endian::kBig, 64).Thread("t", 1, 1).Bytes());
  cv_poolRealloc = CountingRealloc;
  largest_request = 0;
  Captured absurd = Decode(Corefile::V1(Endian::kLittle, 64).Evps(0xFFFFFFF0u).Bytes());
  cv_poolRealloc = saved;

  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err,
            std::string("ravelog: fatal: Cannot allocate 64 bytes for the event pool.") + kVerify);
  EXPECT_EQ(absurd.err, "ravelog: fatal: Error reading in event pool.\n");
  EXPECT_LE(largest_request, 64u * 1024u);
}

}  // namespace
