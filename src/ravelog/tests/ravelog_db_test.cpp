// Tests of the failures no corefile reaches, each with its fatal message and
// status 1: a record the database refuses and a pool that can't be allocated;
// and an absurd pool size costs no more than the file.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "corefile_builder.h"
#include "gen_capture.h"
#include "ravelog.h"
#include "temp_dir.h"

using namespace testsupport;

namespace {

size_t largest = 0;

// The conversion of core in this process, the pool allocator replaced.
std::string Convert(const Corefile &core, void *(*allocator)(void *, size_t)) {
  TempDir dir;
  EXPECT_TRUE(WriteFileBytes(dir.file("core"), core.Bytes()));
  const auto saved = cv_poolRealloc;
  cv_poolRealloc = allocator;
  const Captured run = RunCapturing([&] { cv_ParseRawEventFile(dir.file("core").c_str(), dir.file("db").c_str()); });
  cv_poolRealloc = saved;
  cv_DbClose();  // the database a failure leaves open
  return run.err + std::to_string(run.status);
}

TEST(Failures, ARefusedRecordOrAPoolThatCantBeAllocatedEndTheConversion) {
  ScopedProgName name("ravelog");
  unsigned char bytes[CV_THREAD_RECORD_SIZE] = {0, 0, 0x12, 0x34};
  Captured run = RunCapturing([&] { cv_DbAddThread(bytes); });
  EXPECT_EQ(run.err + std::to_string(run.status), "ravelog: fatal: Bad refresh: unexpected return value from libkqv.\n1");
  run = RunCapturing([&] { cv_DbAddEvent(0, 5, 0x10000, bytes, CV_V2_PAYLOAD_SIZE); });
  EXPECT_EQ(run.err + std::to_string(run.status), "ravelog: fatal: Unexpected return value from libkqv.\n1");
  auto refuse = [](void *, size_t) -> void * { return nullptr; };
  auto count = [](void *block, size_t size) { return largest = std::max(largest, size), realloc(block, size); };
  for (const Corefile &core : {Corefile::V2(Endian::kBig, 64), Corefile::V1(Endian::kLittle, 64)})
    EXPECT_EQ(Convert(core, refuse), "ravelog: fatal: Cannot allocate 64 bytes for the event pool.\n"
                                     "Verify that the correct target memory region was saved.\n1");
  EXPECT_EQ(Convert(Corefile::V2(Endian::kLittle, 64).Evps(0x7FFFFFE0u), count),
            "ravelog: fatal: Error reading event pool. \nCheck that the file size is at least as large as the event pool in memory.\n1");
  EXPECT_EQ(Convert(Corefile::V1(Endian::kBig, 64).Evps(0xFFFFFFF0u), count), "ravelog: fatal: Error reading in event pool.\n1");
  EXPECT_LE(largest, 64u * 1024u);
}

}  // namespace
