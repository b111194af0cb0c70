// Tests of writing a GFile through a mapping: the same files, positions and
// messages as the plain stream for the same calls (a long random run of
// writes, back-patches and seeks, compared file for file and tell for
// tell); what another descriptor sees while the file is open (the bytes
// written, then zeros) and after close (the exact length); the threshold;
// reads and bad seeks; and what exit() and a kill leave behind.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "gen_capture.h"
#include "indgfile.h"
#include "temp_dir.h"

using testsupport::Captured;
using testsupport::ReadFileBytes;
using testsupport::RunCapturing;
using testsupport::ScopedProgName;
using testsupport::TempDir;

namespace {

const std::string kStreamHeader("\x7FTOV\0\0\0\x01\0\0\0\x04\0\0\0\0\x04\0\0\0", 20);

// Sets the mapping threshold for one test and restores it.
class ScopedThreshold {
 public:
  explicit ScopedThreshold(uint32_t bytes) : saved_(gf_get_write_mapping_threshold()) {
    gf_set_write_mapping_threshold(bytes);
  }
  ~ScopedThreshold() { gf_set_write_mapping_threshold(saved_); }
  ScopedThreshold(const ScopedThreshold &) = delete;
  ScopedThreshold &operator=(const ScopedThreshold &) = delete;

 private:
  uint32_t saved_;
};

constexpr uint32_t kNever = 0xFFFFFFFFu;

GFile *OpenForWrite(const std::string &path) {
  return gf_open_for_write(nullptr, nullptr, path.c_str(), 4, 0, 2, 0, 0);
}

// Whole file through a descriptor of its own, as another process reads it.
std::string ReadThroughDescriptor(const std::string &path) {
  std::string bytes;
  const int fd = open(path.c_str(), O_RDONLY);
  if (fd < 0) return bytes;
  std::vector<char> buffer(1 << 16);
  ssize_t got;
  while ((got = read(fd, buffer.data(), buffer.size())) > 0) bytes.append(buffer.data(), static_cast<size_t>(got));
  close(fd);
  return bytes;
}

// A fixed-seed generator, so that a failure can be replayed.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint32_t Below(uint32_t n) {
    state_ = state_ * 6364136223846793005ull + 1442695040888963407ull;
    return static_cast<uint32_t>(state_ >> 33) % n;
  }

 private:
  uint64_t state_;
};

// Runs one fixed sequence of operations on a new file and returns every
// gf_tell answer along the way.  The sequence appends records of every
// width (values, short and long arrays, a few of more than a MiB),
// back-patches the byte in front of each, seeks beyond the end (with and
// without writing there) and comes back, so the file grows through several
// steps of a mapping.
std::vector<int32_t> WriteSequence(const std::string &path, uint64_t seed, int records) {
  std::vector<int32_t> tells;
  GFile *gf = OpenForWrite(path);
  EXPECT_NE(gf, nullptr);
  if (gf == nullptr) return tells;
  Random random(seed);
  gf_put_1(gf, 0);
  std::vector<unsigned char> block(3 << 20);
  for (size_t i = 0; i < block.size(); i++) block[i] = static_cast<unsigned char>(i * 7 + 1);
  for (int r = 0; r < records; r++) {
    const int32_t tag = gf_tell(gf, nullptr) - 1;
    tells.push_back(tag);
    switch (random.Below(6)) {
      case 0: gf_put_2(gf, random.Below(65536)); break;
      case 1: gf_put_4(gf, random.Below(0xFFFFFFFFu)); break;
      case 2: gf_put_8(gf, 0x0102030405060708ull * random.Below(1000)); break;
      case 3: gf_put_array_1(gf, block.data(), random.Below(300)); break;
      case 4: gf_put_array_1(gf, block.data(), random.Below(random.Below(40) == 0 ? 3u << 20 : 9000)); break;
      default: {  // a seek beyond the end, and back
        const int32_t end = gf_tell(gf, nullptr);
        gf_seek(gf, end + static_cast<int32_t>(random.Below(5000)));
        if (random.Below(2) == 0) gf_put_4(gf, 0xABCDEF01u);
        tells.push_back(gf_tell(gf, nullptr));
        gf_seek(gf, end);
        break;
      }
    }
    gf_put_1(gf, 0);
    const int32_t end = gf_tell(gf, nullptr);
    tells.push_back(end);
    gf_seek(gf, tag);
    gf_put_1(gf, 1 + random.Below(3));
    gf_seek(gf, end);
  }
  EXPECT_EQ(gf_got_error(gf), 0);
  gf_close(gf);
  return tells;
}

