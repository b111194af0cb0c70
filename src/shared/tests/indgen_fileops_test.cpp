// Tests of the file operations, each in a fresh temporary directory: the
// messages of the safe stream calls byte for byte, the readers at their
// buffer boundaries, tests and modes, copies and moves that fail half way,
// times, directory walks with each restriction, identity, comparison, the
// checksum and the search for programs.  rename is replaced in this program
// (see FailingRenames) so that a rename can be made to fail on demand.
#include "indgen_fileops.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "gen_capture.h"
#include "indgen_string.h"
#include "indgeninit.h"
#include "temp_dir.h"

namespace {
// Renames still to fail with EXDEV, and for each call whether its target
// existed.
int renames_to_fail = 0;
std::vector<bool> rename_target_existed;
}  // namespace

// The library's rename, with failures on demand.
extern "C" int rename(const char *old_name, const char *new_name) noexcept {
  rename_target_existed.push_back(access(new_name, F_OK) == 0);
  if (renames_to_fail > 0) {
    renames_to_fail--;
    errno = EXDEV;
    return -1;
  }
  return renameat(AT_FDCWD, old_name, AT_FDCWD, new_name);
}

namespace {

using testsupport::Captured;
using testsupport::FileExists;
using testsupport::ReadFileBytes;
using testsupport::RunCapturing;
using testsupport::ScopedProgName;
using testsupport::TempDir;
using testsupport::WriteFileBytes;

// Makes the next `count` renames fail as across file systems.
class FailingRenames {
 public:
  explicit FailingRenames(int count) {
    renames_to_fail = count;
    rename_target_existed.clear();
  }
  ~FailingRenames() { renames_to_fail = 0; }
  FailingRenames(const FailingRenames &) = delete;
  FailingRenames &operator=(const FailingRenames &) = delete;
};

std::string Take(char *s) {
  std::string text = s == nullptr ? "<null>" : std::string(s);
  gen_free(s);
  return text;
}

int ModeOf(const std::string &name) {
  struct stat info;
  return stat(name.c_str(), &info) == 0 ? static_cast<int>(info.st_mode & 07777) : -1;
}

struct timespec MtimeOf(const std::string &name) {
  struct stat info {};
  stat(name.c_str(), &info);
  return info.st_mtim;
}

void SetTimes(const std::string &name, time_t seconds, long nanoseconds) {
  const struct timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
  ASSERT_EQ(utimensat(AT_FDCWD, name.c_str(), times, 0), 0);
}

// Runs body in a child process and returns its exit status (-1 when it
// didn't exit normally).
template <typename Body>
int InChild(Body body) {
  fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A stream over the given bytes, from a file in dir.
FILE *StreamOf(const TempDir &dir, const std::string &bytes) {
  const std::string name = dir.file("stream-input");
  WriteFileBytes(name, bytes);
  return fopen(name.c_str(), "rb");
}

// ---- Safe stream calls ----------------------------------------------------

TEST(SafeCalls, OpenFailureEndsWithTwoColons) {
  TempDir dir;
  ScopedProgName prog("prog");
  const std::string missing = dir.file("missing");
  Captured run = RunCapturing([&] { gen_safe_fopen(missing.c_str(), nullptr, "r"); });
  EXPECT_TRUE(run.exited);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            "prog: fatal: Unable to open " + missing + " for input: : No such file or directory\n");

  const std::string nowhere = dir.file("no/dir");
  run = RunCapturing([&] { gen_safe_fopen(nowhere.c_str(), "log", "rw"); });
  EXPECT_EQ(run.err, "prog: fatal: Unable to open log '" + nowhere +
                         "' for input: : No such file or directory\n");
  run = RunCapturing([&] { gen_safe_fopen(nowhere.c_str(), "log", "a"); });
  EXPECT_EQ(run.err, "prog: fatal: Unable to open log '" + nowhere +
                         "' for output: : No such file or directory\n");

  ASSERT_TRUE(WriteFileBytes(dir.file("there"), "x"));
  run = RunCapturing([&] {
    FILE *stream = gen_safe_fopen(dir.file("there").c_str(), "data", "r");
    EXPECT_NE(stream, nullptr);
    fclose(stream);
  });
  EXPECT_FALSE(run.exited);
  EXPECT_EQ(run.err, "");
}

TEST(SafeCalls, ReadWriteCloseAndSeekMessages) {
  TempDir dir;
  ScopedProgName prog("prog");
  const std::string name = dir.file("f");
  ASSERT_TRUE(WriteFileBytes(name, "abcd"));
  FILE *stream = fopen(name.c_str(), "r");
  ASSERT_NE(stream, nullptr);

  char buf[8];
  Captured run = RunCapturing([&] { EXPECT_EQ(gen_safe_fread("f", buf, 1, 8, stream), 4); });
  EXPECT_EQ(run.err, "");
  run = RunCapturing([&] {
    errno = 0;
    EXPECT_EQ(gen_safe_fread("f", buf, 1, 8, stream), 0);  // at end of file
    errno = 0;
    EXPECT_EQ(gen_safe_fread(nullptr, buf, 1, 8, stream), 0);
    EXPECT_EQ(gen_safe_fread("f", nullptr, 1, 8, stream), -1);
  });
  EXPECT_EQ(run.err,
            "prog: fatal: Error reading from 'f'\n"
            "prog: fatal: Error reading from file\n"
            "prog: error: internal: null buffer passed to gen_safe_fread\n");

  run = RunCapturing([&] { EXPECT_EQ(gen_safe_fwrite("f", "xy", 1, 2, stream), 0u); });
  EXPECT_EQ(run.err, "prog: fatal: Error writing to 'f': Bad file descriptor\n");
  run = RunCapturing([&] { EXPECT_EQ(gen_safe_fwrite(nullptr, "xy", 1, 2, stream), 0u); });
  EXPECT_EQ(run.err, "prog: fatal: Error writing to file: Bad file descriptor\n");

  run = RunCapturing([&] { gen_safe_fseek("f", stream, -5, SEEK_SET); });
  EXPECT_TRUE(run.exited);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "prog: fatal: seek failed to -5 in 'f': Invalid argument\n");
  run = RunCapturing([&] { gen_safe_fseek(nullptr, stream, -7, SEEK_SET); });
  EXPECT_EQ(run.err, "prog: fatal: seek failed to -7 in file: Invalid argument\n");
  run = RunCapturing([&] { EXPECT_EQ(gen_safe_fseek("f", stream, 1, SEEK_SET), 0); });
  EXPECT_FALSE(run.exited);

