// End-to-end tests of the fast conversion: simulated dumps converted alike by
// the fast writer and the plain one (GFILE_WRITE_STDIO=1), their files of the
// size and FNV-1a hash the writer before any speed-up gave; and a conversion
// killed at random moments leaves a database that reads as a prefix.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "database_script.h"
#include "ravelog_run.h"
#include "simulated_dump.h"

using namespace ravelogtest;

namespace {

// Runs `ravelog core base` (standard output to /dev/null; the plain writer
// under GFILE_WRITE_STDIO=1), killed `after` microseconds behind the
// appearance of its .kqv when `after` isn't 0.
int Convert(const std::string &core, const std::string &base, bool plain, useconds_t after = 0) {
  const pid_t pid = fork();
  if (pid == 0) {
    const int null = open("/dev/null", O_WRONLY);
    if (null < 0 || dup2(null, 1) < 0) _exit(126);
    plain ? setenv("GFILE_WRITE_STDIO", "1", 1) : unsetenv("GFILE_WRITE_STDIO");
    execl(kBinary.c_str(), "ravelog", core.c_str(), base.c_str(), static_cast<char *>(nullptr));
    _exit(127);
  }
  int status = 0;
  pid_t done = 0;
  while (after != 0 && done == 0 && !FileExists(base + ".kqv")) done = waitpid(pid, &status, WNOHANG), usleep(100);
  if (after != 0 && done == 0) usleep(after), kill(pid, SIGKILL);
  if (done == 0) waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string SizeAndHash(const std::string &bytes) {
  uint64_t hash = 0xcbf29ce484222325ull;
  for (unsigned char c : bytes) hash = (hash ^ c) * 0x100000001b3ull;
  char text[40];
  snprintf(text, sizeof text, "%zu %016llx", bytes.size(), static_cast<unsigned long long>(hash));
  return text;
}

TEST(FastConversion, GivesTheFilesOfThePlainWriterByteForByte) {
  const std::pair<DumpShape, const char *> rows[] = {  // the files as the writer before the speed-ups wrote them
      {{150, 8, true}, "41 26c77b965c0984aa, 8237 60e2f8695f300fc9, 47 6ee65733433f93c3"},
      {{30000, 8, false}, "41 33765ec0d958ef0d, 1492323 7e2bfaaa1c121ffa, 3934 4e00e1db669248e8"},
      {{40000, 64, true}, "41 26c77b965c0984aa, 4051411 d5d71f91d1448450, 5234 c9185931b36111f2"},  // pool mapped
      {{9000, 64, false}, "41 33765ec0d958ef0d, 918911 02fcce02e29aa5c6, 1204 819be04fae33446c"}};
  for (const auto &[shape, files] : rows) {
    TempDir dir;
    ASSERT_TRUE(WriteSimulatedDump(dir.file("core"), shape));
    ASSERT_EQ(Convert(dir.file("core"), dir.file("fast"), false) + Convert(dir.file("core"), dir.file("plain"), true), 0);
    const DatabaseFiles fast = ReadDatabase(dir.file("fast")), plain = ReadDatabase(dir.file("plain"));
    EXPECT_TRUE(fast == plain) << files;
    EXPECT_EQ(SizeAndHash(plain.kqv) + ", " + SizeAndHash(plain.kqs) + ", " + SizeAndHash(plain.kqi), files);
  }
}

TEST(FastConversion, AKilledConversionLeavesThePrefixOfTheComplete) {
  TempDir dir(MemoryTempParent());
  ASSERT_TRUE(WriteSimulatedDump(dir.file("core"), {600000, 64, true}));
  long took[2] = {};  // microseconds of each writer's whole conversion
  for (const bool plain : {false, true}) {
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(Convert(dir.file("core"), dir.file(plain ? "plain" : "complete"), plain), 0);
    took[plain] = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start).count();
  }
  const DatabaseFiles complete = ReadDatabase(dir.file("complete"));
  EXPECT_TRUE(complete == ReadDatabase(dir.file("plain")));
  kq_DB *whole = kq_OpenForUse(dir.file("complete").c_str());
  Random random(20240611);
  for (int round = 0; round < 4; round++) {
    const bool plain = round % 2 == 1;
    auto after = static_cast<useconds_t>(1 + took[plain] * random.Below(70) / 100);  // behind the .kqv's appearance
    const std::string base = dir.file("killed" + std::to_string(round));
    while (Convert(dir.file("core"), base, plain, after) != 128 + SIGKILL) after = after / 2 + 1;  // it ended before the kill
    SCOPED_TRACE(std::string(plain ? "plain" : "mapped") + " writer killed after " + std::to_string(after) + " us");
    ASSERT_TRUE(StoppedEarly(ReadDatabase(base), complete));
    kq_DB *db = kq_OpenForUse(base.c_str());
    uint32_t count = 0;
    ASSERT_TRUE(db != nullptr && kq_GetStartEventAndNumEvents(db, nullptr, &count));
    EXPECT_EQ(TakeList(kq_GetNEventsAndStateFromEventNum(db, count - 99, 100, nullptr)),
              TakeList(kq_GetNEventsAndStateFromEventNum(whole, count - 99, 100, nullptr)));
    EXPECT_TRUE(TakeList(kq_GetNEventsAndStateFromEventNum(db, count + 1, 1, nullptr)).empty());
    kq_Close(db);
  }
  kq_Close(whole);
}

}  // namespace
