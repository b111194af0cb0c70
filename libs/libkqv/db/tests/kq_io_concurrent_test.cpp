// Tests of reading a database while it is written: a writer in a child
// process appends thousands of events in bursts while this process follows
// it with the refresh operations and kq_MoreEvents, listing every event it
// learns of and checking that each is whole and numbered in order, that the
// count never falls, and that at the end it sees exactly what a fresh open
// sees; and copies of the files taken between any two additions, and in the
// middle of one, read as exactly the events added so far.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "database_walk.h"
#include "kq_io.h"
#include "kq_io_read.h"
#include "kq_state.h"
#include "kq_scripted_db.h"
#include "temp_dir.h"

using scripted::Expected;
using scripted::Listed;
using scripted::Script;
using scripted::TakeList;
using testsupport::ReadWithSyscalls;
using testsupport::TempDir;
using testsupport::WriteFileBytes;

namespace {

constexpr uint64_t kFarFuture = ~uint64_t{0} >> 1;

// Writes script to base in bursts of 1 to 100 events with pauses of up to
// 3 milliseconds, and ends the process: 0 when every event went in.
[[noreturn]] void WriteInBursts(const std::string &base, const Script &script, uint32_t seed) {
  std::mt19937 rng(seed);
  scripted::ScriptWriter writer(base, script);
  bool ok = writer.ok();
  while (ok && writer.added() < script.size()) {
    ok = writer.Add(1 + rng() % 100);
    usleep(static_cast<useconds_t>(rng() % 3000));
  }
  writer.Close();
  _exit(ok ? 0 : 1);
}

// What a reader learned of a growing database.
struct Follower {
  kq_DB *db = nullptr;
  kq_EventIter *iter = nullptr;  // stands on the tag of the next event to list
  std::vector<Listed> seen;
  uint64_t lastEnd = 0;
  bool indexed = false;  // a refresh has counted events before

  ~Follower() {
    kq_DeleteEventIter(iter);
    kq_Close(db);
  }

