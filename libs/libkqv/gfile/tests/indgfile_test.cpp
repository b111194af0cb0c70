// Tests of GFile streams: the header as written and the refusals on read,
// positions relative to a header that doesn't start the stream, big-endian
// values and reads past the end, the once-only message and the sticky
// flags, memory mapping, and a back-patch seen by another reader.
#include "indgfile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <string>

#include "gen_capture.h"
#include "temp_dir.h"

using testsupport::Captured;
using testsupport::ReadFileBytes;
using testsupport::RunCapturing;
using testsupport::ScopedProgName;
using testsupport::TempDir;
using testsupport::WriteFileBytes;

namespace {

std::string Bytes(std::initializer_list<int> values) {
  std::string bytes;
  for (int v : values) bytes.push_back(static_cast<char>(v));
  return bytes;
}

// The header of the database's stream file: type 4, packed 0, 32bit.
const std::string kStreamHeader =
    Bytes({0x7F, 'T', 'O', 'V', 0, 0, 0, 1, 0, 0, 0, 4, 0, 0, 0, 0, 0x04, 0x00, 0x00, 0x00});

// The whole file as another descriptor sees it, through read(2).
std::string ReadThroughDescriptor(const std::string &path) {
  std::string bytes;
  int fd = open(path.c_str(), O_RDONLY);
  if (fd < 0) return bytes;
  char buffer[256];
  ssize_t got;
  while ((got = read(fd, buffer, sizeof buffer)) > 0)
    bytes.append(buffer, static_cast<size_t>(got));
  close(fd);
  return bytes;
}

class GFileTest : public ::testing::Test {
 protected:
  std::string Path(const char *name = "f.kqs") const { return dir_.file(name); }
  // Writes bytes as the file and opens it for read, capturing messages.
  GFile *OpenBytes(const std::string &bytes, std::string *err = nullptr) {
    EXPECT_TRUE(WriteFileBytes(Path(), bytes));
    GFile *gf = nullptr;
    Captured run = RunCapturing([&] { gf = gf_open_for_read(nullptr, nullptr, Path().c_str()); });
    if (err != nullptr) *err = run.err;
    return gf;
  }

