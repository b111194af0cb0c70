// End-to-end tests: the built ravelog run as a child process on corefiles
// made by the builder, comparing standard output, standard error and exit
// status exactly.  Command line, probe, the worked 132-byte log in both
// byte orders, reversals, the decoder's boundary cases, malformed logs and
// the shipped sample dumps.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "corefile_builder.h"
#include "run_process.h"
#include "temp_dir.h"

using testsupport::Corefile;
using testsupport::Endian;
using testsupport::ProcessResult;
using testsupport::TempDir;

namespace {

const std::string kBinary = RAVELOG_BINARY;

std::string Usage(const std::string &argv0) {
  return "Usage: " + argv0 +
         " [-h] [-d] corefile KQfile\n"
         "Options:\n"
         "    -h    displays the usage informaiton.\n"
         "    -d    displays diagnostic information.\n";
}

// Runs ravelog (argv[0] is the binary's path) with args in directory cwd.
ProcessResult Ravelog(const std::vector<std::string> &args, const std::string &cwd = "") {
  std::vector<std::string> argv{kBinary};
  argv.insert(argv.end(), args.begin(), args.end());
  return testsupport::RunProcess(kBinary, argv, cwd);
}

// Writes a corefile into dir and runs ravelog [-d] on it.
ProcessResult Convert(const TempDir &dir, const std::string &bytes, bool with_debug) {
  EXPECT_TRUE(testsupport::WriteFileBytes(dir.file("core"), bytes));
  std::vector<std::string> args;
  if (with_debug) args.push_back("-d");
  args.push_back(dir.file("core"));
  args.push_back(dir.file("db"));
  return Ravelog(args);
}

std::vector<std::string> DirectoryEntries(const TempDir &dir) {
  std::vector<std::string> names;
  for (const auto &entry : std::filesystem::directory_iterator(dir.path()))
    names.push_back(entry.path().filename().string());
  return names;
}

const std::string kVerify = "Verify that the correct target memory region was saved.\n";
const std::string kPoolReadError =
    "ravelog: fatal: Error reading event pool. \n"
    "Check that the file size is at least as large as the event pool in memory.\n";

// ---- Command line ------------------------------------------------------------

TEST(CommandLine, HelpInFirstPlacePrintsUsageAndSucceeds) {
  for (const std::vector<std::string> &args :
       {std::vector<std::string>{"-h"}, {"-H"}, {"-help"}, {"-hx", "a", "b", "c"}}) {
    ProcessResult run = Ravelog(args);
    EXPECT_EQ(run.out, Usage(kBinary)) << args[0];
    EXPECT_EQ(run.err, "") << args[0];
    EXPECT_EQ(run.status, 0) << args[0];
  }
}

TEST(CommandLine, WrongArgumentCountsPrintUsageAndFail) {
  for (const std::vector<std::string> &args :
       {std::vector<std::string>{}, {"-d"}, {"a"}, {"a", "b", "c"}, {"-D", "a", "b"}, {"-d", "a"},
        {"-d", "a", "b", "c"}}) {
    ProcessResult run = Ravelog(args);
    EXPECT_EQ(run.out, Usage(kBinary)) << args.size();
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 1);
  }
}

TEST(CommandLine, UsageNamesArgv0AsTypedAndMessagesItsBasename) {
  TempDir dir;
  ProcessResult usage = testsupport::RunProcess(kBinary, {"tools/bin/ravelog", "-h"});
  EXPECT_EQ(usage.out, Usage("tools/bin/ravelog"));
  ProcessResult missing =
      testsupport::RunProcess(kBinary, {"/opt/x/ravelog", dir.file("none"), dir.file("db")});
  EXPECT_EQ(missing.err,
            "gen_filesize reports size of -1.\nravelog: fatal: Error in opening core file.\n");
}

// ---- The worked example --------------------------------------------------------

Corefile WorkedExample(Endian order) {
  Corefile core = Corefile::V2(order, 64);
  core.Location(0x00100000).StartOffset(32).TimerHz(1000).Thread("main", 0x1234, 10);
  core.Slot(0, 1, 0, 0, 100, core.Words({0x1234}));
  core.Slot(32, 3, 22, 0, 50, core.Words({0x1234}));
  return core;
}