  run = RunCapturing([&] { EXPECT_EQ(gen_safe_fclose("f", "data", stream), 0); });
  EXPECT_EQ(run.err, "");
  run = RunCapturing([&] { EXPECT_NE(gen_safe_fclose("f", "data", nullptr), 0); });
  EXPECT_EQ(run.err, "prog: fatal: Error closing data 'f': : Bad file descriptor\n");
  run = RunCapturing([&] { gen_safe_fclose(nullptr, nullptr, nullptr); });
  EXPECT_EQ(run.err, "prog: fatal: Error closing file: : Bad file descriptor\n");
}

TEST(SafeCalls, ReadbytesReturnsItsBlockAlsoWhenShort) {
  TempDir dir;
  ScopedProgName prog("prog");
  FILE *stream = StreamOf(dir, "0123456789");
  ASSERT_NE(stream, nullptr);
  char *block = nullptr;
  Captured run = RunCapturing([&] {
    block = static_cast<char *>(gen_safe_readbytes("in", stream, nullptr, 4));
  });
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(std::string(block, 4), "0123");
  char rest[8] = {};
  run = RunCapturing([&] {
    errno = 0;
    EXPECT_EQ(gen_safe_readbytes("in", stream, rest, sizeof rest), rest);
  });
  EXPECT_EQ(run.err, "prog: fatal: Error reading from 'in'\n");
  EXPECT_EQ(std::string(rest, 6), "456789");
  gen_free(block);
  fclose(stream);
}

// ---- Readers ----------------------------------------------------------------

TEST(Getline, LineEndsAndTheLastLine) {
  TempDir dir;
  FILE *stream = StreamOf(dir, "a\r\nb\n\nx\ryz\nlast");
  char *buf = nullptr;
  int size = 0;
  std::vector<std::string> lines;
  while (const char *line = gen_getline(stream, &buf, &size)) lines.push_back(line);
  EXPECT_EQ(lines, (std::vector<std::string>{"a", "b", "", "x", "z", "last"}));
  EXPECT_EQ(gen_getline(stream, &buf, &size), nullptr);
  gen_free(buf);
  fclose(stream);
}

TEST(Getline, EmptyFirstLineAllocates) {
  TempDir dir;
  FILE *stream = StreamOf(dir, "\n");
  char *buf = nullptr;
  int size = 0;
  const char *line = gen_getline(stream, &buf, &size);
  ASSERT_NE(line, nullptr);
  EXPECT_STREQ(line, "");
  EXPECT_EQ(size, 250);
  EXPECT_EQ(gen_getline(stream, &buf, &size), nullptr);
  gen_free(buf);
  fclose(stream);
}

TEST(Getline, LongLinesComeBackWholeAndGrowBy250) {
  TempDir dir;
  struct Row {
    int length;
    int size;  // of a fresh buffer afterwards
  };
  // After a growth the room is counted as 250, so 499 characters need a
  // third step although 500 bytes would hold them.
  for (const Row row : {Row{249, 250}, Row{250, 500}, Row{251, 500}, Row{498, 500}, Row{499, 750}}) {
    const std::string text(static_cast<size_t>(row.length), 'q');
    FILE *stream = StreamOf(dir, text + "\n" + text);
    char *buf = nullptr;
    int size = 0;
    const char *line = gen_getline(stream, &buf, &size);
    ASSERT_NE(line, nullptr);
    EXPECT_EQ(line, text) << row.length;
    EXPECT_EQ(size, row.size) << row.length;
    line = gen_getline(stream, &buf, &size);  // the same buffer again
    ASSERT_NE(line, nullptr);
    EXPECT_EQ(line, text) << row.length;
    gen_free(buf);
    fclose(stream);
  }
}

TEST(Gettoken, SkipsWhiteSpaceAndGrows) {
  TempDir dir;
  const std::string long_token(600, 't');
  FILE *stream = StreamOf(dir, "\n\n  first second\tthird\r\n" + long_token);
  char *buf = nullptr;
  int size = 0;
  std::vector<std::string> tokens;
  while (const char *token = gen_gettoken(stream, &buf, &size)) tokens.push_back(token);
  EXPECT_EQ(tokens, (std::vector<std::string>{"first", "second", "third", long_token}));
  EXPECT_EQ(size, 750);
  gen_free(buf);
  fclose(stream);

  stream = StreamOf(dir, " \n\t ");
  buf = nullptr;
  size = 0;
  EXPECT_EQ(gen_gettoken(stream, &buf, &size), nullptr);
  EXPECT_EQ(buf, nullptr);
  fclose(stream);
}

