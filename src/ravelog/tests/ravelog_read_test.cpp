// Tests of the corefile readers: values in both byte orders, sign extension
// of the 16-bit readers, how the memory readers move on, and the message
// each file reader fails with when the file ends too soon.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <regex>
#include <string>

#include "gen_capture.h"
#include "ravelog.h"

using testsupport::Captured;
using testsupport::RunCapturing;
using testsupport::ScopedProgName;

namespace {

// A read-only stream over bytes, closed at the end of the test.
class MemoryStream {
 public:
  explicit MemoryStream(std::string bytes) : bytes_(std::move(bytes)) {
    stream_ = fmemopen(bytes_.data(), bytes_.size(), "rb");
  }
  ~MemoryStream() { fclose(stream_); }
  MemoryStream(const MemoryStream &) = delete;
  MemoryStream &operator=(const MemoryStream &) = delete;
  FILE *get() const { return stream_; }

 private:
  std::string bytes_;
  FILE *stream_;
};

// Whole-string match; %p output differs from run to run.
bool Matches(const std::string &text, const char *pattern) {
  return std::regex_match(text, std::regex(pattern));
}

std::string B(std::initializer_list<int> bytes) {
  std::string s;
  for (int b : bytes) s += static_cast<char>(b);
  return s;
}

TEST(FileReaders, ReadNumbersInTheLogsByteOrder) {
  MemoryStream big(B({0x12, 0x34, 0x80, 0x00, 0x00, 0x01}));
  EXPECT_EQ(cv_GetShort(big.get(), 1), 0x1234);
  EXPECT_EQ(cv_GetInt(big.get(), 1), 0x80000001u);
  MemoryStream little(B({0x12, 0x34, 0x80, 0x00, 0x00, 0x01}));
  EXPECT_EQ(cv_GetShort(little.get(), 0), 0x3412);
  EXPECT_EQ(cv_GetInt(little.get(), 0), 0x01000080u);
}

TEST(FileReaders, ShortsAreSignExtended) {
  MemoryStream stream(B({0xFF, 0xFE, 0xFE, 0xFF, 0x80, 0x00}));
  EXPECT_EQ(cv_GetShort(stream.get(), 1), -2);
  EXPECT_EQ(cv_GetShort(stream.get(), 0), -2);
  EXPECT_EQ(cv_GetShort(stream.get(), 1), -32768);
}

TEST(FileReaders, BuffersAndThreadEntriesKeepTheirBytes) {
  std::string name = "worker";
  name.resize(34, '\0');
  MemoryStream stream(name + B({1, 0, 0x00, 0x00, 0x12, 0x34, 0x0A, 0x00, 0x00, 0x00}) +
                      B({7, 8, 9}));
  cv_ThreadEntry entry;
  cv_ReadThreadEntry(&entry, stream.get());
  EXPECT_STREQ(entry.name, "worker");
  EXPECT_EQ(entry.valid, 1);
  EXPECT_EQ(entry.next, 0);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(&entry.threadId), 4), B({0, 0, 0x12, 0x34}));
  EXPECT_EQ(std::string(reinterpret_cast<char *>(&entry.priority), 4), B({0x0A, 0, 0, 0}));
  unsigned char rest[3];
  EXPECT_EQ(cv_ReadBuffer(rest, 3, stream.get()), static_cast<void *>(rest));
  EXPECT_EQ(std::string(reinterpret_cast<char *>(rest), 3), B({7, 8, 9}));
}

TEST(FileReaders, ShortReadsFailWithTheReadersMessage) {
  ScopedProgName name("ravelog");
  struct Case {
    const char *what;
    std::string bytes;
    void (*read)(FILE *);
    const char *message;
  } cases[] = {
      {"char", "", [](FILE *f) { unsigned char c; cv_ReadChar(&c, f); },
       "ravelog: fatal: Error reading char from corefile.\n"},
      {"short", B({1}), [](FILE *f) { cv_GetShort(f, 1); },
       "ravelog: fatal: Error reading short from corefile.\n"},
      {"int", B({1, 2, 3}), [](FILE *f) { cv_GetInt(f, 0); },
       "ravelog: fatal: Error reading int4 from corefile.\n"},
  };
  for (const Case &c : cases) {
    MemoryStream stream(c.bytes.empty() ? std::string(1, 'x') : c.bytes);
    if (c.bytes.empty()) fgetc(stream.get());  // at end of file
    Captured run = RunCapturing([&] { c.read(stream.get()); });
    EXPECT_TRUE(run.exited) << c.what;
    EXPECT_EQ(run.status, 1) << c.what;
    EXPECT_EQ(run.err, c.message) << c.what;
    EXPECT_EQ(run.out, "") << c.what;
  }
}