  TempDir dir_;
  ScopedProgName name_{"tool"};
};

// ---- Writing the header ----------------------------------------------------

TEST_F(GFileTest, StreamFileHeaderIsWrittenExactly) {
  GFile *gf = nullptr;
  Captured run = RunCapturing(
      [&] { gf = gf_open_for_write(nullptr, nullptr, Path().c_str(), 4, 0, 2, 0, 0); });
  ASSERT_NE(gf, nullptr);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(gf_tell(gf, nullptr), 20);
  EXPECT_EQ(gf_close(gf), 1);
  EXPECT_EQ(ReadFileBytes(Path()), kStreamHeader);
}

TEST_F(GFileTest, HeaderCarriesTypePackedEncodingAndHdStorage) {
  const int encodings[] = {0x02, 0x42, 0x04, 0x08};
  for (int mode = 0; mode < 4; mode++) {
    GFile *gf =
        gf_open_for_write(nullptr, nullptr, Path().c_str(), 0xA1B2C3D4u, 0x01020304u, mode, 0, 7);
    ASSERT_NE(gf, nullptr);
    EXPECT_EQ(gf->hd_storage, 7);
    gf_close(gf);
    EXPECT_EQ(
        ReadFileBytes(Path()),
        Bytes({0x7F, 'T', 'O', 'V', 0, 0, 0, 1, 0xA1, 0xB2, 0xC3, 0xD4, 1, 2, 3, 4, encodings[mode],
               0,    1,   0}))
        << "mode " << mode;
  }
}

TEST_F(GFileTest, DescriptorsAreWarnedAboutAndNotWritten) {
  GFile *gf = nullptr;
  Captured run = RunCapturing(
      [&] { gf = gf_open_for_write(nullptr, nullptr, Path().c_str(), 4, 0, 2, 1, 0); });
  ASSERT_NE(gf, nullptr);
  EXPECT_EQ(run.err, "tool: warning: GFile desciptors not supported\n");
  EXPECT_EQ(gf->descriptors, 0);
  gf_close(gf);
  EXPECT_EQ(ReadFileBytes(Path()), kStreamHeader);
}

TEST_F(GFileTest, WriteOpenFailuresGiveNullWithoutMessage) {
  GFile *gf = reinterpret_cast<GFile *>(1);
  Captured run = RunCapturing([&] {
    gf = gf_open_for_write(nullptr, nullptr, dir_.file("no/such/dir").c_str(), 4, 0, 2, 0, 0);
  });
  EXPECT_EQ(gf, nullptr);
  EXPECT_EQ(run.err, "");

  // A read-only stream handed in takes no header: the error indicator
  // refuses the open, and the stream stays the caller's.
  ASSERT_TRUE(WriteFileBytes(Path(), "x"));
  FILE *fp = fopen(Path().c_str(), "r");
  ASSERT_NE(fp, nullptr);
  GFile record;
  EXPECT_EQ(gf_open_for_write(&record, fp, "ro", 4, 0, 2, 0, 0), nullptr);
  EXPECT_EQ(record.fp, fp);
  EXPECT_EQ(fclose(fp), 0);
}

// ---- Reading the header -----------------------------------------------------

TEST_F(GFileTest, ReadTakesTheHeaderFieldsAndStandsAtPosition20) {
  std::string bytes =
      Bytes({0x7F, 'T', 'O', 'V', 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFE, 0, 0, 0, 9, 0x42, 0, 2, 0});
  GFile *gf = OpenBytes(bytes + "z");
  ASSERT_NE(gf, nullptr);
  EXPECT_EQ(gf->version, 0);  // version 0 is accepted
  EXPECT_EQ(gf->file_type, 0xFFFFFFFEu);
  EXPECT_EQ(gf->packed, 9u);
  EXPECT_EQ(gf->adr_mode, 1);
  EXPECT_EQ(gf->hd_storage, 2);
  EXPECT_EQ(gf->swapped, 1);
  EXPECT_EQ(gf->writing, 0);
  EXPECT_EQ(gf_tell(gf, nullptr), 20);
  EXPECT_EQ(gf_get_1(gf), static_cast<uint32_t>('z'));
  gf_close(gf);

  bytes[4] = bytes[5] = bytes[6] = bytes[7] = '\xFF';  // -1: not above 1 as a signed number
  gf = OpenBytes(bytes);
  ASSERT_NE(gf, nullptr);
  EXPECT_EQ(gf->version, -1);
  gf_close(gf);
}

TEST_F(GFileTest, BadHeadersAreRefusedSilently) {
  struct Damage {
    const char *what;
    size_t offset;
    char byte;
  };
  const Damage damages[] = {{"magic 0", 0, 0x7E},  {"magic 1", 1, 't'},
                            {"magic 2", 2, 'o'},   {"magic 3", 3, 'W'},
                            {"version 2", 7, 2},   {"version high", 4, 0x7F},
                            {"reserved 1", 19, 1}, {"reserved FF", 19, '\xFF'}};
  for (const Damage &damage : damages) {
    std::string bytes = kStreamHeader;
    bytes[damage.offset] = damage.byte;
    std::string err;
    EXPECT_EQ(OpenBytes(bytes, &err), nullptr) << damage.what;
    EXPECT_EQ(err, "") << damage.what;
  }
  // A header cut before its reserved byte reads 0xFF there.
  std::string err;
  EXPECT_EQ(OpenBytes(kStreamHeader.substr(0, 19), &err), nullptr);
  EXPECT_EQ(err, "");
}

TEST_F(GFileTest, RefusalsThatSpeak) {
  std::string bytes = kStreamHeader;
  bytes[17] = 1;
  std::string err;
  EXPECT_EQ(OpenBytes(bytes, &err), nullptr);
  EXPECT_EQ(err, "tool: error: GFile desciptors not supported\n");

  const std::string unknown_mode = "tool: error: [gadr_mode_from_encoding]: unknown mode!\n";
  EXPECT_EQ(OpenBytes("", &err), nullptr);  // every byte 0xFF
  EXPECT_EQ(err, unknown_mode);
  EXPECT_EQ(OpenBytes(kStreamHeader.substr(0, 12), &err), nullptr);
  EXPECT_EQ(err, unknown_mode);
  EXPECT_EQ(OpenBytes("plain text, not binary", &err), nullptr);
  EXPECT_EQ(err, unknown_mode);

  // An unknown encoding alone doesn't refuse the file: it reads as 32bit.
  bytes = kStreamHeader;
  bytes[16] = 5;
  GFile *gf = OpenBytes(bytes, &err);
  ASSERT_NE(gf, nullptr);
  EXPECT_EQ(err, unknown_mode);
  EXPECT_EQ(gf->adr_mode, 2);
  gf_close(gf);

  Captured run = RunCapturing(
      [&] { EXPECT_EQ(gf_open_for_read(nullptr, nullptr, Path("missing").c_str()), nullptr); });
  EXPECT_EQ(run.err, "");
}

// ---- A stream handed in ------------------------------------------------------

TEST_F(GFileTest, HandedInStreamCountsFromItsPositionAndStaysOpen) {
  FILE *fp = fopen(Path().c_str(), "w+");
  ASSERT_NE(fp, nullptr);
  ASSERT_EQ(fwrite(std::string(100, 'x').data(), 1, 100, fp), 100u);
  GFile record;
  ASSERT_EQ(gf_open_for_write(&record, fp, "handed", 4, 0, 2, 0, 0), &record);
  EXPECT_EQ(record.base, 100);
  int32_t pos = 0;
  EXPECT_EQ(gf_tell(&record, &pos), 20);
  EXPECT_EQ(pos, 20);
  gf_put_4(&record, 0xCAFEBABE);
  Captured run = RunCapturing([&] { EXPECT_EQ(gf_is_eof(&record), 0); });
  EXPECT_EQ(run.err, "tool: warning: [gf_check_eof]: fp==unowned\n");
  EXPECT_EQ(gf_seek(&record, 0), 0);
  EXPECT_EQ(gf_get_4(&record), 0x7F544F56u);
  void *addr = nullptr;
  uint32_t len = 0;
  EXPECT_EQ(gf_open_memory_mapping(&record, 1, &addr, &len),
            gf_get_nil_file_memory_mapping_handle());
  EXPECT_EQ(gf_close(&record), 1);
  run = RunCapturing([&] { EXPECT_EQ(gf_is_eof(&record), 0); });
  EXPECT_EQ(run.err, "tool: warning: [gf_check_eof]: fp==NULL\n");

  EXPECT_EQ(ftell(fp), 104);  // the caller's stream is still open
  ASSERT_EQ(fclose(fp), 0);
  EXPECT_EQ(ReadFileBytes(Path()),
            std::string(100, 'x') + kStreamHeader + Bytes({0xCA, 0xFE, 0xBA, 0xBE}));

  fp = fopen(Path().c_str(), "r");
  ASSERT_EQ(fseek(fp, 100, SEEK_SET), 0);
  GFile *gf = gf_open_for_read(nullptr, fp, nullptr);
  ASSERT_NE(gf, nullptr);
  EXPECT_EQ(gf_tell(gf, nullptr), 20);
  EXPECT_EQ(gf_get_4(gf), 0xCAFEBABEu);
  gf_close(gf);
  EXPECT_EQ(fclose(fp), 0);
}

// ---- Values -------------------------------------------------------------------

TEST_F(GFileTest, ValuesAreBigEndianAndReadBack) {
  GFile *gf = gf_open_for_write(nullptr, nullptr, Path().c_str(), 4, 0, 2, 0, 0);
  ASSERT_NE(gf, nullptr);
  gf_put_1(gf, 0x19A);
  gf_put_2(gf, 0x1234);
  gf_put_4(gf, 0x12345678);
  gf_put_8(gf, 0x0102030405060708ull);
  gf_put_1(gf, 0x80);
  gf_put_2(gf, 0x8001);
  gf_put_4(gf, 0x80000001u);
  gf_put_8(gf, 0x8000000000000001ull);
  gf_put_array_1(gf, "xyz", 3);
  gf_put_array_1(gf, nullptr, 0);
  EXPECT_EQ(gf_got_error(gf), 0);
  gf_close(gf);
  const std::string body =
      Bytes({0x9A, 0x12, 0x34, 0x12, 0x34, 0x56, 0x78, 1, 2, 3, 4, 5, 6, 7,   8,   0x80, 0x80,
             0x01, 0x80, 0,    0,    1,    0x80, 0,    0, 0, 0, 0, 0, 1, 'x', 'y', 'z'});
  ASSERT_EQ(ReadFileBytes(Path()), kStreamHeader + body);

  gf = gf_open_for_read(nullptr, nullptr, Path().c_str());
  ASSERT_NE(gf, nullptr);
  EXPECT_EQ(gf_get_1(gf), 0x9Au);
  EXPECT_EQ(gf_get_2(gf), 0x1234u);
  EXPECT_EQ(gf_get_4(gf), 0x12345678u);
  EXPECT_EQ(gf_get_8(gf), 0x0102030405060708ull);
  EXPECT_EQ(gf_get_1(gf), 0x80u);
  EXPECT_EQ(gf_get_2(gf), 0x8001u);
  EXPECT_EQ(gf_get_4(gf), 0x80000001u);
  EXPECT_EQ(gf_get_8(gf), 0x8000000000000001ull);
  char xyz[3] = {};
  gf_get_array_1(gf, xyz, 3);
  EXPECT_EQ(std::string(xyz, 3), "xyz");
  EXPECT_EQ(gf_is_eof(gf), 0);
  gf_close(gf);
}

TEST_F(GFileTest, ReadsPastTheEndGiveFFForEachMissingByte) {
  GFile *gf = OpenBytes(kStreamHeader + "\xAB");
  ASSERT_NE(gf, nullptr);
  EXPECT_EQ(gf_get_2(gf), 0xABFFu);
  EXPECT_EQ(gf_is_eof(gf), 1);
  EXPECT_EQ(gf_get_1(gf), 255u);
  EXPECT_EQ(gf_get_8(gf), 0xFFFFFFFFFFFFFFFFull);
  gf_close(gf);

  gf = OpenBytes(kStreamHeader);
  ASSERT_NE(gf, nullptr);
  EXPECT_EQ(gf_is_eof(gf), 0);
  EXPECT_EQ(gf_get_4(gf), 0xFFFFFFFFu);
  EXPECT_EQ(gf_is_eof(gf), 1);
  EXPECT_EQ(gf_got_error(gf), 0);  // the end of the file is no error
  gf_close(gf);
}

TEST_F(GFileTest, ArraysSkipAndReadShort) {
  GFile *gf = OpenBytes(kStreamHeader + "0123456789");
  ASSERT_NE(gf, nullptr);
  gf_skip_array_1(gf, 3);
  EXPECT_EQ(gf_get_1(gf), static_cast<uint32_t>('3'));
  char buffer[6] = {'-', '-', '-', '-', '-', '-'};
  gf_get_array_1(gf, buffer, 4);
  EXPECT_EQ(std::string(buffer, 4), "4567");
  EXPECT_EQ(gf_tell(gf, nullptr), 28);
  gf_get_array_1(gf, buffer, 5);
  EXPECT_EQ(std::string(buffer, 6), "8967--");
  EXPECT_EQ(gf_is_eof(gf), 1);
  gf_close(gf);
}

// ---- The error state ------------------------------------------------------------

TEST_F(GFileTest, TwoFailuresGiveOneMessageAndBothFlags) {
  GFile *gf = OpenBytes(kStreamHeader);
  ASSERT_NE(gf, nullptr);
  Captured run = RunCapturing([&] {
    gf_set_constval_error(gf);
    gf_set_alignpad_error(gf);
  });
  EXPECT_EQ(run.err, "tool: error: Error while processing \"" + Path() + "\"\n");
  EXPECT_FALSE(run.exited);
  EXPECT_EQ(gf->constval_error, 1);
  EXPECT_EQ(gf->alignpad_error, 1);
  EXPECT_EQ(gf_got_error(gf), 1);
  gf_close(gf);
}

TEST_F(GFileTest, FailedSeekSpeaksWithErrnoOnceButIsNoStickyFlag) {
  GFile *gf = OpenBytes(kStreamHeader);
  ASSERT_NE(gf, nullptr);
  Captured run = RunCapturing([&] {
    EXPECT_EQ(gf_seek(gf, -100), -1);
    EXPECT_EQ(gf_seek(gf, -1), -1);
  });
  EXPECT_EQ(run.err, "tool: fatal: Error while processing \"" + Path() + "\": Invalid argument\n");
  EXPECT_EQ(gf->got_error, 1);
  EXPECT_EQ(gf_got_error(gf), 0);
  EXPECT_EQ(gf_get_1(gf), 0xFFu);  // the file is still usable, here at its end
  EXPECT_EQ(gf_seek(gf, 0), 0);
  EXPECT_EQ(gf_get_1(gf), 0x7Fu);
  gf_close(gf);
}

TEST_F(GFileTest, NamelessFileIsReportedAsUnknown) {
  ASSERT_TRUE(WriteFileBytes(Path(), kStreamHeader));
  FILE *fp = fopen(Path().c_str(), "r");
  GFile *gf = gf_open_for_read(nullptr, fp, nullptr);
  ASSERT_NE(gf, nullptr);
  Captured run = RunCapturing([&] { gf_set_descriptor_error(gf); });
  EXPECT_EQ(run.err, "tool: error: Error while processing \"UNKNOWN\"\n");
  gf_close(gf);
  fclose(fp);
}

TEST_F(GFileTest, CallersRecordAnswersFromStickyFlagsAfterClose) {
  ASSERT_TRUE(WriteFileBytes(Path(), kStreamHeader));
  GFile clean, flagged;
  ASSERT_NE(gf_open_for_read(&clean, nullptr, Path().c_str()), nullptr);
  ASSERT_NE(gf_open_for_read(&flagged, nullptr, Path().c_str()), nullptr);
  RunCapturing([&] { gf_set_file_memory_mapping_error(&flagged); });
  gf_put_1(&clean, 1);  // writing to a read-only stream: the stream's indicator
  EXPECT_EQ(gf_got_error(&clean), 1);
  EXPECT_EQ(gf_close(&clean), 1);
  EXPECT_EQ(gf_close(&flagged), 1);
  EXPECT_EQ(flagged.fp, nullptr);
  EXPECT_EQ(flagged.name, nullptr);
  EXPECT_EQ(gf_got_error(&flagged), 1);
  EXPECT_EQ(gf_got_error(&clean), 0);  // the stream's indicator went with the stream
}

TEST_F(GFileTest, FailingCloseIsReportedAndStillReturns1) {
  GFile *gf = gf_open_for_write(nullptr, nullptr, Path().c_str(), 4, 0, 2, 0, 0);
  ASSERT_NE(gf, nullptr);
  gf_put_1(gf, 0);
  int result = 0;
  Captured run = RunCapturing([&] {
    close(fileno(gf->fp));  // the buffered bytes can no longer be written
    result = gf_close(gf);
  });
  EXPECT_EQ(result, 1);
  EXPECT_EQ(run.err,
            "tool: fatal: Error while processing \"" + Path() + "\": Bad file descriptor\n");
}

// ---- Memory mapping ----------------------------------------------------------------

TEST_F(GFileTest, MappingIsRefusedWhereItCannotWork) {
  void *const nil = gf_get_nil_file_memory_mapping_handle();
  EXPECT_EQ(nil, reinterpret_cast<void *>(-1));
  gf_close_memory_mapping(nullptr, nil, 0xFFFFFFFFu);  // does nothing
  EXPECT_EQ(gf_can_memory_map_array(nullptr, 1), 0);

  GFile *gf = gf_open_for_write(nullptr, nullptr, Path().c_str(), 4, 0, 2, 0, 0);
  ASSERT_NE(gf, nullptr);
  void *addr = nullptr;
  uint32_t len = 0;
  EXPECT_EQ(gf_open_memory_mapping(gf, 1, &addr, &len), nil);
  EXPECT_EQ(addr, nil);
  EXPECT_EQ(len, 0xFFFFFFFFu);
  EXPECT_EQ(gf->owns_mapping, 0);
  EXPECT_EQ(gf_can_memory_map_array(gf, 1), 0);
  gf_close(gf);
}

TEST_F(GFileTest, ReadFileMapsWholeAndCloseUnmaps) {
  const std::string bytes = kStreamHeader + "payload";
  GFile *gf = OpenBytes(bytes);
  ASSERT_NE(gf, nullptr);
  void *addr = nullptr;
  uint32_t len = 0;
  void *mapped = gf_open_memory_mapping(gf, 1, &addr, &len);
  ASSERT_NE(mapped, gf_get_nil_file_memory_mapping_handle());
  EXPECT_EQ(addr, mapped);
  EXPECT_EQ(gf->map_addr, mapped);
  EXPECT_EQ(len, 27u);
  EXPECT_EQ(std::string(static_cast<const char *>(mapped), len), bytes);
  EXPECT_EQ(gf_can_memory_map_array(gf, 1), 1);
  EXPECT_EQ(gf_can_memory_map_array(gf, 4), 0);  // no hd storage
  Captured run = RunCapturing([&] { EXPECT_EQ(gf_can_memory_map_array(gf, 2), 0); });
  EXPECT_EQ(run.err, "tool: warning: GFile: [gf_can_map_hd_storage]: invalid array element size\n");
  gf_close(gf);
  errno = 0;
  EXPECT_EQ(msync(mapped, len, MS_ASYNC), -1);
  EXPECT_EQ(errno, ENOMEM);
}

TEST_F(GFileTest, MappingNotClosedWithFileOutlivesIt) {
  GFile *gf = OpenBytes(kStreamHeader + "abc");
  ASSERT_NE(gf, nullptr);
  void *addr = nullptr;
  uint32_t len = 0;
  gf_open_memory_mapping(gf, 0, &addr, &len);
  ASSERT_NE(addr, gf_get_nil_file_memory_mapping_handle());
  EXPECT_EQ(gf->owns_mapping, 0);
  gf_close(gf);
  EXPECT_EQ(std::string(static_cast<const char *>(addr) + 20, 3), "abc");
  gf_close_memory_mapping(nullptr, addr, len);
  errno = 0;
  EXPECT_EQ(msync(addr, len, MS_ASYNC), -1);
  EXPECT_EQ(errno, ENOMEM);
}

TEST_F(GFileTest, FourByteArraysMapOnlyWithWordsInHostOrder) {
  for (int hd : {1, 2}) {
    std::string bytes = kStreamHeader;
    bytes[18] = static_cast<char>(hd);
    GFile record;
    ASSERT_TRUE(WriteFileBytes(Path(), bytes + "abcd"));
    ASSERT_NE(gf_open_for_read(&record, nullptr, Path().c_str()), nullptr);
    EXPECT_EQ(gf_can_memory_map_array(&record, 4), 0) << "no mapping yet";
    ASSERT_NE(gf_open_memory_mapping(&record, 1, nullptr, nullptr),
              gf_get_nil_file_memory_mapping_handle());
    // Byte 1 holds big-endian words, byte 2 words in the other order than
    // this host's: only big-endian words on a big-endian host map as they are.
    const bool words_as_host = hd == 1 && std::endian::native == std::endian::big;
    EXPECT_EQ(record.swapped, words_as_host ? 0 : 1) << "hd storage " << hd;
    EXPECT_EQ(gf_can_memory_map_array(&record, 4), words_as_host ? 1 : 0) << "hd storage " << hd;
    gf_close_memory_mapping(&record, gf_get_nil_file_memory_mapping_handle(), 0xFFFFFFFFu);
    EXPECT_EQ(record.map_addr, gf_get_nil_file_memory_mapping_handle());
    EXPECT_EQ(record.owns_mapping, 0);
    gf_close(&record);
  }
}

// ---- Back-patching ------------------------------------------------------------------

TEST_F(GFileTest, BackPatchedBytesAreInTheFileAfterTheForwardSeek) {
  GFile *gf = gf_open_for_write(nullptr, nullptr, Path().c_str(), 4, 0, 2, 0, 0);
  ASSERT_NE(gf, nullptr);
  gf_put_1(gf, 0);  // the end tag
  // Append a record behind the end tag, end it anew, then patch the old tag.
  auto append = [&](uint32_t tag, uint32_t value) {
    int32_t tag_position = gf_tell(gf, nullptr) - 1;
    gf_put_4(gf, value);
    gf_put_1(gf, 0);
    int32_t end = 0;
    gf_tell(gf, &end);
    ASSERT_EQ(gf_seek(gf, tag_position), 0);
    gf_put_1(gf, tag);
    ASSERT_EQ(gf_seek(gf, end), 0);
  };
  append(3, 0xDEADBEEF);
  EXPECT_EQ(ReadThroughDescriptor(Path()), kStreamHeader + Bytes({3, 0xDE, 0xAD, 0xBE, 0xEF, 0}));
  append(1, 0x00ABCDEF);
  EXPECT_EQ(ReadThroughDescriptor(Path()),
            kStreamHeader + Bytes({3, 0xDE, 0xAD, 0xBE, 0xEF, 1, 0x00, 0xAB, 0xCD, 0xEF, 0}));
  EXPECT_EQ(gf_tell(gf, nullptr), 31);
  EXPECT_EQ(gf_got_error(gf), 0);
  gf_close(gf);
  EXPECT_EQ(ReadFileBytes(Path()).size(), 31u);
}

}  // namespace