const std::string kListingHead =
    "Event Log Header Section\n"
    "Offset     Size     Value\n"
    "---------  -------- ---------------\n";
const std::string kBigEndianLines =
    " 0 (0x00)   1 byte  0x00 = version/byte order value, byte 1\n"
    " 1 (0x01)   1 byte  0x02 = version/byte order value, byte 2\n";
const std::string kLittleEndianLines =
    " 0 (0x00)   1 byte  0x02 = version/byte order value, byte 1\n"
    " 1 (0x01)   1 byte  0x00 = version/byte order value, byte 2\n";
const std::string kThreadHeading =
    "Thread List Section\n"
    "valid Next priority Thread ID  Thread name\n"
    "----- ---- -------- ---------- -------------------------------\n";
const std::string kEventsHeading =
    "\nEvents Section\n"
    "Thread ID  Event                                 Type:Sub Event time         \n"
    "---------- ------------------------------------- -------- -------------------\n";
const std::string kWorkedRest =
    " 2 (0x02)   2 bytes 1 = threads in thread list section\n"
    " 4 (0x04)   4 bytes 64 = size of events section (bytes)\n"
    " 8 (0x08)   4 bytes 2 = event capacity (size/32 bytes)\n"
    "12 (0x0c)   4 bytes 0x00100000 = event log memory location\n"
    "16 (0x10)   4 bytes 0x00000020 = current event pointer\n"
    "20 (0x14)   4 bytes 1000 = timer frequency (Hz)\n\n" +
    kThreadHeading + "  1    0      10    0x00001234 main\n" + kEventsHeading +
    "0x00001234 tx_thread_create                      0x03:16  0x00000000:00000032\n"
    "0x00001234 context switch to thread              0x01:00  0x00000000:00000064\n";

TEST(WorkedExample, ListsTheSameInBothByteOrdersApartFromTheOrderLines) {
  TempDir dir;
  ProcessResult big = Convert(dir, WorkedExample(Endian::kBig).Bytes(), true);
  EXPECT_EQ(big.out, kListingHead + kBigEndianLines + kWorkedRest);
  EXPECT_EQ(big.err, "");
  EXPECT_EQ(big.status, 0);
  ProcessResult little = Convert(dir, WorkedExample(Endian::kLittle).Bytes(), true);
  EXPECT_EQ(little.out, kListingHead + kLittleEndianLines + kWorkedRest);
  EXPECT_EQ(little.err, "");
  EXPECT_EQ(little.status, 0);
}

TEST(WorkedExample, WithoutDebugPrintsNothing) {
  TempDir dir;
  ProcessResult run = Convert(dir, WorkedExample(Endian::kLittle).Bytes(), false);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.status, 0);
}

TEST(CommandLine, DashHAfterDashDIsTheCorefilesName) {
  TempDir dir;
  ASSERT_TRUE(WorkedExample(Endian::kBig).WriteTo(dir.file("-h")));
  ProcessResult run = Ravelog({"-d", "-h", "a"}, dir.path());
  EXPECT_EQ(run.out, kListingHead + kBigEndianLines + kWorkedRest);
  EXPECT_EQ(run.status, 0);
}

// ---- Reversals ---------------------------------------------------------------

// Normalised times 0, 0x80, 0x40 (reversed), 0x100.
Corefile Reversing() {
  Corefile core = Corefile::V2(Endian::kBig, 128);
  core.Slot(0, 4, 0, 0, 0x100, core.Words({7}));
  core.Slot(32, 4, 1, 0, 0x180, core.Words({7}));
  core.Slot(64, 4, 2, 0, 0x140, core.Words({7}));
  core.Slot(96, 4, 3, 0, 0x200, core.Words({7}));
  return core;
}

const std::string kReversal =
    "Error: Timestamp reverses from 0x0:80 to 0x0:40 \n\tfor event of type 0x4:0x2.\n";