class MappedWrite : public ::testing::Test {
 protected:
  std::string Path(const char *name = "f.kqs") const { return dir_.file(name); }
  TempDir dir_;
  ScopedProgName name_{"tool"};
};

// ---- Same bytes, same positions ----------------------------------------------------

TEST_F(MappedWrite, MappedAndPlainWritersLeaveTheSameFileAndPositions) {
  for (uint64_t seed : {1u, 2u, 3u}) {
    std::vector<int32_t> plainTells, mappedTells;
    {
      ScopedThreshold plain(kNever);
      plainTells = WriteSequence(Path("plain"), seed, 3000);
    }
    {
      ScopedThreshold mapped(0);
      mappedTells = WriteSequence(Path("mapped"), seed, 3000);
    }
    const std::string plainBytes = ReadFileBytes(Path("plain"));
    ASSERT_GT(plainBytes.size(), 3u << 20) << "seed " << seed;  // crosses several growth steps
    EXPECT_TRUE(plainBytes == ReadFileBytes(Path("mapped"))) << "seed " << seed;
    EXPECT_EQ(plainTells, mappedTells) << "seed " << seed;
  }
}

TEST_F(MappedWrite, WhileOpenOthersSeeTheBytesThenZerosAndCloseCutsToTheLength) {
  ScopedThreshold mapped(0);
  GFile *gf = OpenForWrite(Path());
  ASSERT_NE(gf, nullptr);
  gf_put_1(gf, 0);
  EXPECT_EQ(gf_is_write_mapped(gf), 0);  // nothing moves before a seek
  ASSERT_EQ(gf_seek(gf, 21), 0);
  EXPECT_EQ(gf_is_write_mapped(gf), 1);
  gf_put_4(gf, 0xDEADBEEF);
  gf_put_1(gf, 0);
  ASSERT_EQ(gf_seek(gf, 20), 0);
  gf_put_1(gf, 3);  // the back-patch
  ASSERT_EQ(gf_seek(gf, 26), 0);
  const std::string written = kStreamHeader + std::string("\x03\xDE\xAD\xBE\xEF\x00", 6);
  const std::string seen = ReadThroughDescriptor(Path());
  ASSERT_GE(seen.size(), written.size());
  EXPECT_EQ(seen.substr(0, written.size()), written);
  EXPECT_EQ(seen.find_first_not_of('\0', written.size()), std::string::npos);
  EXPECT_EQ(gf_tell(gf, nullptr), 26);
  gf_close(gf);
  EXPECT_EQ(ReadThroughDescriptor(Path()), written);
}

