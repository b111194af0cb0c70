// End-to-end tests of the fast conversion against the plain one: simulated
// dumps of several shapes (a few blocks to 40,000 events, 8 and 64
// threads, both byte orders, pools read into memory and mapped)
// converted by the built ravelog as it runs by default and with
// GFILE_WRITE_STDIO=1 (every file through stdio, the unoptimised writer),
// the three files compared byte for byte with each other and with the size
// and FNV-1a hash that the writer before any speed-up gave for them.  And a
// conversion killed outright, by either writer, leaves files that read as
// exactly the first events of the complete conversion.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "database_walk.h"
#include "simulated_dump.h"
#include "temp_dir.h"

using testsupport::DumpShape;
using testsupport::ReadWithSyscalls;
using testsupport::TempDir;

namespace {

const std::string kBinary = RAVELOG_BINARY;

// Starts `ravelog core base` with standard output to /dev/null; with
// plainWriter, GFILE_WRITE_STDIO=1 in its environment.
pid_t StartConversion(const std::string &core, const std::string &base, bool plainWriter) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  const int null = open("/dev/null", O_WRONLY);
  if (null >= 0) dup2(null, 1);
  if (plainWriter) {
    setenv("GFILE_WRITE_STDIO", "1", 1);
  } else {
    unsetenv("GFILE_WRITE_STDIO");
  }
  execl(kBinary.c_str(), "ravelog", core.c_str(), base.c_str(), static_cast<char *>(nullptr));
  _exit(127);
}

