// Conversions that can't be written whole: a database file that would pass
// its size limit, and writes that fail (a child with a file-size limit and
// SIGXFSZ ignored, so that a write past it fails with EFBIG).  Each ends
// with one message and status 1, and leaves a database that the check
// passes and whose count is the events that can be read.  The last test
// crosses the real 2 GiB limit.
#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <cstdio>

#include <string>

#include "kq_check.h"
#include "kq_cursor.h"
#include "kq_io.h"
#include "run_process.h"
#include "simulated_dump.h"
#include "temp_dir.h"

namespace {

using testsupport::ProcessResult;
using testsupport::RunProcess;

// The events a reader can read, the count the index gives, and the problems
// the check finds, of the database `base`.
struct Readable {
  uint64_t read = 0;
  uint32_t counted = 0;
  uint32_t problems = 0;
};

Readable Inspect(const std::string &base) {
  Readable result;
  kq_DB *db = kq_OpenForUse(base.c_str());
  EXPECT_NE(db, nullptr) << base;
  if (db == nullptr) return result;
  kq_GetStartEventAndNumEvents(db, nullptr, &result.counted);
  kq_Cursor *cursor = kq_NewCursor(db, 0);
  const kq_CursorEvent *event = nullptr;
  while (kq_CursorNext(cursor, &event) == 1) result.read++;
  EXPECT_EQ(kq_CursorError(cursor), nullptr);
  kq_DeleteCursor(cursor);
  result.problems = kq_CheckDatabase(db, nullptr, nullptr, nullptr);
  kq_Close(db);
  return result;
}

class LimitsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(testsupport::WriteSimulatedDump(dump, {60000, 16, true}));
  }
  testsupport::TempDir dir;
  std::string dump = dir.file("dump.core");
  std::string base = dir.file("db");
};

TEST_F(LimitsTest, AFullDatabaseEndsWithTheNumberOfEventsItHolds) {
  for (const char *limit : {"65536", "1000000", "3000000"}) {
    SCOPED_TRACE(limit);
    const ProcessResult run = RunProcess(
        "/usr/bin/env", {"env", std::string("KQV_FILE_LIMIT=") + limit, RAVELOG_BINARY, dump, base});
    const Readable db = Inspect(base);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "ravelog: fatal: The database is full: a database file can't pass 2 GiB.  "
                       "It holds the first " + std::to_string(db.read) + " events of the log.\n");
    EXPECT_LE(testsupport::ReadFileBytes(base + ".kqs").size(), std::stoul(limit));
    EXPECT_GT(db.read, 0u);
    EXPECT_EQ(db.counted, db.read);
    EXPECT_EQ(db.problems, 0u);
  }
}

TEST_F(LimitsTest, AFailedWriteEndsWithOneMessageAndAWholeDatabase) {
  // ulimit -f counts blocks of 512 bytes.
  for (const char *blocks : {"1", "100", "777", "4000"}) {
    SCOPED_TRACE(blocks);
    const ProcessResult run = RunProcess(
        "/bin/sh", {"sh", "-c", std::string("trap '' XFSZ; ulimit -f ") + blocks +
                                    "; exec \"$0\" \"$1\" \"$2\"",
                    RAVELOG_BINARY, dump, base});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "ravelog: fatal: Error while processing \"" + base + ".kqs\": File too large\n");
    const Readable db = Inspect(base);
    EXPECT_EQ(db.counted, db.read);
    EXPECT_EQ(db.problems, 0u);
  }
}

// The real limit: a version 2 dump of 2.3 x 10^7 events, whose database
// would pass 2 GiB.  Too slow under the sanitizers, which skip it.
TEST_F(LimitsTest, ADumpTooLargeForTheFilesStopsBelowTwoGiB) {
#ifdef RAVELOG_SANITIZED
  GTEST_SKIP() << "too slow under the sanitizers";
#endif
  struct statvfs disk {};
  if (statvfs(dir.path().c_str(), &disk) == 0 &&
      static_cast<uint64_t>(disk.f_bavail) * disk.f_frsize < (uint64_t{4} << 30)) {
    GTEST_SKIP() << "needs 4 GiB free in " << dir.path();
  }
  const std::string big = dir.file("big.core");
  ASSERT_TRUE(testsupport::WriteSimulatedDump(big, {23000000, 64, true}));
  const ProcessResult run = RunProcess(RAVELOG_BINARY, {"ravelog", big, base});
  std::remove(big.c_str());
  const Readable db = Inspect(base);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "ravelog: fatal: The database is full: a database file can't pass 2 GiB.  "
                     "It holds the first " + std::to_string(db.read) + " events of the log.\n");
  EXPECT_EQ(db.counted, db.read);
  EXPECT_EQ(db.problems, 0u);
  EXPECT_GT(db.read, 18000000u);
  for (const char *suffix : {".kqs", ".kqi"}) {
    std::remove((base + suffix).c_str());
  }
}

}  // namespace