TEST_F(MappedWrite, FilesMoveOnlyAtASeekAtOrBeyondTheThreshold) {
  ScopedThreshold threshold(65536);
  GFile *gf = OpenForWrite(Path());
  ASSERT_NE(gf, nullptr);
  std::vector<char> filler(65536 - 21, 'x');
  gf_put_array_1(gf, filler.data(), static_cast<uint32_t>(filler.size()));
  gf_seek(gf, 65535);
  EXPECT_EQ(gf_is_write_mapped(gf), 0);
  gf_put_1(gf, 'y');
  gf_seek(gf, 65536);
  EXPECT_EQ(gf_is_write_mapped(gf), 1);
  gf_close(gf);
  EXPECT_EQ(ReadFileBytes(Path()), kStreamHeader + std::string(filler.data(), filler.size()) + "y");

  // A stream handed in stays with its owner's stdio, wherever it stands.
  FILE *fp = fopen(Path("handed").c_str(), "w");
  ASSERT_NE(fp, nullptr);
  GFile record;
  ASSERT_EQ(gf_open_for_write(&record, fp, "handed", 4, 0, 2, 0, 0), &record);
  ScopedThreshold always(0);
  gf_put_4(&record, 1);
  EXPECT_EQ(gf_seek(&record, 1 << 20), 0);
  EXPECT_EQ(gf_is_write_mapped(&record), 0);
  gf_close(&record);
  fclose(fp);
}

// ---- Reads, bad seeks, failing closes --------------------------------------------------

TEST_F(MappedWrite, AReadGoesBackToTheStreamAndFailsThereAsBefore) {
  ScopedThreshold mapped(0);
  GFile *gf = OpenForWrite(Path());
  ASSERT_NE(gf, nullptr);
  gf_put_4(gf, 0x01020304);
  gf_seek(gf, 22);
  ASSERT_EQ(gf_is_write_mapped(gf), 1);
  EXPECT_EQ(gf_get_1(gf), 0xFFu);  // a stream opened "w" can't be read
  EXPECT_EQ(gf_is_write_mapped(gf), 0);
  EXPECT_EQ(gf_got_error(gf), 1);
  EXPECT_EQ(gf_tell(gf, nullptr), 22);
  gf_seek(gf, 24);
  EXPECT_EQ(gf_is_write_mapped(gf), 0);  // it stays on the stream
  gf_put_1(gf, 0x55);
  gf_close(gf);
  EXPECT_EQ(ReadFileBytes(Path()), kStreamHeader + std::string("\x01\x02\x03\x04\x55", 5));
}

TEST_F(MappedWrite, NegativeSeekFailsWithEinvalOnceAndTheFileGoesOn) {
  ScopedThreshold mapped(0);
  GFile *gf = OpenForWrite(Path());
  ASSERT_NE(gf, nullptr);
  gf_seek(gf, 20);
  ASSERT_EQ(gf_is_write_mapped(gf), 1);
  Captured run = RunCapturing([&] {
    EXPECT_EQ(gf_seek(gf, -100), -1);
    EXPECT_EQ(gf_seek(gf, -1), -1);
  });
  EXPECT_EQ(run.err, "tool: fatal: Error while processing \"" + Path() + "\": Invalid argument\n");
  EXPECT_EQ(gf_got_error(gf), 0);
  EXPECT_EQ(gf_tell(gf, nullptr), 20);
  gf_put_1(gf, 9);
  gf_seek(gf, 100);  // beyond the end, nothing written there
  gf_close(gf);
  EXPECT_EQ(ReadFileBytes(Path()), kStreamHeader + "\x09");
}

TEST_F(MappedWrite, AFailingCloseIsReportedOnce) {
  ScopedThreshold mapped(0);
  GFile *gf = OpenForWrite(Path());
  ASSERT_NE(gf, nullptr);
  gf_seek(gf, 20);
  gf_put_1(gf, 0);
  ASSERT_EQ(gf_is_write_mapped(gf), 1);
  int result = 0;
  Captured run = RunCapturing([&] {
    close(fileno(gf->fp));
    result = gf_close(gf);
  });
  EXPECT_EQ(result, 1);
  EXPECT_EQ(run.err, "tool: fatal: Error while processing \"" + Path() + "\": Bad file descriptor\n");
  EXPECT_EQ(ReadFileBytes(Path()), kStreamHeader + std::string(1, '\0'));  // cut all the same
}

// ---- Ends without gf_close --------------------------------------------------------------