TEST(Afgets, LinesOfAnyLength) {
  TempDir dir;
  // 2046 characters and the newline fill the first block exactly; one more
  // character makes it grow.
  for (size_t length : {2046u, 2047u, 2048u, 5000u}) {
    const std::string line = std::string(length, 'w') + "\n";
    FILE *stream = StreamOf(dir, line + "next");
    EXPECT_EQ(Take(gen_afgets(stream)), line) << length;
    EXPECT_EQ(Take(gen_afgets(stream)), "next");
    EXPECT_EQ(Take(gen_afgets(stream)), "");
    fclose(stream);
  }
  // A full block with no newline behind it: the end of the file ends the line.
  FILE *stream = StreamOf(dir, std::string(4095, 'e'));
  EXPECT_EQ(Take(gen_afgets(stream)), std::string(4095, 'e'));
  fclose(stream);
  EXPECT_EQ(gen_afgets(nullptr), nullptr);
}

TEST(WholeFiles, ReadersOfWholeFiles) {
  TempDir dir;
  std::string bytes(10000, 'b');
  bytes[17] = '\0';
  const std::string name = dir.file("whole");
  ASSERT_TRUE(WriteFileBytes(name, bytes));

  char *buf = nullptr;
  int size = -1;
  ASSERT_EQ(gen_readfile_into_buffer(name.c_str(), &buf, &size), 0);
  EXPECT_EQ(size, 10000);
  EXPECT_EQ(std::string(buf, 10000), bytes);
  EXPECT_EQ(buf[10000], '\0');
  gen_free(buf);
  char *untouched = reinterpret_cast<char *>(&size);
  EXPECT_EQ(gen_readfile_into_buffer(dir.file("missing").c_str(), &untouched, &size), -1);
  EXPECT_EQ(untouched, reinterpret_cast<char *>(&size));
  EXPECT_EQ(size, 10000);

  char small[20] = {};
  EXPECT_EQ(gen_getfile(name.c_str(), small, 10), 10);
  EXPECT_LT(gen_getfile(dir.file("missing").c_str(), small, 10), 0);

  EXPECT_EQ(gen_filesize(name.c_str()), 10000);
  EXPECT_EQ(gen_filesize(dir.file("missing").c_str()), -1);
}

TEST(WholeFiles, CountsLinesSingleLinesAndWords) {
  TempDir dir;
  struct Row {
    const char *bytes;
    int lines;
  };
  for (const Row row : {Row{"a\nb", 2}, Row{"a\nb\n", 2}, Row{"", 0}, Row{"\n\n", 2}}) {
    ASSERT_TRUE(WriteFileBytes(dir.file("lines"), row.bytes));
    EXPECT_EQ(gen_count_lines_in_file(dir.file("lines").c_str()), row.lines) << row.bytes;
  }
  EXPECT_EQ(gen_count_lines_in_file(dir.file("missing").c_str()), 0);

  ASSERT_EQ(mkdir(dir.file("sub").c_str(), 0777), 0);
  ASSERT_TRUE(WriteFileBytes(dir.file("sub/f"), "first line\r\nsecond\n"));
  const char *d = dir.path().c_str();
  EXPECT_EQ(Take(gen_getsinglelineasciifile(d, "sub", "f", "fb")), "first line");
  EXPECT_EQ(Take(gen_getsinglelineasciifile(d, nullptr, "sub/f", "fb")), "first line");
  EXPECT_EQ(Take(gen_getsinglelineasciifile(dir.file("sub/f").c_str(), nullptr, nullptr, "fb")),
            "first line");
  EXPECT_EQ(Take(gen_getsinglelineasciifile(d, "sub", "none", "fb")), "fb");
  ASSERT_TRUE(WriteFileBytes(dir.file("empty"), ""));
  EXPECT_EQ(Take(gen_getsinglelineasciifile(d, "empty", nullptr, nullptr)), "<null>");

  ASSERT_TRUE(WriteFileBytes(dir.file("words"), "  one two\n\tthree\v "));
  int count = -1;
  char **words = gen_get_words_from_file(dir.file("words").c_str(), &count);
  ASSERT_NE(words, nullptr);
  ASSERT_EQ(count, 3);
  EXPECT_STREQ(words[0], "one");
  EXPECT_STREQ(words[1], "two");
  EXPECT_STREQ(words[2], "three");
  EXPECT_EQ(words[3], nullptr);
  for (int i = 0; i < count; i++) gen_free(words[i]);
  gen_free(words);

  ASSERT_TRUE(WriteFileBytes(dir.file("blank"), " \n\t\n"));
  words = gen_get_words_from_file(dir.file("blank").c_str(), &count);
  ASSERT_NE(words, nullptr);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(words[0], nullptr);
  gen_free(words);
  count = 5;
  EXPECT_EQ(gen_get_words_from_file(dir.file("missing").c_str(), &count), nullptr);
  EXPECT_EQ(count, 0);

  EXPECT_EQ(gen_append_to_file(dir.file("log").c_str(), "%s=%d\n", "a", 1), 0);
  EXPECT_EQ(gen_append_to_file(dir.file("log").c_str(), "%s=%d\n", "b", 2), 0);
  EXPECT_EQ(ReadFileBytes(dir.file("log")), "a=1\nb=2\n");
  EXPECT_EQ(gen_append_to_file(dir.file("no/log").c_str(), "x"), -1);
}

// ---- Tests and modes ------------------------------------------------------------

