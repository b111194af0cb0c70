// Tests of GFile streams and their encodings, byte for byte against the
// worked examples of indgfile.h: the header and its refusals, positions
// relative to a header that doesn't start the stream, fixed-width values,
// LEB128 at every length boundary, index families, strings, addresses in
// every mode, pads and four-byte arrays, each read back from every cut (the
// end of the file gives 0xFF or 0, never a crash); the sticky error state;
// read-only mappings.  Writing through a mapping: indgfile_mapwrite_test.cpp.
#include "indgfile.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "gen_capture.h"
#include "database_model.h"  // HexBytes, ToHex
#include "indgeninit.h"
#include "temp_dir.h"

using testsupport::HexBytes;
using testsupport::ReadFileBytes;
using testsupport::RunCapturing;

namespace {

// The header of the database's stream file: type 4, packed 0, 32bit.
const std::string kHeader = HexBytes("7F \"TOV\" 00000001 00000004 00000000 04 00 00 00");

std::string Damaged(size_t offset, int byte) {
  std::string bytes = kHeader;
  bytes[offset] = static_cast<char>(byte);
  return bytes;
}

std::string H(const gadr &a) {
  char text[24];
  snprintf(text, sizeof text, "%x:%x", a.lo, a.hi);
  return text;
}

bool Unmapped(void *addr, uint32_t len) { return msync(addr, len, MS_ASYNC) == -1 && errno == ENOMEM; }

class GFileTest : public ::testing::Test {
 protected:
  std::string Path(const char *name = "f.gf") const { return dir_.file(name); }
  // Writes a GFile (type 1) with body; returns the bytes behind its header in hex.
  std::string Write(uint32_t packed, const std::function<void(GFile *)> &body, int mode = 2, uint8_t hd = 0) {
    GFile *gf = gf_open_for_write(nullptr, nullptr, Path().c_str(), 1, packed, mode, 0, hd);
    body(gf);
    EXPECT_EQ(gf_got_error(gf), 0);
    gf_close(gf);
    return testsupport::ToHex(ReadFileBytes(Path()).substr(GF_HEADER_SIZE));
  }
  // A file of these bytes opened for read; *err gets the messages.
  GFile *Open(const std::string &bytes, std::string *err = nullptr) {
    EXPECT_TRUE(testsupport::WriteFileBytes(Path(), bytes));
    GFile *gf = nullptr;
    const std::string said = Err([&] { gf = gf_open_for_read(nullptr, nullptr, Path().c_str()); });
    if (err != nullptr) *err = said;
    return gf;
  }
  // A file with a header of these settings and body, opened for read.
  GFile *OpenWith(uint32_t packed, int hd, const std::string &body) {
    char head[64];
    snprintf(head, sizeof head, "7F \"TOV\" 00000001 00000001 %08X 04 00 %02X 00", packed, hd);
    return Open(HexBytes(head) + body);
  }
  std::string Err(const std::function<void()> &fn) { return RunCapturing(fn).err; }
  std::string Once() const { return "tool: error: Error while processing \"" + Path() + "\"\n"; }

