// Tests of writing a GFile through a mapping: the same files, positions and
// messages as the plain stream for the same calls (a long fixed-seed run of
// writes, back-patches and seeks); what another reader sees while the file
// is open (every byte written before a seek, then zeros) and after close
// (the exact length); the threshold; reads and bad seeks; and what exit(),
// a kill and a full disk leave behind.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "gen_capture.h"
#include "database_model.h"  // HexBytes, ToHex
#include "indgfile.h"
#include "temp_dir.h"
#include "test_random.h"

using testsupport::HexBytes;
using testsupport::ReadFileBytes;
using testsupport::RunCapturing;

namespace {

const std::string kHeader = HexBytes("7F \"TOV\" 00000001 00000004 00000000 04 00 00 00");
constexpr uint32_t kNever = 0xFFFFFFFFu;

// Sets the mapping threshold for one test and restores it.
struct ScopedThreshold {
  explicit ScopedThreshold(uint32_t bytes) : saved(gf_get_write_mapping_threshold()) {
    gf_set_write_mapping_threshold(bytes);
  }
  ~ScopedThreshold() { gf_set_write_mapping_threshold(saved); }
  uint32_t saved;
};

GFile *OpenForWrite(const std::string &path) {
  return gf_open_for_write(nullptr, nullptr, path.c_str(), 4, 0, 2, 0, 0);
}

// One fixed run on a new file, with every gf_tell answer appended to
// *tells: records of every width (a few of 3 MiB), each back-patching the
// byte in front of it, and seeks beyond the end (writing there or not) and
// back, so that a mapped file grows through several steps.
void WriteSequence(const std::string &path, std::vector<int32_t> *tells) {
  GFile *gf = OpenForWrite(path);
  testsupport::Random random(7);
  std::vector<unsigned char> block(3 << 20);
  for (size_t i = 0; i < block.size(); i++) block[i] = static_cast<unsigned char>(i * 7 + 1);
  gf_put_1(gf, 0);
  for (int r = 0; r < 2000; r++) {
    const int32_t tag = gf_tell(gf, nullptr) - 1;
    switch (random.Below(4)) {
      case 0: gf_put_8(gf, 0x0102030405060708ull * random.Below(1000)); break;
      case 1: gf_put_array_1(gf, block.data(), random.Below(random.Below(40) == 0 ? 3u << 20 : 9000)); break;
      case 2:  // beyond the end, writing there or not, and back
        gf_seek(gf, tag + 1 + static_cast<int32_t>(random.Below(5000)));
        if (random.Below(2) == 0) gf_put_4(gf, 0xABCDEF01u);
        tells->push_back(gf_tell(gf, nullptr));
        gf_seek(gf, tag + 1);
    }
    gf_put_1(gf, 0);
    const int32_t end = gf_tell(gf, nullptr);
    tells->push_back(end);
    gf_seek(gf, tag);
    gf_put_1(gf, 1 + random.Below(3));
    gf_seek(gf, end);
  }
  EXPECT_EQ(gf_got_error(gf), 0);
  gf_close(gf);
}

class MappedWrite : public ::testing::Test {
 protected:
  std::string Path(const char *name = "f.kqs") const { return dir_.file(name); }
  std::string Fatal(const char *what) const {
    return "tool: fatal: Error while processing \"" + Path() + "\": " + what + "\n";
  }
  testsupport::TempDir dir_;
  testsupport::ScopedProgName name_{"tool"};
};

TEST_F(MappedWrite, MappedAndPlainWritersLeaveTheSameFileAndPositions) {
  SCOPED_TRACE("seed 7");
  std::vector<int32_t> plainTells, mappedTells;
  {
    ScopedThreshold plain(kNever);
    WriteSequence(Path("plain"), &plainTells);
    ScopedThreshold mapped(0);
    WriteSequence(Path("mapped"), &mappedTells);
  }
  const std::string plainBytes = ReadFileBytes(Path("plain"));
  ASSERT_GT(plainBytes.size(), 3u << 20);  // through several steps of growth
  EXPECT_TRUE(plainBytes == ReadFileBytes(Path("mapped")));
  EXPECT_EQ(plainTells, mappedTells);
}

TEST_F(MappedWrite, OthersSeeEachByteBeforeALaterSeekThenZerosAndCloseCuts) {
  for (uint32_t threshold : {kNever, 0u}) {
    ScopedThreshold scoped(threshold);
    GFile *gf = OpenForWrite(Path());
    gf_put_1(gf, 0);
    EXPECT_EQ(gf_is_write_mapped(gf), 0);  // nothing moves before a seek
    auto append = [&](uint32_t tag, uint32_t value) {  // a record, its end tag, then its tag
      const int32_t tagAt = gf_tell(gf, nullptr) - 1;
      gf_put_4(gf, value);
      gf_put_1(gf, 0);
      const int32_t end = gf_tell(gf, nullptr);
      ASSERT_EQ(gf_seek(gf, tagAt), 0);
      gf_put_1(gf, tag);
      ASSERT_EQ(gf_seek(gf, end), 0);
    };
    append(3, 0xDEADBEEF);
    EXPECT_EQ(gf_is_write_mapped(gf), threshold == 0 ? 1 : 0);
    append(1, 0x00ABCDEF);
    const std::string written = kHeader + HexBytes("03 DEADBEEF 01 00ABCDEF 00");
    const std::string seen = ReadFileBytes(Path());  // through a descriptor of its own
    EXPECT_EQ(seen.substr(0, written.size()), written);
    EXPECT_EQ(seen.find_first_not_of('\0', written.size()), std::string::npos);
    EXPECT_EQ(gf_tell(gf, nullptr), 31);
    gf_close(gf);
    EXPECT_EQ(ReadFileBytes(Path()), written);
  }
}

TEST_F(MappedWrite, FilesMoveOnlyAtASeekAtOrBeyondTheThreshold) {
  ScopedThreshold threshold(65536);
  GFile *gf = OpenForWrite(Path());
  const std::string filler(65536 - 21, 'x');
  gf_put_array_1(gf, filler.data(), static_cast<uint32_t>(filler.size()));
  gf_seek(gf, 65535);
  EXPECT_EQ(gf_is_write_mapped(gf), 0);
  gf_put_1(gf, 'y');
  gf_seek(gf, 65536);
  EXPECT_EQ(gf_is_write_mapped(gf), 1);
  gf_close(gf);
  EXPECT_EQ(ReadFileBytes(Path()), kHeader + filler + "y");
  FILE *fp = fopen(Path("handed").c_str(), "w");  // a stream handed in stays with stdio
  GFile record;
  gf_open_for_write(&record, fp, "handed", 4, 0, 2, 0, 0);
  ScopedThreshold always(0);
  EXPECT_EQ(gf_seek(&record, 1 << 20), 0);
  EXPECT_EQ(gf_is_write_mapped(&record), 0);
  gf_close(&record);
  fclose(fp);
}

TEST_F(MappedWrite, ReadsBadSeeksAndFailingClosesActAsOnThePlainStream) {
  ScopedThreshold mapped(0);
  GFile *gf = OpenForWrite(Path());
  gf_put_4(gf, 0x01020304);
  gf_seek(gf, 22);
  ASSERT_EQ(gf_is_write_mapped(gf), 1);
  EXPECT_EQ(RunCapturing([&] {
              EXPECT_EQ(gf_seek(gf, -100), -1);
              EXPECT_EQ(gf_seek(gf, -1), -1);
            }).err, Fatal("Invalid argument"));
  EXPECT_EQ(gf_got_error(gf), 0);
  EXPECT_EQ(gf_tell(gf, nullptr), 22);
  EXPECT_EQ(gf_get_1(gf), 0xFFu);  // back on the stream, opened "w": the read fails there
  EXPECT_EQ(gf_is_write_mapped(gf), 0);
  EXPECT_EQ(gf_got_error(gf), 1);
  EXPECT_EQ(gf_tell(gf, nullptr), 22);
  gf_seek(gf, 24);
  EXPECT_EQ(gf_is_write_mapped(gf), 0);  // and stays there
  gf_put_1(gf, 0x55);
  gf_seek(gf, 100);  // beyond the end, nothing written there
  gf_close(gf);
  EXPECT_EQ(ReadFileBytes(Path()), kHeader + HexBytes("01020304 55"));
  gf = OpenForWrite(Path());
  gf_seek(gf, 20);
  gf_put_1(gf, 9);
  gf_seek(gf, 100);
  ASSERT_EQ(gf_is_write_mapped(gf), 1);
  EXPECT_EQ(RunCapturing([&] {
              close(fileno(gf->fp));
              EXPECT_EQ(gf_close(gf), 1);
            }).err, Fatal("Bad file descriptor"));
  EXPECT_EQ(ReadFileBytes(Path()), kHeader + "\x09");  // cut all the same
}

// Runs body in a child process; returns its exit status, or 100 + the
// signal that ended it.
int InChild(const std::function<int()> &body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

// A header and 5 MiB written through a mapping; the file stays open.
GFile *WriteFiveMiB(const std::string &path) {
  gf_set_write_mapping_threshold(0);
  GFile *gf = OpenForWrite(path);
  gf_seek(gf, 20);
  const std::vector<char> bytes(5 << 20, 'z');
  gf_put_array_1(gf, bytes.data(), static_cast<uint32_t>(bytes.size()));
  return gf;
}

TEST_F(MappedWrite, ExitCutsOpenFilesAndAKillLeavesZerosBehindTheBytes) {
  const std::string written = kHeader + std::string(5 << 20, 'z');
  EXPECT_EQ(InChild([&]() -> int { exit(gf_is_write_mapped(WriteFiveMiB(Path("exit"))) ? 0 : 3); }), 0);
  EXPECT_TRUE(ReadFileBytes(Path("exit")) == written);
  EXPECT_EQ(InChild([&] {
              WriteFiveMiB(Path("kill"));
              return raise(SIGKILL);
            }), 100 + SIGKILL);
  const std::string left = ReadFileBytes(Path("kill"));
  ASSERT_GT(left.size(), written.size());
  EXPECT_TRUE(left.compare(0, written.size(), written) == 0);
  EXPECT_EQ(left.find_first_not_of('\0', written.size()), std::string::npos);
  // A child that inherited a mapping and exits doesn't cut its parent's file.
  ScopedThreshold mapped(0);
  GFile *gf = OpenForWrite(Path());
  gf_seek(gf, 20);
  gf_put_4(gf, 0x11111111);
  EXPECT_EQ(InChild([]() -> int { exit(0); }), 0);  // runs the exit handlers it inherited
  gf_put_4(gf, 0x22222222);
  gf_seek(gf, 20);  // the length now stands in the record, not only in the cursor
  gf_close(gf);
  EXPECT_EQ(ReadFileBytes(Path()), kHeader + HexBytes("11111111 22222222"));
}

// A file that can't grow (a size limit of 5 MiB on the process, the way a
// full disk refuses it) leaves the mapping for the stream where it stands:
// no store faults, the bytes up to the limit are in the file, and the
// failure shows in the error state as on the plain stream.
TEST_F(MappedWrite, AFileThatCannotGrowGoesBackToTheStreamAndFailsThere) {
  constexpr rlim_t kLimit = 5 << 20;  // the first step of growth fits, the second not
  EXPECT_EQ(InChild([&] {
              signal(SIGXFSZ, SIG_IGN);
              const rlimit limit{kLimit, kLimit};
              setrlimit(RLIMIT_FSIZE, &limit);
              gf_set_write_mapping_threshold(0);
              GFile *gf = OpenForWrite(Path());
              gf_seek(gf, 20);
              const int mapped = gf_is_write_mapped(gf);
              const std::vector<unsigned char> block(1 << 16, 'm');
              for (int i = 0; i < 96; i++) gf_put_array_1(gf, block.data(), 1 << 16);
              const int result = mapped * 100 + gf_is_write_mapped(gf) * 10 + gf_got_error(gf);
              gf_close(gf);
              return result;
            }), 101);  // mapped, then back on the stream, which failed
  const std::string left = ReadFileBytes(Path());
  EXPECT_EQ(left.size(), kLimit);
  EXPECT_EQ(left.substr(0, 20), kHeader);
  EXPECT_EQ(left.find_first_not_of('m', 20), std::string::npos);
}

}  // namespace