TEST(FileTests, KindsLinksAndExecution) {
  TempDir dir;
  const std::string file = dir.file("f");
  ASSERT_TRUE(WriteFileBytes(file, "x"));
  ASSERT_EQ(mkdir(dir.file("empty").c_str(), 0777), 0);
  EXPECT_TRUE(gen_isdir(dir.path().c_str()));
  EXPECT_FALSE(gen_isdir(file.c_str()));
  EXPECT_FALSE(gen_isdir(dir.file("missing").c_str()));
  EXPECT_TRUE(gen_isemptydir(dir.file("empty").c_str()));
  EXPECT_FALSE(gen_isemptydir(dir.path().c_str()));
  EXPECT_FALSE(gen_isemptydir(dir.file("missing").c_str()));
  EXPECT_TRUE(gen_isvcdir("CVS"));
  EXPECT_TRUE(gen_isvcdir("ovc.log"));
  EXPECT_FALSE(gen_isvcdir("a/CVS"));
  EXPECT_FALSE(gen_isvcdir(nullptr));

  ASSERT_EQ(symlink(file.c_str(), dir.file("link").c_str()), 0);
  EXPECT_EQ(gen_islink(dir.file("link").c_str()), 1);
  EXPECT_EQ(gen_islink(file.c_str()), 0);
  ASSERT_EQ(link(file.c_str(), dir.file("hard").c_str()), 0);
  EXPECT_EQ(gen_islink(file.c_str()), 2);
  EXPECT_EQ(gen_islink(dir.file("missing").c_str()), 0);

  ASSERT_EQ(chmod(file.c_str(), 0644), 0);
  EXPECT_EQ(gen_canexec(file.c_str()), 0);
  ASSERT_EQ(chmod(file.c_str(), 0755), 0);
  EXPECT_EQ(gen_canexec(file.c_str()), 1);
  EXPECT_EQ(gen_canexec(dir.path().c_str()), 0);
  EXPECT_EQ(gen_canexec(dir.file("missing").c_str()), -1);
  EXPECT_EQ(gen_canexec(""), -1);
  EXPECT_EQ(gen_canexec(nullptr), -1);
}

TEST(FileTests, NewerthanComparesSecondsThenNanoseconds) {
  TempDir dir;
  const std::string a = dir.file("a");
  const std::string b = dir.file("b");
  ASSERT_TRUE(WriteFileBytes(a, ""));
  ASSERT_TRUE(WriteFileBytes(b, ""));
  SetTimes(a, 2000, 0);
  SetTimes(b, 1000, 999999999);
  EXPECT_EQ(gen_newerthan(a.c_str(), b.c_str()), 1);
  EXPECT_EQ(gen_newerthan(b.c_str(), a.c_str()), 0);
  SetTimes(a, 1000, 500);
  SetTimes(b, 1000, 400);
  EXPECT_EQ(gen_newerthan(a.c_str(), b.c_str()), 1);
  EXPECT_EQ(gen_newerthan(b.c_str(), a.c_str()), 0);
  EXPECT_EQ(gen_newerthan(a.c_str(), a.c_str()), 0);
  EXPECT_EQ(gen_newerthan(dir.file("missing").c_str(), a.c_str()), -1);
  EXPECT_EQ(gen_newerthan(a.c_str(), dir.file("missing").c_str()), 1);
}

TEST(FileTests, ReadlinkFollowsChains) {
  TempDir dir;
  ASSERT_TRUE(WriteFileBytes(dir.file("f"), ""));
  ASSERT_EQ(symlink(dir.file("f").c_str(), dir.file("l2").c_str()), 0);
  ASSERT_EQ(symlink("l2", dir.file("l1").c_str()), 0);
  ASSERT_EQ(symlink("l3", dir.file("l3").c_str()), 0);  // a loop
  char out[1100];
  errno = EDOM;
  EXPECT_EQ(gen_readlink(dir.file("l1").c_str(), out, sizeof out), 1);
  EXPECT_EQ(out, dir.file("f"));
  EXPECT_EQ(errno, EDOM);
  EXPECT_EQ(gen_readlink(dir.file("l3").c_str(), out, sizeof out), 1);
  EXPECT_EQ(out, dir.file("l3"));
  strcpy(out, "untouched");
  EXPECT_EQ(gen_readlink(dir.file("f").c_str(), out, sizeof out), -1);
  EXPECT_EQ(gen_readlink(dir.file("missing").c_str(), out, sizeof out), -1);
  EXPECT_STREQ(out, "untouched");
}

TEST(Modes, FamilyStartsFromTheArgumentOrTheFile) {
  TempDir dir;
  const std::string f = dir.file("f");
  const char *name = f.c_str();
  ASSERT_TRUE(WriteFileBytes(f, ""));
  ASSERT_EQ(chmod(name, 0644), 0);

  int mode = 0;
  EXPECT_EQ(gen_getmode(name, &mode), S_IFREG | 0644);
  EXPECT_EQ(mode, S_IFREG | 0644);
  mode = 0600;
  EXPECT_EQ(gen_getmode(name, &mode), S_IFREG | 0644);
  EXPECT_EQ(mode, 0600);
  mode = 0;
  EXPECT_EQ(gen_getmode(dir.file("missing").c_str(), &mode), 0);
  EXPECT_EQ(mode, 0664);
  EXPECT_EQ(gen_getmode(name, nullptr), S_IFREG | 0644);

  EXPECT_EQ(gen_chmod_minusw(name, 0), S_IFREG | 0644);
  EXPECT_EQ(ModeOf(f), 0444);
  EXPECT_EQ(gen_chmod_plusw(name, 0), S_IFREG | 0444);
  EXPECT_EQ(ModeOf(f), 0664);
  EXPECT_EQ(gen_chmod_plusx(name), S_IFREG | 0664);
  EXPECT_EQ(ModeOf(f), 0774);
  gen_chmod_plusrw(name, 0400);
  EXPECT_EQ(ModeOf(f), 0660);
  ASSERT_EQ(chmod(name, 0777), 0);
  gen_chmod_pluswu(name, 0);
  EXPECT_EQ(ModeOf(f), 0755);
  gen_chmod_pluswu(name, 0466);
  EXPECT_EQ(ModeOf(f), 0644);
  gen_chmod_minusw(name, 0775);
  EXPECT_EQ(ModeOf(f), 0555);

  ASSERT_TRUE(WriteFileBytes(dir.file("other"), ""));
  ASSERT_EQ(chmod(dir.file("other").c_str(), 0604), 0);
  EXPECT_EQ(gen_chmod_sameas(name, dir.file("other").c_str()), S_IFREG | 0604);
  EXPECT_EQ(ModeOf(f), 0604);
  EXPECT_EQ(gen_chmod_sameas(name, dir.file("missing").c_str()), 0);
  EXPECT_EQ(ModeOf(f), 0604);
}