// Writes a header, a byte and 5 MiB through a mapping in a child process,
// which then ends by `how`: 'x' exit(0), 'k' waits to be killed.
pid_t WriteInChild(const std::string &path, char how, int ready) {
  const pid_t child = fork();
  if (child != 0) return child;
  gf_set_write_mapping_threshold(0);
  GFile *gf = OpenForWrite(path);
  if (gf == nullptr) _exit(2);
  gf_seek(gf, 20);
  std::vector<char> bytes(5 << 20, 'z');
  gf_put_array_1(gf, bytes.data(), static_cast<uint32_t>(bytes.size()));
  if (how == 'x') exit(gf_is_write_mapped(gf) ? 0 : 3);
  (void)!write(ready, "r", 1);
  pause();
  _exit(4);
}

TEST_F(MappedWrite, ExitCutsOpenFilesAndAKillLeavesZerosBehindTheBytes) {
  int status = 0;
  pid_t child = WriteInChild(Path("exit"), 'x', -1);
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(ReadFileBytes(Path("exit")), kStreamHeader + std::string(5 << 20, 'z'));

  int pipeFds[2];
  ASSERT_EQ(pipe(pipeFds), 0);
  child = WriteInChild(Path("kill"), 'k', pipeFds[1]);
  char ready = 0;
  ASSERT_EQ(read(pipeFds[0], &ready, 1), 1);
  kill(child, SIGKILL);
  ASSERT_EQ(waitpid(child, &status, 0), child);
  close(pipeFds[0]);
  close(pipeFds[1]);
  const std::string left = ReadFileBytes(Path("kill"));
  const std::string written = kStreamHeader + std::string(5 << 20, 'z');
  ASSERT_GT(left.size(), written.size());
  EXPECT_EQ(left.substr(0, written.size()), written);
  EXPECT_EQ(left.find_first_not_of('\0', written.size()), std::string::npos);
}

TEST_F(MappedWrite, AChildThatExitsDoesNotCutItsParentsFile) {
  ScopedThreshold mapped(0);
  GFile *gf = OpenForWrite(Path());
  ASSERT_NE(gf, nullptr);
  gf_seek(gf, 20);
  gf_put_4(gf, 0x11111111);
  const pid_t child = fork();
  if (child == 0) exit(0);  // runs the exit handlers it inherited
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  gf_put_4(gf, 0x22222222);
  gf_seek(gf, 20);  // the length now stands in the record, not only in the cursor
  gf_close(gf);
  EXPECT_EQ(ReadFileBytes(Path()), kStreamHeader + std::string("\x11\x11\x11\x11\x22\x22\x22\x22", 8));
}

// A file that can't grow (here a size limit of 5 MiB on the process, the
// way a full disk refuses it) leaves the mapping for the stream where it
// stands: no store faults, the bytes up to the limit are in the file, and
// the failure shows in the error state as on the plain stream.
TEST_F(MappedWrite, AFileThatCannotGrowGoesBackToTheStreamAndFailsThere) {
  constexpr rlim_t kLimit = 5 << 20;  // the first step of growth fits, the second not
  const std::string path = Path();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{kLimit, kLimit};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(10);
    gf_set_write_mapping_threshold(0);
    GFile *gf = OpenForWrite(path);
    if (gf == nullptr) _exit(11);
    gf_seek(gf, 20);
    const bool mapped = gf_is_write_mapped(gf) == 1;
    const std::vector<unsigned char> block(1 << 16, 'm');
    for (int i = 0; i < 96; i++) gf_put_array_1(gf, block.data(), static_cast<uint32_t>(block.size()));
    const bool back = gf_is_write_mapped(gf) == 0;
    const int failed = gf_got_error(gf);
    gf_close(gf);
    _exit(mapped && back && failed != 0 ? 0 : 12);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0);
  const std::string left = ReadFileBytes(path);
  EXPECT_EQ(left.size(), kLimit);
  EXPECT_EQ(left.substr(0, 20), kStreamHeader);
  EXPECT_EQ(left.find_first_not_of('m', 20), std::string::npos);
}

}  // namespace