  // One refresh: extent, count, and the new events, checked against the
  // script.  False (with a test failure) on the first thing wrong.
  bool Refresh(const Script &script) {
    uint64_t start = 0, end = 0;
    uint32_t count = 0;
    EXPECT_EQ(kq_GetTimeExtent(db, &start, &end), 1);
    EXPECT_EQ(kq_GetStartEventAndNumEvents(db, nullptr, &count), 1);
    if (count < seen.size()) {
      ADD_FAILURE() << "the count fell from " << seen.size() << " to " << count;
      return false;
    }
    if (count > script.size()) {
      ADD_FAILURE() << "count " << count << " beyond the script";
      return false;
    }
    if (count == 0) return true;
    // The extent stands behind an event no older than the last one seen and
    // no newer than the count says.  Its start is taken before its refresh
    // of the index, so the refresh that finds the first block answers 0.
    if (indexed || start != 0) {
      EXPECT_EQ(start, script.front().time);
    }
    indexed = true;
    EXPECT_GE(end, lastEnd);
    EXPECT_LE(end, script[count - 1].time + 1);
    lastEnd = end;

    if (iter == nullptr && !kq_GetStateAndIterFromTime(db, 0, &iter, nullptr)) {
      ADD_FAILURE() << "no iterator";
      return false;
    }
    const size_t want = count - seen.size();
    if (want == 0) return true;
    auto listed = TakeList(kq_GetNEventsBeforeTime(db, &iter, static_cast<int>(want), 0, 0));
    const auto expected = Expected(script, seen.size(), count);
    if (listed != expected) {
      ADD_FAILURE() << "events " << seen.size() + 1 << " to " << count << ": listed "
                    << listed.size();
      for (size_t i = 0; i < listed.size() && i < expected.size(); i++) {
        if (!(listed[i] == expected[i])) {
          ADD_FAILURE() << "got " << listed[i] << " expected " << expected[i];
          break;
        }
      }
      return false;
    }
    seen.insert(seen.end(), listed.begin(), listed.end());
    return true;
  }
};

TEST(GrowingDatabase, AReaderInAnotherProcessSeesWholeEventsInOrder) {
  const uint32_t seed = 777001;
  SCOPED_TRACE("seed " + std::to_string(seed));
  const Script script = scripted::GenerateScript(seed, 20000);
  TempDir dir(scripted::FastTempParent());
  const std::string base = dir.file("db");

  const pid_t writer = fork();
  ASSERT_GE(writer, 0);
  if (writer == 0) WriteInBursts(base, script, seed);

  Follower follower;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
  bool writerDone = false;
  int status = -1;
  int refreshes = 0, idle = 0;
  while (std::chrono::steady_clock::now() < deadline) {
    if (!writerDone) writerDone = waitpid(writer, &status, WNOHANG) == writer;
    if (follower.db == nullptr) {
      follower.db = kq_OpenForUse(base.c_str());  // null until .kqv is in place
      if (follower.db == nullptr) {
        if (writerDone) break;
        usleep(100);
        continue;
      }
    }
    if (!kq_MoreEvents(follower.db)) {
      if (writerDone) break;  // nothing new, and nothing will come
      idle++;
      usleep(50);
      continue;
    }
    refreshes++;
    if (!follower.Refresh(script)) break;
  }
  if (!writerDone) {
    kill(writer, SIGKILL);
    waitpid(writer, &status, 0);
    FAIL() << "timed out";
  }
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  ASSERT_NE(follower.db, nullptr);
  // One more refresh after the writer is gone finds nothing new.
  ASSERT_TRUE(follower.Refresh(script));
  EXPECT_EQ(kq_MoreEvents(follower.db), 0);
  EXPECT_EQ(follower.seen.size(), script.size());
  RecordProperty("refreshes", refreshes);
  std::printf("%d refreshes, %d idle polls\n", refreshes, idle);
  EXPECT_GT(refreshes, 10);  // the reader really did follow the writer

  // A fresh open sees the same.
  kq_DB *fresh = kq_OpenForUse(base.c_str());
  ASSERT_NE(fresh, nullptr);
  uint32_t count = 0;
  kq_GetStartEventAndNumEvents(fresh, nullptr, &count);
  EXPECT_EQ(count, script.size());
  EXPECT_EQ(fresh->numTimePos, follower.db->numTimePos);
  EXPECT_TRUE(TakeList(kq_GetEventListAndStateFromTimeRange(fresh, 0, kFarFuture, nullptr)) ==
              follower.seen);
  kq_Close(fresh);
}

// ---- Copies of the files ------------------------------------------------------------------

class CopyTest : public ::testing::Test {
 protected:
  // Copies the three files of the database being written, as another
  // process would read them at this moment, and checks that the copy reads
  // as exactly the first `events` events.
  void CheckCopy(size_t events) {
    for (const char *suffix : {".kqv", ".kqs", ".kqi"}) {
      ASSERT_TRUE(WriteFileBytes(copy_ + suffix, ReadWithSyscalls(base_ + suffix)));
    }
    kq_DB *db = kq_OpenForUse(copy_.c_str());
    ASSERT_NE(db, nullptr) << "after " << events;
    uint32_t count = 99;
    kq_GetStartEventAndNumEvents(db, nullptr, &count);
    EXPECT_EQ(count, events);
    kq_State *state = nullptr;
    const auto listed = TakeList(kq_GetEventListAndStateFromTimeRange(db, 0, kFarFuture, &state));
    kq_DeleteState(state);
    EXPECT_EQ(listed, Expected(script_, 0, events)) << "after " << events;
    if (events > 0) {
      // The state behind the last event equals a replay of all of them.
      ASSERT_EQ(kq_GetStateAndIterFromTime(db, kFarFuture, nullptr, &state), 1);
      EXPECT_EQ(scripted::StateOf(state), scripted::ModelBefore(script_, events))
          << "after " << events;
      kq_DeleteState(state);
      uint64_t start = 0, end = 0;
      kq_GetTimeExtent(db, &start, &end);
      EXPECT_EQ(end, script_[events - 1].time + 1);
    }
    EXPECT_EQ(kq_MoreEvents(db), 0);
    kq_Close(db);
    checked_++;
  }

  void TearDown() override { scripted::g_halfWritten = nullptr; }

  TempDir dir_{scripted::FastTempParent()};
  std::string base_ = dir_.file("db");
  std::string copy_ = dir_.file("copy");
  Script script_ = scripted::GenerateScript(31337, 230);
  size_t checked_ = 0;
};

TEST_F(CopyTest, ACopyBetweenTwoAdditionsReadsAsTheEventsSoFar) {
  scripted::ScriptWriter writer(base_, script_);
  ASSERT_TRUE(writer.ok());
  CheckCopy(0);
  for (size_t i = 0; i < script_.size(); i++) {
    ASSERT_TRUE(writer.Add(1));
    CheckCopy(i + 1);
  }
  EXPECT_EQ(checked_, script_.size() + 1);
}

TEST_F(CopyTest, ACopyInTheMiddleOfAnAdditionReadsAsTheEventsBeforeIt) {
  scripted::ScriptWriter writer(base_, script_);
  ASSERT_TRUE(writer.ok());
  // The event's fields, payload and changes are written, its tag is not
  // patched yet; every other time they are pushed into the file first.
  scripted::g_halfWritten = [&](kq_DB *db) {
    if (checked_ % 2 == 0) kq_FlushFiles(db);
    CheckCopy(writer.added());
  };
  ASSERT_TRUE(writer.AddAll());
  EXPECT_EQ(checked_, script_.size());
}

}  // namespace
