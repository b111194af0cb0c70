// Tests of reading a database while it is written, through stdio and through
// mappings: a reader follows a writer in another process, listing whole events
// in order until the files are the model's; and a copy of the files taken
// between any two additions, or in the middle of one, reads as the events so far.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>

#include "database_script.h"

using namespace testsupport;

namespace {

constexpr uint32_t kStdio = 0xFFFFFFFF, kMapped = 0;  // write mapping thresholds

TEST(GrowingDatabase, AReaderInAnotherProcessSeesWholeEventsInOrder) {
  for (const uint32_t threshold : {kStdio, kMapped}) {
    const uint32_t seed = 777001 + threshold % 7;
    SCOPED_TRACE("seed " + std::to_string(seed) + (threshold == kMapped ? ", mapped" : ", stdio"));
    Random random(seed);
    const Script script = GenerateScript(random, 20000);
    TempDir dir(MemoryTempParent());
    const std::string base = dir.file("db");
    const pid_t writer = fork();
    if (writer == 0) {  // bursts of 1 to 100 events, pauses of up to 3 ms
      gf_set_write_mapping_threshold(threshold);
      ScriptWriter w(base, script);
      bool ok = w.ok();
      while (ok && w.added() < script.size()) ok = w.Add(1 + random.Below(100)), usleep(random.Below(3000));
      w.Close();
      _exit(ok ? 0 : 1);
    }
    kq_DB *db = nullptr;
    kq_EventIter *iter = nullptr;  // on the tag of the next event to list
    Script seen;
    int status = -1, refreshes = 0;
    bool done = false;
    for (const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
         std::chrono::steady_clock::now() < deadline && !testing::Test::HasFailure();) {
      done = done || waitpid(writer, &status, WNOHANG) == writer;
      if ((db == nullptr && (db = kq_OpenForUse(base.c_str())) == nullptr) || !kq_MoreEvents(db)) {  // no .kqv yet, or no news
        if (done) break;
        usleep(50);
        continue;
      }
      refreshes++;
      uint32_t count = 0;
      kq_GetStartEventAndNumEvents(db, nullptr, &count);
      ASSERT_TRUE(count >= seen.size() && count <= script.size()) << count << " after " << seen.size();
      if (count == 0) continue;
      if (iter == nullptr) kq_GetStateAndIterFromTime(db, 0, &iter, nullptr);
      const Script listed = TakeList(kq_GetNEventsBeforeTime(db, &iter, static_cast<int>(count - seen.size()), 0, 0));
      ASSERT_EQ(listed, Listed(script, seen.size(), count));
      seen.insert(seen.end(), listed.begin(), listed.end());
    }
    if (!done) kill(writer, SIGKILL), waitpid(writer, &status, 0);
    ASSERT_TRUE(done && WIFEXITED(status) && WEXITSTATUS(status) == 0 && db != nullptr) << "writer status " << status;
    EXPECT_TRUE(seen.size() == script.size() && kq_MoreEvents(db) == 0 && refreshes > 10) << refreshes;  // it did follow
    EXPECT_TRUE(SameFiles(ReadDatabase(base), Render(script)));
    kq_DB *fresh = kq_OpenForUse(base.c_str());
    EXPECT_EQ(fresh->numTimePos, db->numTimePos);
    EXPECT_EQ(TakeList(kq_GetEventListAndStateFromTimeRange(fresh, 0, kFarFuture, nullptr)), seen);
    kq_Close(fresh);
    kq_DeleteEventIter(iter);
    kq_Close(db);
  }
}

// A copy of the database being written, as another process reads it now,
// is exactly the first `events` events.
void CheckCopy(const std::string &base, const Script &script, size_t events) {
  for (const char *suffix : {".kqv", ".kqs", ".kqi"}) ASSERT_TRUE(WriteFileBytes(base + "copy" + suffix, ReadFileBytes(base + suffix)));
  kq_DB *db = kq_OpenForUse((base + "copy").c_str());
  ASSERT_NE(db, nullptr) << "after " << events;
  uint32_t count = 99;
  uint64_t start = 0, end = 0;
  kq_State *state = nullptr;
  kq_GetStartEventAndNumEvents(db, nullptr, &count);
  kq_GetTimeExtent(db, &start, &end);
  EXPECT_TRUE(count == events && end == (events > 0 ? script[events - 1].time + 1 : 1) && kq_MoreEvents(db) == 0) << "after " << events;
  EXPECT_EQ(TakeList(kq_GetEventListAndStateFromTimeRange(db, 0, kFarFuture, nullptr)), Listed(script, 0, events));
  EXPECT_EQ(TakeList(kq_GetNEventsAndStateFromEventNum(db, 1, 0, nullptr)), Listed(script, 0, events));
  ASSERT_EQ(kq_GetStateAndIterFromTime(db, kFarFuture, nullptr, &state), 1);
  EXPECT_EQ(TakeState(state), Replay(script, events)) << "after " << events;
  kq_Close(db);
}

TEST(GrowingDatabase, ACopyBetweenOrInTheMiddleOfAdditionsReadsAsTheEventsSoFar) {
  Random random(31337);
  const Script script = GenerateScript(random, 130);
  const uint32_t saved = gf_get_write_mapping_threshold();
  for (const uint32_t threshold : {kStdio, kMapped}) {
    for (const bool middle : {false, true}) {
      SCOPED_TRACE(std::string(threshold == kMapped ? "mapped" : "stdio") + (middle ? ", in the middle" : ""));
      gf_set_write_mapping_threshold(threshold);
      TempDir dir(MemoryTempParent());
      ScriptWriter writer(dir.file("db"), script);
      size_t checked = 0;
      // In the middle: the event's bytes written, its tag not yet patched;
      // every other time pushed into the file first.
      if (middle) halfWritten = [&](kq_DB *db) {
        EXPECT_EQ(gf_is_write_mapped(db->streamFile), threshold == kMapped);
        if (checked++ % 2 == 0) kq_FlushFiles(db);
        CheckCopy(dir.file("db"), script, writer.added());
      };
      for (size_t i = 0; i <= script.size(); i++) {
        if (!middle) CheckCopy(dir.file("db"), script, i);
        ASSERT_TRUE(i == script.size() || writer.Add());
      }
      halfWritten = nullptr;
      writer.Close();
      EXPECT_TRUE(SameFiles(ReadDatabase(dir.file("db")), Render(script)));
    }
  }
  gf_set_write_mapping_threshold(saved);
}

}  // namespace