TEST(Reversal, ErrorLineStandsDirectlyBeforeItsEventLine) {
  TempDir dir;
  ProcessResult run = Convert(dir, Reversing().Bytes(), true);
  const std::string events =
      "0x00000007 user event                            0x04:00  0x00000000:00000100\n"
      "0x00000007 user event                            0x04:01  0x00000000:00000180\n" +
      kReversal +
      "0x00000007 user event                            0x04:02  0x00000000:00000140\n"
      "0x00000007 user event                            0x04:03  0x00000000:00000200\n";
  const size_t at = run.out.find(kEventsHeading);
  ASSERT_NE(at, std::string::npos) << run.out;
  EXPECT_EQ(run.out.substr(at + kEventsHeading.size()), events);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
}

TEST(Reversal, WithoutDebugOnlyTheErrorLinesReachStandardOutput) {
  TempDir dir;
  ProcessResult run = Convert(dir, Reversing().Bytes(), false);
  EXPECT_EQ(run.out, kReversal);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.status, 0);
}

TEST(Reversal, ADashDInSecondPlaceIsADatabaseNameNotTheOption) {
  TempDir dir;
  ASSERT_TRUE(Reversing().WriteTo(dir.file("a")));
  ProcessResult run = Ravelog({"a", "-d"}, dir.path());
  EXPECT_EQ(run.out.substr(0, 6), "Error:");
  EXPECT_EQ(run.out.find("Events Section"), std::string::npos);
  EXPECT_EQ(run.status, 0);
}

// ---- Probe -----------------------------------------------------------------

TEST(Probe, RefusedFilesFailWithOneMessageAndCreateNothing) {
  struct Case {
    std::string bytes;
    std::string err;
  } cases[] = {
      {"", "ravelog: fatal: Error reading char from corefile.\n"},
      {std::string(1, '\0'), "ravelog: fatal: Error reading char from corefile.\n"},
      {std::string("\0\0", 2), "ravelog: fatal: Unknown version 0x00 core file.  \n" + kVerify},
      {std::string("\3\0", 2), "ravelog: fatal: Unknown version 0x03 core file.  \n" + kVerify},
      {std::string("\0\xff", 2), "ravelog: fatal: Unknown version 0xff core file.  \n" + kVerify},
      {"\2\2", "ravelog: fatal: Bad format detected in core file.  First two bytes were both "
               "non-zero.\n" + kVerify},
  };
  for (const Case &c : cases) {
    TempDir dir;
    ProcessResult run = Convert(dir, c.bytes, true);
    EXPECT_EQ(run.err, c.err);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(DirectoryEntries(dir), std::vector<std::string>{"core"});
  }
}

TEST(Probe, MissingCorefileReportsTheSizeBeforeTheFatalLine) {
  TempDir dir;
  ProcessResult run = Ravelog({dir.file("absent"), dir.file("db")});
  EXPECT_EQ(run.err, "gen_filesize reports size of -1.\nravelog: fatal: Error in opening core file.\n");
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(DirectoryEntries(dir).empty());
}

TEST(Probe, CorefileThatCannotBeOpenedReportsTheFailedOpen) {
  // A socket has a size but can't be opened as a file, whoever runs the test.
  TempDir dir;
  const std::string path = dir.file("core");
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_GE(fd, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  memcpy(address.sun_path, path.c_str(), path.size() + 1);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  ProcessResult run = Ravelog({path, dir.file("db")});
  close(fd);
  EXPECT_EQ(run.err, "gen_fopen returned NULL\nravelog: fatal: Error in opening core file.\n");
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.status, 1);
}

// ---- Decoder boundaries -----------------------------------------------------------