  testsupport::TempDir dir_;
  testsupport::ScopedProgName name_{"tool"};
};

TEST_F(GFileTest, HeaderIsWrittenByteForByte) {
  struct Row { uint32_t type, packed; int32_t mode; uint8_t descriptors, hd; const char *tail, *err; };
  const Row rows[] = {
      {4, 0, 2, 0, 0, "00000004 00000000 04 00 00 00", ""},
      {0xA1B2C3D4u, 0x01020304u, 0, 0, 7, "A1B2C3D4 01020304 02 00 01 00", ""},
      {1, 1, 1, 0, 1, "00000001 00000001 42 00 01 00", ""},
      {4, 0, 2, 1, 0, "00000004 00000000 04 00 00 00", "tool: warning: GFile desciptors not supported\n"},
      {4, 0, 9, 0, 0, "00000004 00000000 04 00 00 00", "tool: error: [gadr_encoding_from_mode]: unknown mode!\n"},
  };
  for (const Row &row : rows) {
    GFile *gf = nullptr;
    EXPECT_EQ(Err([&] {
                gf = gf_open_for_write(nullptr, nullptr, Path().c_str(), row.type, row.packed, row.mode,
                                       row.descriptors, row.hd);
              }), row.err);
    EXPECT_EQ(gf_tell(gf, nullptr), 20);
    EXPECT_EQ(gf_close(gf), 1);
    EXPECT_EQ(ReadFileBytes(Path()), HexBytes("7F \"TOV\" 00000001" + std::string(row.tail)));
  }
}

TEST_F(GFileTest, ReadChecksTheHeaderAndRefusesDamage) {
  const std::string unknown = "tool: error: [gadr_mode_from_encoding]: unknown mode!\n";
  struct Row { std::string bytes; bool opens; std::string err; };
  const Row rows[] = {
      {Damaged(0, 0x7E), false, ""}, {Damaged(3, 'W'), false, ""},  {Damaged(7, 2), false, ""},
      {Damaged(4, 0x7F), false, ""}, {Damaged(19, 1), false, ""},   {Damaged(7, 0), true, ""},
      {kHeader.substr(0, 19), false, ""},  // the reserved byte reads as 0xFF
      {Damaged(17, 1), false, "tool: error: GFile desciptors not supported\n"},
      {"", false, unknown}, {Damaged(16, 5), true, unknown},  // an unknown encoding alone reads as 32bit
  };
  for (const Row &row : rows) {
    std::string err;
    GFile *gf = Open(row.bytes, &err);
    EXPECT_EQ(gf != nullptr, row.opens) << testsupport::ToHex(row.bytes);
    EXPECT_EQ(err, row.err) << testsupport::ToHex(row.bytes);
    if (gf != nullptr) gf_close(gf);
  }
  EXPECT_EQ(Err([&] { EXPECT_EQ(gf_open_for_read(nullptr, nullptr, Path("none").c_str()), nullptr); }), "");
  // Version -1 isn't above 1 as a signed number; hd storage 2 means swapped.
  GFile *gf = Open(HexBytes("7F \"TOV\" FFFFFFFF FFFFFFFE 00000009 42 00 02 00 \"z\""));
  ASSERT_NE(gf, nullptr);
  EXPECT_EQ(std::vector<int64_t>({gf->version, gf->file_type, gf->packed, gf->adr_mode, gf->hd_storage,
                                  gf->swapped, gf_tell(gf, nullptr), gf_get_1(gf)}),
            std::vector<int64_t>({-1, 0xFFFFFFFE, 9, 1, 2, 1, 20, 'z'}));
  gf_close(gf);
}

TEST_F(GFileTest, AHandedInStreamCountsFromItsPositionAndStaysOpen) {
  FILE *fp = fopen(Path().c_str(), "w+");
  fputs(std::string(100, 'x').c_str(), fp);
  GFile record;
  ASSERT_EQ(gf_open_for_write(&record, fp, "handed", 4, 0, 2, 0, 0), &record);
  int32_t pos = 0;
  EXPECT_EQ(gf_tell(&record, &pos), 20);
  EXPECT_EQ(pos, 20);
  gf_put_4(&record, 0xCAFEBABE);
  EXPECT_EQ(Err([&] { EXPECT_EQ(gf_is_eof(&record), 0); }), "tool: warning: [gf_check_eof]: fp==unowned\n");
  EXPECT_EQ(gf_seek(&record, 0), 0);
  EXPECT_EQ(gf_get_4(&record), 0x7F544F56u);
  EXPECT_EQ(gf_close(&record), 1);
  EXPECT_EQ(Err([&] { EXPECT_EQ(gf_is_eof(&record), 0); }), "tool: warning: [gf_check_eof]: fp==NULL\n");
  EXPECT_EQ(ftell(fp), 104);  // the caller's stream is still open
  fseek(fp, 100, SEEK_SET);
  GFile *gf = gf_open_for_read(nullptr, fp, nullptr);
  EXPECT_EQ(gf_tell(gf, nullptr), 20);
  EXPECT_EQ(gf_get_4(gf), 0xCAFEBABEu);
  // A mapping needs the header at the start of the file.
  EXPECT_EQ(gf_open_memory_mapping(gf, 1, nullptr, nullptr), gf_get_nil_file_memory_mapping_handle());
  gf_close(gf);
  fclose(fp);
  EXPECT_EQ(ReadFileBytes(Path()), std::string(100, 'x') + kHeader + HexBytes("CAFEBABE"));
}

TEST_F(GFileTest, FixedWidthValuesAreBigEndianAndMissingBytesReadAsFF) {
  EXPECT_EQ(Write(0, [](GFile *gf) {
              gf_put_1(gf, 0x19A);
              gf_put_2(gf, 0x1234);
              gf_put_4(gf, 0x12345678);
              gf_put_8(gf, 0x0102030405060708ull);
              gf_put_array_1(gf, "xyz", 3);
              gf_put_array_1(gf, nullptr, 0);
            }), "9A 12 34 12 34 56 78 01 02 03 04 05 06 07 08 78 79 7A");
  // Read from every cut: each missing byte reads as FF.
  const char *cuts[] = {"FF FFFF FFFFFFFF FFFFFFFFFFFFFFFF 1", "9A FFFF FFFFFFFF FFFFFFFFFFFFFFFF 1",
                        "9A 12FF FFFFFFFF FFFFFFFFFFFFFFFF 1", "9A 1234 FFFFFFFF FFFFFFFFFFFFFFFF 1",
                        "9A 1234 12FFFFFF FFFFFFFFFFFFFFFF 1", "9A 1234 1234FFFF FFFFFFFFFFFFFFFF 1",
                        "9A 1234 123456FF FFFFFFFFFFFFFFFF 1", "9A 1234 12345678 FFFFFFFFFFFFFFFF 1",
                        "9A 1234 12345678 1FFFFFFFFFFFFFF 1",  "9A 1234 12345678 102FFFFFFFFFFFF 1",
                        "9A 1234 12345678 10203FFFFFFFFFF 1",  "9A 1234 12345678 1020304FFFFFFFF 1",
                        "9A 1234 12345678 102030405FFFFFF 1",  "9A 1234 12345678 10203040506FFFF 1",
                        "9A 1234 12345678 1020304050607FF 1",  "9A 1234 12345678 102030405060708 0"};
  const std::string file = ReadFileBytes(Path());
  for (size_t cut = 0; cut <= 15; cut++) {
    GFile *gf = Open(file.substr(0, 20 + cut));
    const uint32_t one = gf_get_1(gf), two = gf_get_2(gf), four = gf_get_4(gf);
    const uint64_t eight = gf_get_8(gf);
    char read[64];
    snprintf(read, sizeof read, "%X %X %X %llX %d", one, two, four, static_cast<unsigned long long>(eight),
             gf_is_eof(gf));
    EXPECT_STREQ(read, cuts[cut]) << "cut at " << cut;
    gf_close(gf);
  }
  GFile *gf = Open(kHeader + "0123456789");
  gf_skip_array_1(gf, 3);
  EXPECT_EQ(gf_get_1(gf), static_cast<uint32_t>('3'));
  char buffer[6] = {'-', '-', '-', '-', '-', '-'};
  gf_get_array_1(gf, buffer, 4);
  EXPECT_EQ(gf_tell(gf, nullptr), 28);
  gf_get_array_1(gf, buffer, 5);  // a short read leaves the rest of the buffer
  EXPECT_EQ(std::string(buffer, 6), "8967--");
  EXPECT_EQ(gf_got_error(gf), 0);  // the end of the file is no error
  gf_close(gf);
}

TEST_F(GFileTest, LebBytesAtEveryLengthAndEveryCutReadsAsZero) {
  struct Row { bool sn; int64_t value; const char *bytes; };
  const Row rows[] = {
      {0, 0, "00"}, {0, 127, "7F"}, {0, 128, "80 01"}, {0, 300, "AC 02"}, {0, 16383, "FF 7F"},
      {0, 16384, "80 80 01"}, {0, 2097151, "FF FF 7F"}, {0, 2097152, "80 80 80 01"},
      {0, 268435455, "FF FF FF 7F"}, {0, 268435456, "80 80 80 80 01"}, {0, 0xFFFFFFFF, "FF FF FF FF 0F"},
      {1, 0, "00"}, {1, 63, "3F"}, {1, 64, "C0 00"}, {1, -1, "7F"}, {1, -64, "40"}, {1, -65, "BF 7F"},
      {1, 8191, "FF 3F"}, {1, 8192, "80 C0 00"}, {1, -8192, "80 40"}, {1, -8193, "FF BF 7F"},
      {1, -65535, "81 80 7C"}, {1, INT32_MAX, "FF FF FF FF 07"}, {1, INT32_MIN, "80 80 80 80 78"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE((row.sn ? "sn " : "un ") + std::to_string(row.value));
    EXPECT_EQ(Write(1, [&](GFile *gf) {
                if (row.sn) gf_put_sn(gf, static_cast<int32_t>(row.value));
                if (!row.sn) gf_put_un(gf, static_cast<uint32_t>(row.value));
              }), row.bytes);
    const std::string bytes = HexBytes(row.bytes);
    for (size_t cut = 0; cut <= bytes.size(); cut++) {
      GFile *gf = OpenWith(1, 0, bytes.substr(0, cut));
      EXPECT_EQ(row.sn ? int64_t{gf_get_sn(gf)} : int64_t{gf_get_un(gf)}, cut == bytes.size() ? row.value : 0)
          << "cut at " << cut;
      gf_close(gf);
    }
  }
  // Unpacked they are plain words; a run of continuation bytes longer than
  // 32 bits ends at its last byte.
  EXPECT_EQ(Write(0, [](GFile *gf) {
              gf_put_un(gf, 300);
              gf_put_sn(gf, -65);
            }), "00 00 01 2C FF FF FF BF");
  GFile *gf = OpenWith(1, 0, std::string(40, '\x81') + HexBytes("01 2A"));
  EXPECT_EQ(gf_get_un(gf), 0x10204081u);  // groups of 1 up to bit 28; the rest dropped
  EXPECT_EQ(gf_get_un(gf), 42u);
  gf_close(gf);
}

TEST_F(GFileTest, IndexFamiliesStoreValuePlusOneAndDifferences) {
  const auto body = [](GFile *gf) {
    gf_put_iss(gf, -1);
    gf_put_ind(gf, 127);
    gf_put_iss_2(gf, 10, 3);
    gf_put_ind_2(gf, 0, -1);
    gf_put_iss_3(gf, 1, 2, 3);
    gf_put_ind_3(gf, 5, 2, 9);
  };
  EXPECT_EQ(Write(1, body), "00 80 01 0B 79 01 7F 02 01 01 06 7D 07");
  EXPECT_EQ(Write(0, body), "FF FF FF FF 00 00 00 7F 00 00 00 0A 00 00 00 03 00 00 00 00 FF FF FF FF 00 00 00 01 "
                            "00 00 00 02 00 00 00 03 00 00 00 05 00 00 00 02 00 00 00 09");
  for (uint32_t packed : {0u, 1u}) {
    Write(packed, body);
    GFile *gf = gf_open_for_read(nullptr, nullptr, Path().c_str());
    int32_t v[13];
    v[0] = gf_get_iss(gf);
    v[1] = gf_get_ind(gf);
    gf_get_iss_2(gf, &v[2], &v[3]);
    gf_get_ind_2(gf, &v[4], &v[5]);
    gf_get_iss_3(gf, &v[6], &v[7], &v[8]);
    gf_get_ind_3(gf, &v[9], &v[10], &v[11]);
    v[12] = gf_get_iss(gf);  // the end: 0 - 1 packed, all ones unpacked
    EXPECT_EQ(std::vector<int32_t>(v, v + 13), (std::vector<int32_t>{-1, 127, 10, 3, 0, -1, 1, 2, 3, 5, 2, 9, -1}));
    gf_close(gf);
  }
}

TEST_F(GFileTest, StringsCarryTheirLengthAndNeverOverrun) {
  const auto three = [](GFile *gf) {
    gf_put_str(gf, "abc");
    gf_put_str(gf, "");
    gf_put_str(gf, nullptr);
  };
  EXPECT_EQ(Write(1, three), "04 61 62 63 00 01 00 00");
  EXPECT_EQ(Write(0, three), "00 00 00 04 61 62 63 00 00 00 00 01 00 00 00 00 00");
  // Whole, cut inside or damaged: the bytes that are there, ending in a zero.
  struct Row { uint32_t packed; const char *bytes; int count; const char *text; };
  const Row rows[] = {{0, "00000004 \"abc\" 00 00000001 00 00000000", 3, "abc||null"}, {1, "04 61 62", 1, "ab"},
                      {1, "04", 1, ""}, {1, "03 \"xyz\"", 1, "xyz"}, {0, "7F FF FF F0 \"hi\"", 1, "hi"},
                      {1, "0A \"hi\"", 1, "hi"}};
  for (const Row &row : rows) {
    GFile *gf = OpenWith(row.packed, 0, HexBytes(row.bytes));
    std::string texts;
    for (int i = 0; i < row.count; i++) {
      char *s = gf_get_str(gf);
      texts += (i == 0 ? "" : "|") + (s == nullptr ? std::string("null") : std::string(s));
      gen_free(s);
    }
    EXPECT_EQ(texts, row.text) << row.bytes;
    gf_close(gf);
  }
}

TEST_F(GFileTest, AddressesGoByTheFilesModeAndReadBackWithNil) {
  // put_adr(a), put_adr_2(a, b), put_adr_2(b, a); read into 55555555:66666666.
  struct Row { int mode; uint32_t packed; gadr a, b; const char *bytes, *back; };
  const gadr nil = gadrNil();
  const Row rows[] = {
      {0, 1, {0x120ABC, 3}, nil, "0A BC 0A BC C3 EA 03 FF FF BD 95 7C",
       "55550abc:66666666 55550abc:66666666 ffffffff:ffffffff ffffffff:ffffffff 55550abc:66666666"},
      {0, 1, {0x1FFF0, 0}, {0x10, 0}, "FF F0 FF F0 A0 80 7C 00 10 E0 FF 03",
       "5555fff0:66666666 5555fff0:66666666 55550010:66666666 55550010:66666666 5555fff0:66666666"},
      {0, 0, {0, 0}, {0xFFFF, 0}, "00 00 00 00 FF FF FF FF 00 00",
       "55550000:66666666 55550000:66666666 ffffffff:ffffffff ffffffff:ffffffff 55550000:66666666"},
      {1, 1, {0x400ABC, 0}, nil, "C0 00 0A BC C0 00 FF FF 03 0A BC C3 EA 03 FF FF 03 C0 00 FF FF BD 95 7C",
       "400abc:66666666 400abc:66666666 ffffffff:ffffffff ffffffff:ffffffff 400abc:66666666"},
      {1, 0, {0x120ABC, 0}, {0x70001, 0},
       "00 00 00 12 0A BC 00 00 00 12 00 00 00 07 0A BC 00 01 00 00 00 07 00 00 00 12 00 01 0A BC",
       "120abc:66666666 120abc:66666666 70001:66666666 70001:66666666 120abc:66666666"},
      {2, 1, {0xFFFFFFF0, 9}, {0x10, 0}, "FF FF FF F0 FF FF FF F0 20 00 00 00 10 60",
       "fffffff0:66666666 fffffff0:66666666 10:66666666 10:66666666 fffffff0:66666666"},
      {2, 1, nil, {7, 0}, "FF FF FF FF FF FF FF FF 08 00 00 00 07 78",
       "ffffffff:ffffffff ffffffff:ffffffff 7:66666666 7:66666666 ffffffff:ffffffff"},
      {3, 1, {0xFFFFFFFF, 5}, {0, 7}, "00 00 00 05 FF FF FF FF 00 00 00 05 FF FF FF FF 02 01 "
       "00 00 00 07 00 00 00 00 7E 7F", "ffffffff:5 ffffffff:5 0:7 0:7 ffffffff:5"},
  };
  for (const Row &row : rows) {
    EXPECT_EQ(Write(row.packed, [&](GFile *gf) {
                gf_put_adr(gf, &row.a);
                gf_put_adr_2(gf, &row.a, &row.b);
                gf_put_adr_2(gf, &row.b, &row.a);
              }, row.mode), row.bytes) << "mode " << row.mode << " packed " << row.packed;
    GFile *gf = gf_open_for_read(nullptr, nullptr, Path().c_str());
    gadr x[5];
    std::fill(x, x + 5, gadr{0x55555555u, 0x66666666u});
    gf_get_adr(gf, &x[0]);
    gf_get_adr_2(gf, &x[1], &x[2]);
    gf_get_adr_2(gf, &x[3], &x[4]);
    EXPECT_EQ(H(x[0]) + " " + H(x[1]) + " " + H(x[2]) + " " + H(x[3]) + " " + H(x[4]), row.back)
        << "mode " << row.mode << " packed " << row.packed;
    gf_close(gf);
  }
}

TEST_F(GFileTest, PadsCountFromTheHeadersFirstByteAndAreChecked) {
  struct Row { int before; uint32_t alignment; const char *pad; };  // bytes behind the header
  const Row rows[] = {
      {1, 4, "AD AC AB"}, {2, 4, "AC AB"}, {3, 4, "AB"}, {4, 4, ""}, {5, 8, "B1 B0 AF AE AD AC AB"},
      {1, 1, ""}, {1, 0, ""}, {1, 3, ""}, {1, 128, ""}, {40, 64, "AE AD AC AB"}, {44, 64, ""},
      {1, 64, "D5 D4 D3 D2 D1 D0 CF CE CD CC CB CA C9 C8 C7 C6 C5 C4 C3 C2 C1 C0 BF BE BD BC BB BA B9 B8 B7 "
              "B6 B5 B4 B3 B2 B1 B0 AF AE AD AC AB"}};
  for (const Row &row : rows) {
    const std::string hex = Write(0, [&](GFile *gf) {
      for (int i = 0; i < row.before; i++) gf_put_1(gf, 0xEE);
      gf_put_alignpad(gf, row.alignment);
    });
    EXPECT_EQ(hex.substr(std::min(hex.size(), 3 * static_cast<size_t>(row.before))), row.pad)
        << "position " << 20 + row.before << " align " << row.alignment;
  }
  FILE *fp = fopen(Path().c_str(), "w+");  // the header at stream offset 6
  fputs("prefix", fp);
  GFile record;
  gf_open_for_write(&record, fp, "s", 1, 0, 2, 0, 0);
  gf_put_1(&record, 0);
  gf_put_alignpad(&record, 4);
  gf_close(&record);
  fclose(fp);
  EXPECT_EQ(ReadFileBytes(Path()).substr(26), HexBytes("00 AD AC AB"));
  for (auto [body, good] : {std::pair{"00 AD AC AB 2A", true}, {"00 AD AB AB 2A", false}, {"00 00 AC 00 2A", false}}) {
    GFile *gf = OpenWith(0, 0, HexBytes(body));
    gf_get_1(gf);
    EXPECT_EQ(Err([&] { gf_get_alignpad(gf, 4); }), good ? "" : Once()) << body;
    EXPECT_EQ(gf->alignpad_error + gf_got_error(gf), good ? 0 : 2);
    EXPECT_EQ(gf_get_1(gf), 0x2Au);  // read to its end all the same
    gf_close(gf);
  }
}

TEST_F(GFileTest, FourByteArraysWithAndWithoutHdStorage) {
  const uint32_t words[] = {0x12345678u, 0x9ABCDEF0u};
  const auto body = [&](GFile *gf) {
    gf_put_1(gf, 0x01);
    gf_put_array_4(gf, words, 0);  // nothing, not even a pad
    gf_put_array_4(gf, words, 2);
  };
  EXPECT_EQ(Write(0, body, 2, 0), "01 12 34 56 78 9A BC DE F0");
  EXPECT_EQ(Write(0, body, 2, 1), "01 AD AC AB 12 34 56 78 9A BC DE F0");
  for (int hd : {0, 1}) {
    Write(0, body, 2, static_cast<uint8_t>(hd));
    GFile *gf = gf_open_for_read(nullptr, nullptr, Path().c_str());
    uint32_t back[2] = {};
    gf_get_1(gf);
    gf_get_array_4(gf, back, 2);
    EXPECT_TRUE(back[0] == words[0] && back[1] == words[1] && gf_got_error(gf) == 0) << hd;
    gf_seek(gf, 21);
    gf_skip_array_4(gf, 2);
    EXPECT_EQ(gf_tell(gf, nullptr), hd ? 32 : 29);
    gf_close(gf);
  }
  // Many words go out in chunks, as the same bytes as word by word.
  std::vector<uint32_t> many(700);
  for (size_t i = 0; i < many.size(); i++) many[i] = static_cast<uint32_t>(i * 0x01010101u);
  const std::string byWord = Write(0, [&](GFile *gf) { gf_put_array_4(gf, many.data(), 700); });
  EXPECT_EQ(Write(0, [&](GFile *gf) { gf_put_array_4(gf, many.data(), 700); }, 2, 1), byWord);
  // Byte 2: the words stand in the opposite order to this host's.
  GFile *gf = OpenWith(0, 2, HexBytes(std::endian::native == std::endian::big ? "78563412" : "12345678"));
  uint32_t word = 0;
  gf_get_array_4(gf, &word, 1);
  EXPECT_EQ(word, 0x12345678u);
  gf_close(gf);
  uint32_t swapped[] = {0x11223344u, 0xA0B0C0D0u};
  gf_swap_array_4(swapped, 2);
  EXPECT_TRUE(swapped[0] == 0x44332211u && swapped[1] == 0xD0C0B0A0u);
}

// Caught by fuzzing: without hd storage a skip of a count taken from the
// input read on at the end of the file, minutes for billions of words.  It
// ends where the file does, at once.
TEST_F(GFileTest, SkippingWordsPastTheEndStopsAtTheEnd) {
  const struct { int32_t from; uint32_t words; int32_t to; int hitEnd; } rows[] = {
      {20, 3, 32, 0}, {20, 4, 32, 1}, {20, 0x11121508u, 32, 1}, {22, 1u << 28, 32, 1}};
  const auto started = std::chrono::steady_clock::now();
  for (const auto &row : rows) {
    GFile *gf = OpenWith(0, 0, HexBytes("00000001 00000002 00000003"));
    gf_seek(gf, row.from);
    gf_skip_array_4(gf, row.words);
    EXPECT_EQ(gf_tell(gf, nullptr), row.to) << row.words;
    EXPECT_EQ(gf_hit_end(gf), row.hitEnd) << row.words;
    gf_close(gf);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(1));
}

TEST_F(GFileTest, EachFailureSetsItsFlagAndTheFileSpeaksOnce) {
  struct Row { void (*set)(GFile *); const char *flags; };  // descriptor constval alignpad mapping
  const Row rows[] = {{gf_set_descriptor_error, "1000"}, {gf_set_constval_error, "0100"},
                      {gf_set_alignpad_error, "0010"}, {gf_set_file_memory_mapping_error, "0001"}};
  for (const Row &row : rows) {
    GFile *gf = Open(kHeader);
    EXPECT_EQ(Err([&] {
                row.set(gf);
                row.set(gf);
              }), Once());
    EXPECT_EQ(std::to_string(gf->descriptor_error) + std::to_string(gf->constval_error) +
                  std::to_string(gf->alignpad_error) + std::to_string(gf->file_memory_mapping_error), row.flags);
    EXPECT_EQ(gf_got_error(gf), 1);
    gf_close(gf);
  }
  // Constant checks write nothing and fail in either direction.
  for (auto check : {+[](GFile *g) { gf_put_uc(g, 8, 7); }, +[](GFile *g) { gf_put_uc(g, 6, 7); },
                     +[](GFile *g) { gf_put_sc(g, 1, -1); }, +[](GFile *g) { gf_put_sc(g, -2, -1); }}) {
    GFile *gf = gf_open_for_write(nullptr, nullptr, Path().c_str(), 1, 0, 2, 0, 0);
    EXPECT_EQ(Err([&] {
                gf_put_uc(gf, 7, 7);
                gf_put_sc(gf, -1, -1);
                EXPECT_EQ(gf_got_error(gf), 0);
                check(gf);
              }), Once());
    EXPECT_EQ(gf->constval_error + gf_tell(gf, nullptr), 21);
    gf_close(gf);
  }
  // A failing seek speaks with the system's text and sets no flag; the file
  // stays usable, and a later failure is silent.
  GFile *gf = Open(kHeader);
  EXPECT_EQ(Err([&] {
              EXPECT_EQ(gf_seek(gf, -100), -1);
              EXPECT_EQ(gf_seek(gf, -1), -1);
            }), "tool: fatal: Error while processing \"" + Path() + "\": Invalid argument\n");
  EXPECT_EQ(gf_got_error(gf), 0);
  EXPECT_EQ(gf_seek(gf, 0), 0);
  EXPECT_EQ(gf_get_1(gf), 0x7Fu);
  EXPECT_EQ(Err([&] { gf_set_constval_error(gf); }), "");
  gf_close(gf);
  // A caller's record answers from its flags after close; the stream's
  // indicator goes with the stream.
  GFile clean, flagged;
  gf_open_for_read(&clean, nullptr, Path().c_str());
  gf_open_for_read(&flagged, nullptr, Path().c_str());
  Err([&] { gf_set_file_memory_mapping_error(&flagged); });
  gf_put_1(&clean, 1);  // writing to a read-only stream
  EXPECT_EQ(gf_got_error(&clean), 1);
  EXPECT_EQ(gf_close(&clean) + gf_close(&flagged), 2);
  EXPECT_EQ(gf_got_error(&flagged) * 2 + gf_got_error(&clean), 2);
  // A failing close is reported and still returns 1.
  gf = gf_open_for_write(nullptr, nullptr, Path().c_str(), 4, 0, 2, 0, 0);
  gf_put_1(gf, 0);
  EXPECT_EQ(Err([&] {
              close(fileno(gf->fp));  // the buffered byte can no longer be written
              EXPECT_EQ(gf_close(gf), 1);
            }), "tool: fatal: Error while processing \"" + Path() + "\": Bad file descriptor\n");
}

TEST_F(GFileTest, ReadMappingsCoverTheWholeFileAndHandOutArrays) {
  void *const nil = gf_get_nil_file_memory_mapping_handle();
  EXPECT_EQ(nil, reinterpret_cast<void *>(-1));
  GFile *gf = gf_open_for_write(nullptr, nullptr, Path().c_str(), 4, 0, 2, 0, 0);
  void *addr = nullptr;
  uint32_t len = 0;
  EXPECT_EQ(gf_open_memory_mapping(gf, 1, &addr, &len), nil);  // refused for writing
  EXPECT_TRUE(addr == nil && len == 0xFFFFFFFFu && gf->owns_mapping == 0 && !gf_can_memory_map_array(gf, 1));
  gf_close(gf);
  for (int closeWithFile : {1, 0}) {
    gf = Open(kHeader + "payload");
    void *mapped = gf_open_memory_mapping(gf, static_cast<uint8_t>(closeWithFile), &addr, &len);
    EXPECT_TRUE(mapped == addr && mapped == gf->map_addr && gf->owns_mapping == closeWithFile);
    EXPECT_EQ(std::string(static_cast<const char *>(mapped), len), kHeader + "payload");
    EXPECT_EQ(gf_can_memory_map_array(gf, 1) * 2 + gf_can_memory_map_array(gf, 4), 2);  // no hd storage
    EXPECT_EQ(Err([&] { EXPECT_EQ(gf_can_memory_map_array(gf, 2), 0); }),
              "tool: warning: GFile: [gf_can_map_hd_storage]: invalid array element size\n");
    gf_close(gf);
    EXPECT_EQ(Unmapped(mapped, len), closeWithFile == 1);
    if (closeWithFile == 1) continue;
    EXPECT_EQ(std::string(static_cast<const char *>(mapped) + 20, 7), "payload");  // it outlived the file
    gf_close_memory_mapping(nullptr, mapped, len);
    EXPECT_TRUE(Unmapped(mapped, len));
  }
  // Four-byte arrays map only when the file's words are in the host's order.
  for (int hd : {1, 2}) {
    GFile record;
    testsupport::WriteFileBytes(Path(), Damaged(18, hd) + "abcd");
    gf_open_for_read(&record, nullptr, Path().c_str());
    EXPECT_EQ(gf_can_memory_map_array(&record, 4), 0) << "no mapping yet";
    gf_open_memory_mapping(&record, 1, nullptr, nullptr);
    const bool words_as_host = hd == 1 && std::endian::native == std::endian::big;
    EXPECT_EQ(record.swapped * 2 + gf_can_memory_map_array(&record, 4), words_as_host ? 1 : 2) << hd;
    gf_close_memory_mapping(&record, nil, 0xFFFFFFFFu);
    EXPECT_TRUE(record.map_addr == nil && record.owns_mapping == 0);
    gf_close(&record);
  }
  // Arrays handed out of the mapping, or refused with the mapping error.
  gf = OpenWith(0, 1, HexBytes("\"ab\" AC AB 12345678 9ABCDEF0 \"z\""));
  const uint8_t *bytes = reinterpret_cast<const uint8_t *>(&gf);  // a sentinel
  gf_get_mapped_array_1(gf, &bytes, 0);
  EXPECT_EQ(bytes, reinterpret_cast<const uint8_t *>(&gf));  // n 0: untouched
  EXPECT_EQ(Err([&] { gf_get_mapped_array_1(gf, &bytes, 2); }), Once());  // no mapping yet
  EXPECT_EQ(bytes, nullptr);
  EXPECT_EQ(gf->file_memory_mapping_error * 100 + gf_tell(gf, nullptr), 120);
  gf_open_memory_mapping(gf, 1, nullptr, nullptr);
  gf_get_mapped_array_1(gf, &bytes, 2);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(bytes), 2), "ab");
  const uint32_t *words = nullptr;
  gf_get_mapped_array_4(gf, &words, 2);  // past the pad, as stored
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(words), 8), HexBytes("12345678 9ABCDEF0"));
  gf_get_mapped_array_1(gf, &bytes, 2);  // one byte left
  EXPECT_EQ(bytes, nullptr);
  EXPECT_EQ(gf_tell(gf, nullptr), 32);
  gf_get_mapped_array_1(gf, &bytes, 1);  // exactly to the end
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(*bytes, 'z');
  gf_close(gf);
  gf = OpenWith(0, 0, HexBytes("12345678"));  // no hd storage
  gf_open_memory_mapping(gf, 1, nullptr, nullptr);
  EXPECT_EQ(Err([&] { gf_get_mapped_array_4(gf, &words, 1); }), Once());
  EXPECT_EQ(words, nullptr);
  EXPECT_EQ(gf_tell(gf, nullptr), 20);
  gf_close(gf);
}

}  // namespace