int Finish(pid_t pid) {
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int Convert(const std::string &core, const std::string &base, bool plainWriter) {
  return Finish(StartConversion(core, base, plainWriter));
}

uint64_t Fnv1a(const std::string &bytes) {
  uint64_t hash = 0xcbf29ce484222325ull;
  for (unsigned char c : bytes) {
    hash ^= c;
    hash *= 0x100000001b3ull;
  }
  return hash;
}

struct Pinned {
  size_t size;
  uint64_t fnv;
};

struct Case {
  DumpShape shape;
  Pinned kqv, kqs, kqi;  // as the writer before the speed-ups wrote them
};

const Case kCases[] = {
    {{150, 8, true},
     {41, 0x26c77b965c0984aaull},
     {8237, 0x60e2f8695f300fc9ull},
     {47, 0x6ee65733433f93c3ull}},
    {{30000, 8, false},
     {41, 0x33765ec0d958ef0dull},
     {1492323, 0x7e2bfaaa1c121ffaull},
     {3934, 0x4e00e1db669248e8ull}},
    {{40000, 64, true},  // a pool of 1,280,000 bytes: mapped, not read
     {41, 0x26c77b965c0984aaull},
     {4051411, 0xd5d71f91d1448450ull},
     {5234, 0xc9185931b36111f2ull}},
    {{9000, 64, false},
     {41, 0x33765ec0d958ef0dull},
     {918911, 0x02fcce02e29aa5c6ull},
     {1204, 0x819be04fae33446cull}},
};

TEST(FastConversion, GivesTheFilesOfThePlainWriterByteForByte) {
  for (const Case &c : kCases) {
    SCOPED_TRACE(std::to_string(c.shape.events) + " events, " + std::to_string(c.shape.threads) +
                 " threads, " + (c.shape.bigEndian ? "big" : "little") + "-endian");
    TempDir dir;
    ASSERT_TRUE(testsupport::WriteSimulatedDump(dir.file("core"), c.shape));
    ASSERT_EQ(Convert(dir.file("core"), dir.file("fast"), false), 0);
    ASSERT_EQ(Convert(dir.file("core"), dir.file("plain"), true), 0);
    const std::pair<const char *, Pinned> files[] = {
        {".kqv", c.kqv}, {".kqs", c.kqs}, {".kqi", c.kqi}};
    for (const auto &[suffix, pinned] : files) {
      const std::string fast = ReadWithSyscalls(dir.file("fast") + suffix);
      const std::string plain = ReadWithSyscalls(dir.file("plain") + suffix);
      EXPECT_TRUE(fast == plain) << suffix << ": " << fast.size() << " against " << plain.size();
      EXPECT_EQ(plain.size(), pinned.size) << suffix;
      EXPECT_EQ(Fnv1a(plain), pinned.fnv) << suffix;
    }
  }
}

// ---- A conversion killed outright ---------------------------------------------------

off_t SizeOf(const std::string &name) {
  struct stat status {};
  return stat(name.c_str(), &status) == 0 ? status.st_size : 0;
}

// Checks that `killed` (a .kqs or .kqi left by a killed conversion) holds
// exactly the bytes of `complete` up to its end tag, which stands where
// complete has the tag of the next record.  (Behind it may stand a record
// that was being written, or zeros where the file had grown ahead.)
void ExpectPrefix(const std::string &killed, const std::string &complete, uint32_t endTag,
                  const char *what) {
  ASSERT_LT(endTag, complete.size()) << what;
  EXPECT_TRUE(killed.compare(0, endTag, complete, 0, endTag) == 0) << what;
  EXPECT_EQ(killed[endTag], '\0') << what;
  EXPECT_NE(complete[endTag], '\0') << what << ": the conversion had ended";
}

TEST(FastConversion, AKilledConversionLeavesTheFirstEventsReadable) {
  TempDir dir;
  const DumpShape shape{600000, 64, true};
  ASSERT_TRUE(testsupport::WriteSimulatedDump(dir.file("core"), shape));
  ASSERT_EQ(Convert(dir.file("core"), dir.file("complete"), false), 0);
  const std::string completeKqs = ReadWithSyscalls(dir.file("complete.kqs"));
  const std::string completeKqi = ReadWithSyscalls(dir.file("complete.kqi"));

  for (bool plainWriter : {false, true}) {
    SCOPED_TRACE(plainWriter ? "plain writer" : "mapped writer");
    const std::string base = dir.file(plainWriter ? "plain" : "mapped");
    // Killed once a few MiB stand in the stream (the mapped writer grows
    // its file ahead, so its size runs ahead of its contents).
    const off_t killAt = plainWriter ? (1 << 20) : (8 << 20);
    const pid_t pid = StartConversion(dir.file("core"), base, plainWriter);
    bool finished = false;
    for (int waited = 0; SizeOf(base + ".kqs") < killAt && waited < 120000; waited++) {
      int status = 0;
      if (waitpid(pid, &status, WNOHANG) == pid) {
        finished = true;
        break;
      }
      usleep(500);
    }
    ASSERT_FALSE(finished) << "the conversion ended before it could be killed";
    kill(pid, SIGKILL);
    ASSERT_EQ(Finish(pid), 128 + SIGKILL);

    const std::string kqs = ReadWithSyscalls(base + ".kqs");
    const std::string kqi = ReadWithSyscalls(base + ".kqi");
    const auto stream = testsupport::WalkStream(kqs, false);
    ASSERT_TRUE(stream.ok) << stream.error;
    EXPECT_GT(stream.EventCount(), 1000u);
    EXPECT_LT(stream.EventCount(), shape.events + shape.threads);
    ExpectPrefix(kqs, completeKqs, stream.endTag, ".kqs");
    const auto index = testsupport::WalkIndex(kqi, false);
    ASSERT_TRUE(index.ok) << index.error;
    ExpectPrefix(kqi, completeKqi, index.endTag, ".kqi");
    // The index never runs ahead of the stream.
    ASSERT_LE(index.entries.size(), stream.blocks.size());
    EXPECT_GE(index.entries.size() + 1, stream.blocks.size());
    for (size_t k = 0; k < index.entries.size(); k++) {
      EXPECT_EQ(index.entries[k].position, stream.blocks[k].position);
    }
  }
}

}  // namespace