TEST(Decoder, NoThreadsAndEmptyPoolPrintHeadingsOnly) {
  TempDir dir;
  ProcessResult run = Convert(dir, Corefile::V2(Endian::kLittle, 64).Bytes(), true);
  EXPECT_EQ(run.out, kListingHead + kLittleEndianLines +
                         " 2 (0x02)   2 bytes 0 = threads in thread list section\n"
                         " 4 (0x04)   4 bytes 64 = size of events section (bytes)\n"
                         " 8 (0x08)   4 bytes 2 = event capacity (size/32 bytes)\n"
                         "12 (0x0c)   4 bytes 0x00100000 = event log memory location\n"
                         "16 (0x10)   4 bytes 0x00000000 = current event pointer\n"
                         "20 (0x14)   4 bytes 1000 = timer frequency (Hz)\n\n" +
                         kThreadHeading + kEventsHeading);
  EXPECT_EQ(run.status, 0);
}

TEST(Decoder, NegativeThreadCountShowsAndReadsNoEntries) {
  TempDir dir;
  Corefile core = Corefile::V2(Endian::kBig, 32);
  core.ThreadCount(-2).Slot(0, 1, 0, 0, 5, core.Words({0xAB}));
  ProcessResult run = Convert(dir, core.Bytes(), true);
  EXPECT_NE(run.out.find(" 2 (0x02)   2 bytes -2 = threads in thread list section\n" ""),
            std::string::npos);
  EXPECT_NE(run.out.find(kThreadHeading + kEventsHeading +
                         "0x000000ab context switch to thread              0x01:00  "
                         "0x00000000:00000005\n"),
            std::string::npos)
      << run.out;
  EXPECT_EQ(run.status, 0);
}

TEST(Decoder, InvalidEntriesAreListedToo) {
  TempDir dir;
  Corefile core = Corefile::V2(Endian::kLittle, 32);
  core.Thread("gone", 0x10, 3, 0, 1).Thread("here", 0x20, 4, 1, 0);
  ProcessResult run = Convert(dir, core.Bytes(), true);
  EXPECT_NE(run.out.find(kThreadHeading +
                         "  0    1       3    0x00000010 gone\n"
                         "  1    0       4    0x00000020 here\n" +
                         kEventsHeading),
            std::string::npos)
      << run.out;
}

TEST(Decoder, FullRingFromTheMiddleListsTheSecondHalfFirst) {
  TempDir dir;
  Corefile core = Corefile::V2(Endian::kBig, 128);
  core.StartOffset(64);
  const uint32_t times[] = {30, 40, 10, 20};  // by pool offset 0, 32, 64, 96
  for (uint32_t i = 0; i < 4; i++) core.Slot(i * 32, 2, 1, 0, times[i], core.Words({i}));
  ProcessResult run = Convert(dir, core.Bytes(), true);
  EXPECT_NE(run.out.find(kEventsHeading +
                         "           interrupt vector=0x2                  0x02:01  0x00000000:0000000a\n"
                         "           interrupt vector=0x3                  0x02:01  0x00000000:00000014\n"
                         "           interrupt vector=0x0                  0x02:01  0x00000000:0000001e\n"
                         "           interrupt vector=0x1                  0x02:01  0x00000000:00000028\n"),
            std::string::npos)
      << run.out;
  EXPECT_EQ(run.out.find("Error:"), std::string::npos);
}

TEST(Decoder, EqualTimesPassWithoutMessage) {
  TempDir dir;
  Corefile core = Corefile::V2(Endian::kLittle, 64);
  core.Slot(0, 4, 0, 0, 9).Slot(32, 4, 0, 0, 9);
  ProcessResult run = Convert(dir, core.Bytes(), false);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.status, 0);
}

// ---- Cut and malformed logs ------------------------------------------------------

TEST(Malformed, CutShortFilesEndInTheReadersMessages) {
  const std::string whole = WorkedExample(Endian::kBig).Bytes();
  struct Case {
    size_t keep;
    std::string err;
  } cases[] = {
      {3, "ravelog: fatal: Error reading short from corefile.\n"},
      {6, "ravelog: fatal: Error reading int4 from corefile.\n"},
      {23, "ravelog: fatal: Error reading int4 from corefile.\n"},
      {58, "ravelog: fatal: Error reading char from corefile.\n"},
      {62, "ravelog: fatal: Error reading buffer from corefile.\n"},
      {68, kPoolReadError},
      {131, kPoolReadError},
  };
  for (const Case &c : cases) {
    TempDir dir;
    ProcessResult run = Convert(dir, whole.substr(0, c.keep), false);
    EXPECT_EQ(run.err, c.err) << c.keep;
    EXPECT_EQ(run.status, 1) << c.keep;
  }
}