TEST(FileReaders, ShortBufferReadReportsCountErrnoBufferAndLength) {
  ScopedProgName name("ravelog");
  MemoryStream stream(B({1, 2, 3}));
  char buffer[10];
  Captured run = RunCapturing([&] { cv_ReadBuffer(buffer, 10, stream.get()); });
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(Matches(run.out, "rv is 3, errno is 0\nbuffer is 0x[0-9a-f]+, length is 10\n")) << run.out;
  char pointer[32];
  snprintf(pointer, sizeof pointer, "%p", static_cast<void *>(buffer));
  EXPECT_NE(run.out.find(std::string("buffer is ") + pointer + ","), std::string::npos);
  EXPECT_EQ(run.err, "ravelog: fatal: Error reading buffer from corefile.\n");
}

TEST(FileReaders, ShortUintBufferReadCountsWholeItems) {
  ScopedProgName name("ravelog");
  MemoryStream stream(B({1, 2, 3, 4, 5, 6, 7}));
  uint32_t items[2];
  Captured run = RunCapturing([&] { cv_ReadUintBuffer(items, 2, stream.get()); });
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(Matches(run.out, "rv is 1, errno is 0\nbuffer is 0x[0-9a-f]+, length is 2\n")) << run.out;
  EXPECT_EQ(run.err, "ravelog: fatal: Error reading buffer from corefile.\n");
}

TEST(FileReaders, TaskNameReadsTheWholeFieldOf34Bytes) {
  ScopedProgName name("ravelog");
  MemoryStream stream(std::string(33, 'n'));
  char field[34];
  Captured run = RunCapturing([&] { cv_ReadTaskName(field, stream.get()); });
  EXPECT_TRUE(Matches(run.out, "rv is 33, errno is 0\nbuffer is 0x[0-9a-f]+, length is 34\n")) << run.out;
  EXPECT_EQ(run.status, 1);
}

TEST(MemoryReaders, PointerReadersComposeBytesAtAnyPositionAndMoveOn) {
  unsigned char bytes[] = {0xAA, 0xFF, 0xFE, 0x01, 0x02, 0x03, 0x04, 0xAA};
  unsigned char *p = bytes + 1;  // odd address on purpose
  EXPECT_EQ(cv_GetShortBuf(&p, 1), -2);
  EXPECT_EQ(p, bytes + 3);
  EXPECT_EQ(cv_GetIntBuf(&p, 1), 0x01020304u);
  EXPECT_EQ(p, bytes + 7);
  p = bytes + 1;
  EXPECT_EQ(cv_GetShortBuf(&p, 0), static_cast<int>(static_cast<int16_t>(0xFEFF)));
  EXPECT_EQ(cv_GetIntBuf(&p, 0), 0x04030201u);
}

TEST(MemoryReaders, IndexReadersAddToTheIndex) {
  const unsigned char bytes[] = {0x00, 0x80, 0x01, 0xDE, 0xAD, 0xBE, 0xEF};
  uint32_t index = 1;
  EXPECT_EQ(cv_GetShortIdx(&index, bytes, 1), -32767);
  EXPECT_EQ(index, 3u);
  EXPECT_EQ(cv_GetIntIdx(&index, bytes, 1), 0xDEADBEEFu);
  EXPECT_EQ(index, 7u);
  index = 0;
  EXPECT_EQ(cv_GetShortIdx(&index, bytes, 0), -32768);
  index = 3;
  EXPECT_EQ(cv_GetIntIdx(&index, bytes, 0), 0xEFBEADDEu);
}

}  // namespace