// ---- Creation, removal, copies and moves ------------------------------------------

TEST(CreateRemove, DirectoriesAndFiles) {
  TempDir dir;
  ASSERT_TRUE(WriteFileBytes(dir.file("file"), ""));
  EXPECT_EQ(gen_createdir(dir.path().c_str(), 0777), 0);
  EXPECT_EQ(gen_createdir(dir.file("file").c_str(), 0777), -1);
  EXPECT_EQ(gen_createdir(dir.file("new").c_str(), 0777), 0);
  EXPECT_TRUE(gen_isdir(dir.file("new").c_str()));
  EXPECT_EQ(gen_createdir_recursive(dir.file("a/b/c/").c_str(), 0777), 0);
  EXPECT_TRUE(gen_isdir(dir.file("a/b/c").c_str()));
  EXPECT_EQ(gen_createdir_recursive(dir.file("file/x").c_str(), 0777), -1);

  EXPECT_EQ(gen_removefile(dir.file("new").c_str()), -1);
  EXPECT_TRUE(gen_isdir(dir.file("new").c_str()));
  EXPECT_EQ(gen_removefile(dir.file("file").c_str()), 0);
  EXPECT_FALSE(FileExists(dir.file("file")));
}

TEST(CreateRemove, RecursiveRemovalLeavesLinkedTreesAlone) {
  TempDir dir;
  TempDir outside;
  ASSERT_TRUE(WriteFileBytes(outside.file("keep"), "k"));
  const std::string top = dir.file("top");
  ASSERT_EQ(gen_createdir_recursive((top + "/x/y").c_str(), 0777), 0);
  ASSERT_TRUE(WriteFileBytes(top + "/f", ""));
  ASSERT_TRUE(WriteFileBytes(top + "/x/y/g", ""));
  ASSERT_EQ(symlink(outside.path().c_str(), (top + "/x/out").c_str()), 0);

  EXPECT_EQ(gen_removestar_recursive(top.c_str()), 0);
  EXPECT_TRUE(gen_isemptydir(top.c_str()));
  ASSERT_EQ(mkdir((top + "/z").c_str(), 0777), 0);
  EXPECT_EQ(gen_removedir_recursive(top.c_str()), 0);
  EXPECT_FALSE(FileExists(top));
  EXPECT_EQ(ReadFileBytes(outside.file("keep")), "k");
  EXPECT_EQ(gen_removedir_recursive(top.c_str()), -1);
}

TEST(CopyMove, CopyKeepsContentsAndMode) {
  TempDir dir;
  std::string bytes;
  for (int i = 0; i < 3000; i++) bytes += static_cast<char>(i * 7);
  ASSERT_TRUE(WriteFileBytes(dir.file("from"), bytes));
  ASSERT_EQ(chmod(dir.file("from").c_str(), 0751), 0);
  EXPECT_EQ(gen_copyfile(dir.file("from").c_str(), dir.file("to").c_str()), 0);
  EXPECT_EQ(ReadFileBytes(dir.file("to")), bytes);
  EXPECT_EQ(ModeOf(dir.file("to")), 0751);

  EXPECT_EQ(gen_copyfile(dir.file("missing").c_str(), dir.file("to2").c_str()), -1);
  EXPECT_FALSE(FileExists(dir.file("to2")));
  EXPECT_EQ(gen_copyfile(dir.file("from").c_str(), dir.file("no/to").c_str()), -1);
}

TEST(CopyMove, FailedCopyRemovesOnlyThePartialTarget) {
  TempDir dir;
  const std::string from = dir.file("from");
  const std::string to = dir.file("to");
  ASSERT_TRUE(WriteFileBytes(from, std::string(4000, 'c')));
  // In a child whose files may not grow past 1500 bytes the second block is
  // written short.
  const int status = InChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    const struct rlimit limit = {1500, 1500};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 10;
    if (gen_copyfile(from.c_str(), to.c_str()) != -1) return 11;
    if (access(to.c_str(), F_OK) == 0) return 12;
    // A move whose rename fails and whose copy fails keeps its source.
    renames_to_fail = 2;
    if (gen_movefile(from.c_str(), to.c_str()) != -1) return 13;
    if (access(to.c_str(), F_OK) == 0) return 14;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(ReadFileBytes(from), std::string(4000, 'c'));
}

