// End-to-end tests of the command line and of version 2 logs: usage and
// options, the probe, the worked log's listing and pinned files in both byte
// orders, the decoder's boundaries and reversals, every fatal message of a
// log cut or malformed, a cut at every byte, large pools, the samples.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <regex>

#include "simulated_dump.h"
#include "ravelog_run.h"

using namespace ravelogtest;

namespace {

const std::string kUsage = " [-h] [-d] corefile KQfile\nOptions:\n    -h    displays the usage informaiton.\n"
                           "    -d    displays diagnostic information.\n";
const std::string kPoolRead =
    "ravelog: fatal: Error reading event pool. \nCheck that the file size is at least as large as the event pool in memory.\n";
std::string Pad20(const std::string &payload) { return payload + std::string(20 - payload.size(), '\0'); }

// The worked log: one thread, a pool of two slots, the walk from offset 32,
// and its database pinned byte for byte (the model agreeing, below).
Corefile Worked(Endian order) {
  Corefile core = Corefile::V2(order, 64).Start(32).Thread("main", 0x1234, 10);
  return core.Slot(0, 1, 0, 0, 100, core.Words({0x1234})).Slot(32, 3, 22, 0, 50, core.Words({0x1234}));
}
DatabaseFiles WorkedFiles(bool big) {
  const std::string main31 = "main" + std::string(27, '\0'), w = big ? HexBytes("00001234") : HexBytes("34120000");
  return {GFileHeader(6) + HexBytes("03 000003E8 00000007 \"threadx\"") + U(big, 1) + HexBytes("00000064"),
          GFileHeader(4) + HexBytes("03 00000000 02 00000000 01 0000000000000000 00000027 0006 000A") + w + Word(10, big) + main31 +
              HexBytes("00 0000 00001234 004C 000A 01 00 0000000A 01") + main31 + HexBytes("01") + std::string(35, '\0') +
              HexBytes("03 01 0000000000000000 00000014 0003 0016") + w + std::string(16, '\0') +
              HexBytes("01 0000 00001234 0000 02 0003 03 01 0000000000000032 00000014 0001 0000") + w + std::string(16, '\0') +
              HexBytes("01 0000 00001234 0000 02 0000 01 0000 00001234 0000 02 0003 03 00"),
          GFileHeader(5) + HexBytes("01 0000000000000000 00000014 00")};
}
std::string Header(Endian order, int threads, uint32_t pool, uint32_t pointer) {
  char text[1024];
  snprintf(text, sizeof text,
           "Event Log Header Section\nOffset     Size     Value\n---------  -------- ---------------\n"
           " 0 (0x00)   1 byte  0x%02x = version/byte order value, byte 1\n 1 (0x01)   1 byte  0x%02x = version/byte order value, byte 2\n"
           " 2 (0x02)   2 bytes %d = threads in thread list section\n 4 (0x04)   4 bytes %u = size of events section (bytes)\n"
           " 8 (0x08)   4 bytes %u = event capacity (size/32 bytes)\n12 (0x0c)   4 bytes 0x00100000 = event log memory location\n"
           "16 (0x10)   4 bytes 0x%08x = current event pointer\n20 (0x14)   4 bytes 1000 = timer frequency (Hz)\n\n",
           order == Endian::kBig ? 0 : 2, order == Endian::kBig ? 2 : 0, threads, pool, pool / 32, pointer);
  return text + kThreadHeading;
}
const std::string kWorked = "  1    0      10    0x00001234 main\n" + kEventsHeading +
                            "0x00001234 tx_thread_create                      0x03:16  0x00000000:00000032\n"
                            "0x00001234 context switch to thread              0x01:00  0x00000000:00000064\n";

TEST(CommandLine, OptionsCountInTheFirstPlaceOnly) {
  const std::vector<std::string> rows[] = {{"-h"}, {"-H"}, {"-help"}, {"-hx", "a", "b", "c"}, {}, {"-d"}, {"a"}, {"a", "b", "c"},
                                           {"-D", "a", "b"}, {"-d", "a"}, {"-d", "a", "b", "c"}};
  for (const auto &args : rows) {
    const ProcessResult run = Ravelog(args);
    EXPECT_EQ(run.out + run.err + std::to_string(run.status), "Usage: " + kBinary + kUsage + (&args < rows + 4 ? "0" : "1"));
  }
  TempDir dir;
  EXPECT_EQ(RunProcess(kBinary, {"tools/bin/ravelog", "-h"}).out, "Usage: tools/bin/ravelog" + kUsage);  // argv[0] as typed
  ASSERT_TRUE(WriteFileBytes(dir.file("-h"), Worked(Endian::kBig).Bytes()) && WriteFileBytes(dir.file("a"), Worked(Endian::kBig).Bytes()));
  EXPECT_EQ(Ravelog({"-d", "-h", "a"}, dir.path()).out, Header(Endian::kBig, 1, 64, 32) + kWorked);  // -h is the corefile
  const ProcessResult run = Ravelog({"a", "-d"}, dir.path());  // -d in second place is the database
  EXPECT_TRUE(run.out.empty() && run.status == 0 && FileExists(dir.file("-d.kqs")));
}

TEST(Probe, RefusedFilesFailWithOneMessageAndCreateNothing) {
  const std::string kChar = "ravelog: fatal: Error reading char from corefile.\n", kUnknown = "ravelog: fatal: Unknown version 0x";
  const std::pair<std::string, std::string> rows[] = {
      {"", kChar}, {std::string(1, '\0'), kChar}, {std::string("\0\0", 2), kUnknown + "00 core file.  \n" + kVerify},
      {std::string("\3\0", 2), kUnknown + "03 core file.  \n" + kVerify},
      {std::string("\0\xff", 2), kUnknown + "ff core file.  \n" + kVerify},
      {"\2\2", "ravelog: fatal: Bad format detected in core file.  First two bytes were both non-zero.\n" + kVerify}};
  for (const auto &[bytes, err] : rows) ExpectConversion(bytes, true, {"", err, 1, std::nullopt});
  TempDir dir;  // a socket has a size but can't be opened as a file, whoever runs the test; a name that isn't there
  sockaddr_un address{AF_UNIX, {}};
  strncpy(address.sun_path, dir.file("core").c_str(), sizeof address.sun_path - 1);
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  EXPECT_EQ(Ravelog({dir.file("core"), dir.file("db")}).err, "gen_fopen returned NULL\nravelog: fatal: Error in opening core file.\n");
  close(fd);
  EXPECT_EQ(RunProcess(kBinary, {"/opt/x/ravelog", dir.file("absent"), dir.file("db")}).err,  // messages name the basename
            "gen_filesize reports size of -1.\nravelog: fatal: Error in opening core file.\n");
}

TEST(Version2, TheWorkedLogListsAlikeInBothByteOrdersAndGivesThePinnedFiles) {
  for (Endian order : {Endian::kBig, Endian::kLittle}) {
    const bool big = order == Endian::kBig;
    ExpectConversion(Worked(order).Bytes(), true, {Header(order, 1, 64, 32) + kWorked, "", 0, WorkedFiles(big)});
    ExpectConversion(Worked(order).Bytes(), false, {"", "", 0, WorkedFiles(big)});
    const Script records = {{0, 6, 10, Word(0x1234, big) + Word(10, big) + "main" + std::string(27, '\0')},
                            {0, 3, 22, Pad20(Word(0x1234, big))}, {0x32, 1, 0, Pad20(Word(0x1234, big))}};
    EXPECT_TRUE(SameFiles(ThreadXLog(big, records).Files(1000), WorkedFiles(big)));
  }
}

TEST(Version2, BoundaryCasesOfTheListAndTheRing) {
  ExpectConversion(Corefile::V2(Endian::kLittle, 64).Bytes(), true,
                   {Header(Endian::kLittle, 0, 64, 0) + kEventsHeading, "", 0, ThreadXLog(false).Files(1000)});
  Corefile negative = Corefile::V2(Endian::kBig, 32).ThreadCount(-2);  // reads no entry
  ThreadXLog log(true);
  negative.Slot(0, 1, 0, 0, 5, negative.Words({0xAB})), log.Add(0, 1, 0, Pad20(negative.Words({0xAB})));
  ExpectConversion(negative.Bytes(), true,
                   {Header(Endian::kBig, -2, 32, 0) + kEventsHeading +
                        "0x000000ab context switch to thread              0x01:00  0x00000000:00000005\n", "", 0, log.Files(1000)});
  // A full ring walked from its middle; equal times pass, a falling one is
  // reported before its line and stored as the time before; an invalid entry
  // is listed, not stored; wide numbers widen their columns, names show 31 characters.
  Corefile ring = Corefile::V2(Endian::kBig, 160).Start(64).Thread("gone", 0x10, 3, 0, 1).Thread("here", 0x20, 4);
  ring.Thread("abcdefghijklmnopqrstuvwxyz01234567", 0xdeadbeef, 12345, 12, 255);
  ThreadXLog ringLog(true);
  ringLog.Add(0, 6, 10, ring.Words({0x20, 4}) + "here" + std::string(27, '\0'));
  ringLog.Add(0, 6, 10, ring.Words({0xdeadbeef, 12345}) + "abcdefghijklmnopqrstuvwxyz01234");
  const uint32_t times[] = {30, 25, 10, 10, 20}, stored[] = {20, 20, 0, 0, 10};
  for (uint32_t i = 0; i < 5; i++) ring.Slot(i * 32, 2, 1, 0, times[i], ring.Words({i}));
  for (uint32_t i : {2, 3, 4, 0, 1}) ringLog.Add(stored[i], 2, 1, Pad20(ring.Words({i})));
  const std::string reversal = "Error: Timestamp reverses from 0x0:14 to 0x0:f \n\tfor event of type 0x2:0x1.\n";
  ExpectConversion(ring.Bytes(), true,
                   {Header(Endian::kBig, 3, 160, 64) + "  0    1       3    0x00000010 gone\n  1    0       4    0x00000020 here\n" +
                        "  12    255     12345    0xdeadbeef abcdefghijklmnopqrstuvwxyz01234\n" +
                        kEventsHeading + "           interrupt vector=0x2                  0x02:01  0x00000000:0000000a\n"
                        "           interrupt vector=0x3                  0x02:01  0x00000000:0000000a\n"
                        "           interrupt vector=0x4                  0x02:01  0x00000000:00000014\n"
                        "           interrupt vector=0x0                  0x02:01  0x00000000:0000001e\n" + reversal +
                        "           interrupt vector=0x1                  0x02:01  0x00000000:00000019\n", "", 0, ringLog.Files(1000)});
  ExpectConversion(ring.Bytes(), false, {reversal, "", 0, ringLog.Files(1000)});
}

TEST(Version2, CutAndMalformedLogsEndInOneFatalMessage) {
  const std::string worked = Worked(Endian::kBig).Bytes(), kRing = "ravelog: fatal: Bad event pool size ";
  const std::string kPointer = "ravelog: fatal: Bad current event pointer 0x00", kMultiple = " is not a positive multiple of 32 bytes.\n";
  const std::string kSlot = " in core file.  It is not an event slot of the pool of ";
  // The log, the message, and the database as it stood with this many thread records (-1: none).
  const std::tuple<std::string, std::string, int> rows[] = {
      {worked.substr(0, 3), "ravelog: fatal: Error reading short from corefile.\n", -1},
      {worked.substr(0, 6), "ravelog: fatal: Error reading int4 from corefile.\n", -1},
      {worked.substr(0, 58), "ravelog: fatal: Error reading char from corefile.\n", 0},
      {worked.substr(0, 68), kPoolRead, 1},
      {Corefile::V2(Endian::kBig, 0).Bytes(), kPoolRead, 0},
      {Corefile::V2(Endian::kLittle, 64).Evps(0x80000000u).Trailer(std::string(64, '\0')).Bytes(), kPoolRead, 0},
      {Corefile::V2(Endian::kBig, 40).Bytes(), kRing + "40 in core file.  It" + kMultiple + kVerify, 0},
      {Corefile::V2(Endian::kBig, 48).Bytes(), kRing + "48 in core file.  It" + kMultiple + kVerify, 0},
      {Corefile::V2(Endian::kLittle, 96).Start(8).Bytes(), kPointer + "100008" + kSlot + "96 bytes at 0x00100000.\n" + kVerify, 0},
      {Corefile::V2(Endian::kLittle, 64).Start(64).Bytes(), kPointer + "100040" + kSlot + "64 bytes at 0x00100000.\n" + kVerify, 0},
      {Corefile::V2(Endian::kBig, 96).Location(0x40).Pointer(0x20).Bytes(),
               kPointer + "000020" + kSlot + "96 bytes at 0x00000040.\n" + kVerify, 0}};
  for (const auto &[bytes, err, threads] : rows) {
    ThreadXLog log(bytes[0] == 0);
    if (threads == 1) log.Add(0, 6, 10, Word(0x1234, true) + Word(10, true) + "main" + std::string(27, '\0'));
    ExpectConversion(bytes, false, {"", err, 1, threads < 0 ? std::nullopt : std::optional(log.Files(1000))});
  }
  // A name field or a thread id cut short: the read is shown before the fatal line.
  for (const auto &[cut, shown] : {std::pair{57, "rv is 33, errno is 0\nbuffer is 0x[0-9a-f]+, length is 34\n"},
                                   std::pair{62, "rv is 0, errno is 0\nbuffer is 0x[0-9a-f]+, length is 1\n"}}) {
    TempDir dir;
    ASSERT_TRUE(WriteFileBytes(dir.file("core"), worked.substr(0, cut)));
    const ProcessResult run = Ravelog({dir.file("core"), dir.file("db")});
    EXPECT_TRUE(std::regex_match(run.out, std::regex(shown))) << run.out;
    EXPECT_EQ(run.err + std::to_string(run.status), "ravelog: fatal: Error reading buffer from corefile.\n1");
  }
}

TEST(Damage, ALogCutAtAnyByteEndsInOneFatalMessageAndTheDatabaseSoFar) {
  Corefile v1 = Corefile::V1(Endian::kBig, 48).Thread("main", 0x1234, 10);
  for (const std::string &whole : {Worked(Endian::kLittle).Bytes(), v1.Append(1, 0, 0, 5, v1.Words({0x1234})).Append(4, 2, 0, 9).Bytes()}) {
    TempDir dir;
    ASSERT_TRUE(WriteFileBytes(dir.file("whole"), whole) && Ravelog({dir.file("whole"), dir.file("complete")}).status == 0);
    const DatabaseFiles complete = ReadDatabase(dir.file("complete"));
    for (size_t cut = 0; cut < whole.size(); cut++) {
      const std::string db = dir.file("db" + std::to_string(cut));
      ASSERT_TRUE(WriteFileBytes(dir.file("core"), whole.substr(0, cut)));
      const ProcessResult run = Ravelog({dir.file("core"), db});
      const size_t fatal = run.err.find("ravelog: fatal: "), npos = std::string::npos;
      EXPECT_TRUE(run.status == 1 && fatal != npos && run.err.find("fatal", fatal + 10) == npos) << cut << run.err;
      const DatabaseFiles got = ReadDatabase(db);
      EXPECT_TRUE(got == DatabaseFiles{} ? ::testing::AssertionSuccess() : StoppedEarly(got, complete)) << "cut at " << cut;
    }
  }
}

TEST(Version2, LargePoolsArriveWholeReadInPiecesOrMappedAndCutByAByteAreRefused) {
  for (const uint32_t slots : {8192u, 65536u}) {  // 256 KiB read in pieces; 2 MiB mapped
    Corefile core = Corefile::V2(Endian::kLittle, slots * 32).Start((slots - 2) * 32);
    ThreadXLog log(false);
    for (uint32_t i = 0, slot = slots - 2; i < 64; i++, slot = (slots - 2 + i * (slots / 64)) % slots)  // over the whole ring
      core.Slot(slot * 32, 4, 0, 0, i + 1, core.Words({slot})), log.Add(i, 4, 0, Pad20(core.Words({slot})));
    const std::string bytes = core.Bytes();
    ExpectConversion(bytes, false, {"", "", 0, log.Files(1000)});
    ExpectConversion(bytes.substr(0, bytes.size() - 1), false, {"", kPoolRead, 1, ThreadXLog(false).Files(1000)});
  }
}

TEST(Samples, AreTheGeneratorsAndConvertWithoutAComplaint) {
  TempDir dir;
  for (const auto &[name, bytes] : ExampleDumps()) {
    const std::string path = SourceDir() + "/examples/" + name;
    EXPECT_TRUE(ReadFileBytes(path) == bytes) << path << " differs from the generator; run make_examples examples";
    const ProcessResult run = Ravelog({path, dir.file(name)});
    EXPECT_EQ(run.out + run.err + std::to_string(run.status), "0") << name;
  }
}

}  // namespace