TEST(Malformed, ShortNameFieldPrintsTheReadBeforeTheFatalLine) {
  TempDir dir;
  ProcessResult run = Convert(dir, WorkedExample(Endian::kLittle).Bytes().substr(0, 34), false);
  EXPECT_TRUE(std::regex_match(
      run.out, std::regex("rv is 10, errno is 0\nbuffer is 0x[0-9a-f]+, length is 34\n")))
      << run.out;
  EXPECT_EQ(run.err, "ravelog: fatal: Error reading buffer from corefile.\n");
  EXPECT_EQ(run.status, 1);
}

TEST(Malformed, PoolSizeZeroEndsInThePoolReadMessageAfterTheHeaderSection) {
  TempDir dir;
  Corefile core = Corefile::V2(Endian::kBig, 0);
  ProcessResult run = Convert(dir, core.Bytes(), true);
  EXPECT_EQ(run.err, kPoolReadError);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out.substr(run.out.size() - kThreadHeading.size()), kThreadHeading);
}

TEST(Malformed, RingsThatDoNotFitAreRefused) {
  struct Case {
    Corefile core;
    std::string err;
  } cases[] = {
      {Corefile::V2(Endian::kBig, 40),
       "ravelog: fatal: Bad event pool size 40 in core file.  It is not a positive multiple of 32 "
       "bytes.\n" + kVerify},
      {Corefile::V2(Endian::kLittle, 64).Evps(0x80000000u).Trailer(std::string(64, '\0')),
       kPoolReadError},
      {Corefile::V2(Endian::kLittle, 96).StartOffset(8),
       "ravelog: fatal: Bad current event pointer 0x00100008 in core file.  It is not an event "
       "slot of the pool of 96 bytes at 0x00100000.\n" + kVerify},
      {Corefile::V2(Endian::kBig, 96).Location(0x40).CurrentPointer(0x20),
       "ravelog: fatal: Bad current event pointer 0x00000020 in core file.  It is not an event "
       "slot of the pool of 96 bytes at 0x00000040.\n" + kVerify},
  };
  for (Case &c : cases) {
    TempDir dir;
    c.core.Slot(0, 1, 0, 0, 1);
    ProcessResult run = Convert(dir, c.core.Bytes(), false);
    EXPECT_EQ(run.err, c.err);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.status, 1);
  }
}

// ---- Shipped samples ------------------------------------------------------------

TEST(Samples, BothByteOrdersListTheSameWithRisingTimes) {
  const char *source = getenv("RAVELOG_SOURCE_DIR");
  ASSERT_NE(source, nullptr) << "run through ctest, which sets RAVELOG_SOURCE_DIR";
  const std::string examples = std::string(source) + "/examples/";
  TempDir dir;
  ProcessResult big = Ravelog({"-d", examples + "sample_v2_big.core", dir.file("big")});
  ProcessResult little = Ravelog({"-d", examples + "sample_v2_little.core", dir.file("little")});
  EXPECT_EQ(big.status, 0);
  EXPECT_EQ(big.err, "");
  EXPECT_EQ(little.err, "");
  EXPECT_EQ(big.out.find("Error:"), std::string::npos);
  const size_t order_lines = kListingHead.size();
  ASSERT_EQ(big.out.substr(order_lines, kBigEndianLines.size()), kBigEndianLines);
  ASSERT_EQ(little.out.substr(order_lines, kLittleEndianLines.size()), kLittleEndianLines);
  EXPECT_EQ(big.out.substr(order_lines + kBigEndianLines.size()),
            little.out.substr(order_lines + kLittleEndianLines.size()));
  const size_t events = big.out.find(kEventsHeading);
  ASSERT_NE(events, std::string::npos);
  const std::string lines = big.out.substr(events + kEventsHeading.size());
  EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 512);
}

}  // namespace