TEST(CopyMove, RenameAndMove) {
  TempDir dir;
  const std::string a = dir.file("a");
  const std::string b = dir.file("b");
  ASSERT_TRUE(WriteFileBytes(a, "alpha"));
  ASSERT_TRUE(WriteFileBytes(b, "beta"));
  {
    // The first rename can't replace b: b is removed and the rename retried.
    FailingRenames fail(1);
    EXPECT_EQ(gen_renamefile(a.c_str(), b.c_str()), 0);
    EXPECT_EQ(rename_target_existed, (std::vector<bool>{true, false}));
  }
  EXPECT_EQ(ReadFileBytes(b), "alpha");
  EXPECT_FALSE(FileExists(a));
  ASSERT_EQ(mkdir(dir.file("d").c_str(), 0777), 0);
  EXPECT_EQ(gen_renamefile(b.c_str(), dir.file("d").c_str()), -1);
  EXPECT_EQ(gen_renamefile(dir.file("d").c_str(), a.c_str()), -1);

  EXPECT_EQ(gen_movefile(b.c_str(), a.c_str()), 0);
  EXPECT_EQ(ReadFileBytes(a), "alpha");
  EXPECT_FALSE(FileExists(b));
  {
    // As across file systems: copied with its mode, then the source goes.
    FailingRenames fail(2);
    ASSERT_EQ(chmod(a.c_str(), 0640), 0);
    EXPECT_EQ(gen_movefile(a.c_str(), b.c_str()), 0);
  }
  EXPECT_EQ(ReadFileBytes(b), "alpha");
  EXPECT_EQ(ModeOf(b), 0640);
  EXPECT_FALSE(FileExists(a));
  EXPECT_EQ(gen_movefile(a.c_str(), b.c_str()), -1);
  EXPECT_EQ(ReadFileBytes(b), "alpha");
}

TEST(CopyMove, CatfileCopiesToAStream) {
  TempDir dir;
  const std::string bytes(2500, 'k');
  ASSERT_TRUE(WriteFileBytes(dir.file("in"), bytes));
  FILE *out = fopen(dir.file("out").c_str(), "w");
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(gen_catfile(dir.file("in").c_str(), out), 0);
  EXPECT_EQ(gen_cattextfile(dir.file("in").c_str(), out), 0);
  EXPECT_EQ(gen_catfile(dir.file("missing").c_str(), out), -1);
  fclose(out);
  EXPECT_EQ(ReadFileBytes(dir.file("out")), bytes + bytes);
}

// ---- Times --------------------------------------------------------------------------

TEST(Times, TouchfileOnMissingEmptyAndFullFiles) {
  TempDir dir;
  const std::string missing = dir.file("missing");
  EXPECT_EQ(gen_touchfile(missing.c_str()), 0);
  EXPECT_TRUE(FileExists(missing));
  EXPECT_EQ(ReadFileBytes(missing), "");

  const std::string empty = dir.file("empty");
  ASSERT_TRUE(WriteFileBytes(empty, ""));
  SetTimes(empty, 1000, 0);
  EXPECT_EQ(gen_touchfile(empty.c_str()), 0);
  EXPECT_EQ(gen_filesize(empty.c_str()), 0);
  EXPECT_GT(MtimeOf(empty).tv_sec, 1000);

  const std::string full = dir.file("full");
  ASSERT_TRUE(WriteFileBytes(full, "contents"));
  SetTimes(full, 1000, 0);
  EXPECT_EQ(gen_touchfile(full.c_str()), 0);
  EXPECT_EQ(ReadFileBytes(full), "contents");
  EXPECT_GT(MtimeOf(full).tv_sec, 1000);

  EXPECT_EQ(gen_touchfile(dir.file("no/file").c_str()), -1);
}

TEST(Times, SametimeasRoundsUpAndKeepsErrno) {
  TempDir dir;
  const std::string from = dir.file("from");
  const std::string to = dir.file("to");
  ASSERT_TRUE(WriteFileBytes(from, ""));
  ASSERT_TRUE(WriteFileBytes(to, ""));
  SetTimes(from, 5000, 1);
  errno = EDOM;
  EXPECT_EQ(gen_sametimeas(from.c_str(), to.c_str()), 0);
  EXPECT_EQ(errno, EDOM);
  EXPECT_EQ(MtimeOf(to).tv_sec, 5001);
  EXPECT_EQ(MtimeOf(to).tv_nsec, 0);
  SetTimes(from, 6000, 0);
  EXPECT_EQ(gen_sametimeas(from.c_str(), to.c_str()), 0);
  EXPECT_EQ(MtimeOf(to).tv_sec, 6000);
  EXPECT_EQ(gen_sametimeas(dir.file("missing").c_str(), to.c_str()), -1);
  EXPECT_EQ(errno, EDOM);
  EXPECT_EQ(gen_utime(to.c_str(), 7, 8), 0);
  EXPECT_EQ(MtimeOf(to).tv_sec, 8);
}

// ---- Directory walks -----------------------------------------------------------------

class DirWalk : public testing::Test {
 protected:
  void SetUp() override {
    for (const char *file : {"a.c", "b.h", "noext"}) ASSERT_TRUE(WriteFileBytes(dir_.file(file), ""));
    for (const char *sub : {"sub", "CVS", "d.x"}) ASSERT_EQ(mkdir(dir_.file(sub).c_str(), 0777), 0);
  }

  // Names the walk returns after `restrict` has set it up, sorted.
  template <typename Restrict>
  std::set<std::string> Walk(Restrict restrict) {
    GenDir walk;
    EXPECT_TRUE(gen_dir_open(&walk, dir_.path().c_str()));
    restrict(&walk);
    std::set<std::string> names;
    while (const char *name = gen_dir_next_entry(&walk)) {
      names.insert(name);
      EXPECT_EQ(walk.fullname, name[0] == '.' ? std::string(walk.fullname) : dir_.file(name));
      EXPECT_EQ(walk.isdir != 0, dirs_.count(name) != 0 || name[0] == '.') << name;
    }
    gen_dir_close(&walk);
    EXPECT_EQ(walk.dir, nullptr);
    EXPECT_EQ(walk.path, nullptr);
    return names;
  }

  TempDir dir_;
  std::set<std::string> dirs_{"sub", "CVS", "d.x"};
};

TEST_F(DirWalk, EachRestriction) {
  using Names = std::set<std::string>;
  EXPECT_EQ(Walk([](GenDir *) {}), (Names{"a.c", "b.h", "noext", "sub", "CVS", "d.x"}));
  EXPECT_EQ(Walk([](GenDir *w) { gen_dir_restrict_dirs(w, 0, 0, 0); }),
            (Names{".", "..", "a.c", "b.h", "noext", "sub", "CVS", "d.x"}));
  EXPECT_EQ(Walk([](GenDir *w) { gen_dir_restrict_files(w, 1, nullptr); }),
            (Names{"sub", "CVS", "d.x"}));
  EXPECT_EQ(Walk([](GenDir *w) { gen_dir_restrict_dirs(w, 1, 1, 0); }),
            (Names{"a.c", "b.h", "noext"}));
  EXPECT_EQ(Walk([](GenDir *w) { gen_dir_restrict_dirs(w, 0, 1, 1); }),
            (Names{"a.c", "b.h", "noext", "sub", "d.x"}));
  // A suffix hides every name without it, directories included.
  EXPECT_EQ(Walk([](GenDir *w) { gen_dir_restrict_files(w, 0, "c"); }), (Names{"a.c"}));
  EXPECT_EQ(Walk([](GenDir *w) { gen_dir_restrict_files(w, 0, ".x"); }), (Names{"d.x"}));
  EXPECT_EQ(Walk([](GenDir *w) { gen_dir_restrict_files(w, 1, ".x"); }), (Names{"d.x"}));
}

TEST_F(DirWalk, OptimizedWalkClassesByName) {
  GenDir walk;
  ASSERT_TRUE(gen_dir_open(&walk, dir_.path().c_str()));
  gen_dir_optimize_search(&walk, 1);
  gen_dir_restrict_files(&walk, 1, nullptr);
  std::set<std::string> names;
  while (const char *name = gen_dir_next_entry(&walk)) {
    names.insert(name);
    EXPECT_EQ(walk.st.st_ino, 0u) << name;  // no stat was made
  }
  gen_dir_close(&walk);
  // Without a look at the disk "noext" is a directory and "d.x" a file.
  EXPECT_EQ(names, (std::set<std::string>{"noext", "sub", "CVS"}));
  EXPECT_FALSE(gen_dir_open(&walk, dir_.file("missing").c_str()));
  EXPECT_EQ(gen_dir_next_entry(&walk), nullptr);
  gen_dir_close(&walk);
}

TEST(ReadDirectory, CountsAndNames) {
  TempDir dir;
  for (int i = 0; i < 40; i++) ASSERT_TRUE(WriteFileBytes(dir.file("f" + std::to_string(i)), ""));
  EXPECT_EQ(gen_read_directory(dir.path().c_str(), nullptr), 42);
  char **names = nullptr;
  ASSERT_EQ(gen_read_directory(dir.path().c_str(), &names), 42);
  std::set<std::string> seen;
  int i = 0;
  for (; names[i] != nullptr; i++) {
    seen.insert(names[i]);
    gen_free(names[i]);
  }
  gen_free(names);
  EXPECT_EQ(i, 42);
  EXPECT_TRUE(seen.count(".") && seen.count("..") && seen.count("f39"));
  names = reinterpret_cast<char **>(&i);
  EXPECT_EQ(gen_read_directory(dir.file("missing").c_str(), &names), 0);
  EXPECT_EQ(names, nullptr);
}

TEST(FindFile, DepthFirstAndLoopSafe) {
  TempDir dir;
  ASSERT_EQ(gen_createdir_recursive(dir.file("x/y").c_str(), 0777), 0);
  ASSERT_EQ(mkdir(dir.file("x/target").c_str(), 0777), 0);  // a directory doesn't count
  ASSERT_TRUE(WriteFileBytes(dir.file("x/y/target"), ""));
  ASSERT_EQ(symlink(dir.path().c_str(), dir.file("x/loop").c_str()), 0);
  const char *top = dir.path().c_str();
  EXPECT_EQ(Take(gen_find_file(top, "target", F_OK, 0)), "<null>");
  EXPECT_EQ(Take(gen_find_file(top, "target", F_OK, 1)), dir.file("x/y/target"));
  EXPECT_EQ(Take(gen_find_file(top, "absent", F_OK, 1)), "<null>");
  EXPECT_EQ(Take(gen_find_file(top, "y/target", F_OK, 1)), "<null>");
  EXPECT_EQ(Take(gen_find_file(dir.file("x/y/target").c_str(), "target", F_OK, 1)), "<null>");
  EXPECT_EQ(Take(gen_find_file(dir.file("x/y").c_str(), "target", R_OK, 0)),
            dir.file("x/y/target"));
}

// ---- Identity, comparison and checksum ----------------------------------------------

TEST(Identity, FileIds) {
  TempDir dir;
  ASSERT_TRUE(WriteFileBytes(dir.file("f"), ""));
  ASSERT_TRUE(WriteFileBytes(dir.file("other"), ""));
  ASSERT_EQ(link(dir.file("f").c_str(), dir.file("g").c_str()), 0);
  fileid *kept = gen_duplicate_fileid(gen_fileid_from_filename(dir.file("f").c_str()));
  ASSERT_NE(kept, nullptr);
  EXPECT_TRUE(gen_compare_fileids(kept, gen_fileid_from_filename(dir.file("g").c_str())));
  EXPECT_FALSE(gen_compare_fileids(kept, gen_fileid_from_filename(dir.file("other").c_str())));
  EXPECT_EQ(gen_fileid_from_filename(dir.file("missing").c_str()), nullptr);
  EXPECT_FALSE(gen_compare_fileids(kept, nullptr));
  EXPECT_EQ(gen_duplicate_fileid(nullptr), nullptr);
  gen_free(kept);
}

TEST(Compare, BinaryDiff) {
  TempDir dir;
  ScopedProgName prog("prog");
  std::string bytes(3000, 'z');
  ASSERT_TRUE(WriteFileBytes(dir.file("a"), bytes));
  ASSERT_TRUE(WriteFileBytes(dir.file("same"), bytes));
  bytes[2500] = 'y';
  ASSERT_TRUE(WriteFileBytes(dir.file("late"), bytes));
  ASSERT_TRUE(WriteFileBytes(dir.file("short"), bytes.substr(1)));
  const std::string a = dir.file("a");
  EXPECT_EQ(gen_binarydifffiles(a.c_str(), dir.file("same").c_str()), 0);
  EXPECT_EQ(gen_binarydifffiles(a.c_str(), dir.file("late").c_str()), 1);
  EXPECT_EQ(gen_binarydifffiles(a.c_str(), dir.file("short").c_str()), 1);
  const std::string missing = dir.file("missing");
  Captured run = RunCapturing([&] {
    EXPECT_EQ(gen_binarydifffiles(a.c_str(), missing.c_str()), -1);
    EXPECT_EQ(gen_binarydifffiles(missing.c_str(), a.c_str()), -1);
  });
  EXPECT_EQ(run.err, "prog: error: Could not open file: " + missing + "\n" +
                         "prog: error: Could not open file: " + missing + "\n");
}

TEST(Compare, Checksum) {
  uint32_t sum = 0;
  const char *text = "abc";
  EXPECT_EQ(gen_cksum(text, 3, &sum), text + 3);
  EXPECT_EQ(sum, 0x8065FD10u);
  uint32_t chained = 0;
  gen_cksum("ab", 2, &chained);
  gen_cksum("c", 1, &chained);
  EXPECT_EQ(chained, 0x8065FD10u);
  uint32_t untouched = 0x1234;
  EXPECT_EQ(gen_cksum(text, 0, &untouched), text);
  EXPECT_EQ(untouched, 0x1234u);
}

// ---- Finding programs ----------------------------------------------------------------

class FindProgram : public testing::Test {
 protected:
  void SetUp() override {
    if (const char *path = getenv("PATH")) saved_path_ = path;
    ASSERT_EQ(mkdir(dir_.file("bin").c_str(), 0777), 0);
    ASSERT_EQ(mkdir(dir_.file("plain").c_str(), 0777), 0);
    ASSERT_TRUE(WriteFileBytes(dir_.file("bin/tool"), "#!/bin/sh\n"));
    ASSERT_EQ(chmod(dir_.file("bin/tool").c_str(), 0755), 0);
    ASSERT_TRUE(WriteFileBytes(dir_.file("plain/tool"), ""));
    ASSERT_EQ(chmod(dir_.file("plain/tool").c_str(), 0644), 0);
    ASSERT_EQ(symlink("tool", dir_.file("bin/alias").c_str()), 0);
    char *real = realpath(dir_.path().c_str(), nullptr);
    real_ = real;
    free(real);
  }
  void TearDown() override {
    setenv("PATH", saved_path_.c_str(), 1);
    gen_free(gen_progdir);
    gen_progdir = nullptr;
  }

  TempDir dir_;
  std::string real_;
  std::string saved_path_;
};

TEST_F(FindProgram, AlongPathAndByName) {
  setenv("PATH", (dir_.file("none") + ":" + dir_.file("plain") + ":" + dir_.file("bin")).c_str(), 1);
  EXPECT_EQ(Take(gen_findexec("tool", false, false)), dir_.file("bin/tool"));
  EXPECT_EQ(Take(gen_findexec("alias", false, false)), dir_.file("bin/alias"));
  EXPECT_EQ(Take(gen_findexec("alias", false, true)), real_ + "/bin/tool");
  EXPECT_EQ(Take(gen_findexecdir("tool", false, false)), dir_.file("bin"));
  EXPECT_EQ(Take(gen_findexec("absent", false, false)), "<null>");
  // A name with a directory part is the only candidate.
  EXPECT_EQ(Take(gen_findexec((dir_.file("bin") + "/./tool").c_str(), false, false)),
            dir_.file("bin/tool"));
  EXPECT_EQ(Take(gen_findexec(dir_.file("plain/tool").c_str(), false, false)), "<null>");

  unsetenv("PATH");
  EXPECT_EQ(Take(gen_findexec("tool", false, false)), "<null>");
  gen_changeprogdir(dir_.file("bin/../bin").c_str());
  EXPECT_STREQ(gen_getprogdir(), (real_ + "/bin").c_str());
  EXPECT_EQ(Take(gen_findexec("tool", true, false)), real_ + "/bin/tool");
  EXPECT_EQ(Take(gen_findexec("tool", false, false)), "<null>");
}

TEST_F(FindProgram, ProgramDirectoryAndDevelopmentTree) {
  // gen_getprogdir finds the directory of gen_execname on PATH.
  setenv("PATH", dir_.file("bin").c_str(), 1);
  char *saved_exec = gen_execname;
  gen_execname = const_cast<char *>("tool");
  EXPECT_STREQ(gen_getprogdir(), (real_ + "/bin").c_str());
  gen_execname = saved_exec;

  for (const char *sub : {"bin/CVS", "src", "src/target", "src/configuration"})
    ASSERT_EQ(mkdir(dir_.file(sub).c_str(), 0777), 0);
  EXPECT_TRUE(gen_is_qo_dev_program());
  EXPECT_FALSE(gen_is_qo_win32_dev_program());
}

}  // namespace
