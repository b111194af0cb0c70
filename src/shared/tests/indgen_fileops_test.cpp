// Tests of the file operations: the safe calls' messages, readers at their
// buffer boundaries, file tests, copies and moves failing half way (rename is
// replaced here), times, removal, comparison, checksum, walks and searches.
#include "indgen_fileops.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <tuple>

#include "gen_capture.h"
#include "indgeninit.h"
#include "temp_dir.h"

namespace {
int renames_to_fail = 0;  // renames still to fail with EXDEV
}  // namespace

extern "C" int rename(const char *old_name, const char *new_name) noexcept {
  if (renames_to_fail > 0 && renames_to_fail--) return errno = EXDEV, -1;
  return renameat(AT_FDCWD, old_name, AT_FDCWD, new_name);
}

namespace {

using testsupport::ReadFileBytes;

std::string Take(char *s) {
  std::string text = s == nullptr ? "<null>" : s;
  return gen_free(s), text;
}

class FileOpsTest : public ::testing::Test {
 protected:
  std::string F(const std::string &name) const { return dir_.file(name); }
  void Put(const std::string &name, const std::string &bytes) {
    ASSERT_TRUE(testsupport::WriteFileBytes(F(name), bytes)) << name;
  }
  // Makes each name of a list: "sub/" a directory, "f" an empty file.
  void Make(const std::string &names) {
    std::istringstream list(names);
    for (std::string name; list >> name;)
      ASSERT_TRUE(name.back() == '/' ? mkdir(F(name).c_str(), 0777) == 0
                                     : testsupport::WriteFileBytes(F(name), ""))
          << name;
  }
  FILE *Stream(const std::string &bytes) { return Put("in", bytes), fopen(F("in").c_str(), "rb"); }
  int ModeOf(const std::string &name) {
    struct stat info;
    return stat(F(name).c_str(), &info) == 0 ? static_cast<int>(info.st_mode & 07777) : -1;
  }
  void SetTimes(const std::string &name, time_t seconds, long nanoseconds) {
    const struct timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(utimensat(AT_FDCWD, F(name).c_str(), times, 0), 0);
  }

  testsupport::TempDir dir_;
  testsupport::ScopedProgName prog_{"p"};
};

TEST_F(FileOpsTest, SafeCallsPrintEveryMessageByteForByte) {
  const std::string nowhere = F("no/dir");
  FILE *in = Stream("abcd");
  char buf[8];
  // What each call prints, behind "exit N: " when it exits.
  const std::pair<std::function<void()>, std::string> rows[] = {
      {[&] { gen_safe_fopen(nowhere.c_str(), nullptr, "r"); },
       "exit 1: p: fatal: Unable to open " + nowhere + " for input: : No such file or directory\n"},
      {[&] { gen_safe_fopen(nowhere.c_str(), "log", "a"); },
       "exit 1: p: fatal: Unable to open log '" + nowhere + "' for output: : No such file or directory\n"},
      {[&] { EXPECT_EQ(gen_safe_fread("f", buf, 1, 8, in), 4); }, ""},  // short but not 0
      {[&] { gen_safe_fread(nullptr, buf, 1, 8, in); }, "p: fatal: Error reading from file\n"},
      {[&] { EXPECT_EQ(gen_safe_fread("f", nullptr, 1, 8, in), -1); },
       "p: error: internal: null buffer passed to gen_safe_fread\n"},
      {[&] { EXPECT_EQ(gen_safe_readbytes("f", in, buf, 3), buf); }, "p: fatal: Error reading from 'f'\n"},
      {[&] { EXPECT_EQ(gen_safe_fwrite("f", "xy", 1, 2, in), 0u); },
       "p: fatal: Error writing to 'f': Bad file descriptor\n"},
      {[&] { gen_safe_fseek("f", in, -5, SEEK_SET); },
       "exit 1: p: fatal: seek failed to -5 in 'f': Invalid argument\n"},
      {[&] { gen_safe_fseek(nullptr, in, -7, SEEK_SET); },
       "exit 1: p: fatal: seek failed to -7 in file: Invalid argument\n"},
      {[&] { gen_safe_fclose("f", "data", nullptr); },
       "p: fatal: Error closing data 'f': : Bad file descriptor\n"},
      {[&] { fclose(in), gen_safe_fclose(nullptr, nullptr, nullptr); },
       "p: fatal: Error closing file: : Bad file descriptor\n"},
  };
  for (const auto &row : rows) {
    const testsupport::Captured run = testsupport::RunCapturing([&] { errno = 0, row.first(); });
    EXPECT_EQ((run.exited ? "exit " + std::to_string(run.status) + ": " : "") + run.err, row.second);
  }
}

TEST_F(FileOpsTest, ReadersAtTheirBufferBoundaries) {
  char *buf = nullptr;
  int size = 0;
  std::string got;
  FILE *in = Stream("a\r\nb\n\nx\ryz\nlast");
  while (const char *line = gen_getline(in, &buf, &size)) got += std::string(line) + "|";
  EXPECT_EQ(got, "a|b||x|z|last|");  // CR LF, LF and CR end a line; CR drops one more
  fclose(in), gen_free(buf);
  // After a growth the room counts as 250: 499 characters need a third step.
  for (const auto &[length, line_size, token_size] :
       {std::tuple{0, 250, 0}, {249, 250, 250}, {250, 500, 500}, {498, 500, 500}, {499, 750, 500}}) {
    const std::string text(static_cast<size_t>(length), 'q');
    char *line = nullptr, *token = nullptr;
    int line_room = 0, token_room = 0;
    in = Stream(text + "\n" + text + "\n");
    gen_getline(in, &line, &line_room);
    EXPECT_EQ(std::string(gen_getline(in, &line, &line_room)), text);  // the buffer again
    rewind(in);
    EXPECT_EQ(gen_gettoken(in, &token, &token_room) != nullptr, length > 0);
    EXPECT_EQ(std::pair(line_room, token_room), std::pair(line_size, token_size)) << length;
    gen_free(line), gen_free(token), fclose(in);
  }
  // 2046 characters and the newline fill the first block of gen_afgets exactly.
  for (const std::string &line : {std::string(2046, 'w') + "\n", std::string(4095, 'e')}) {
    in = Stream(line + (line.back() == '\n' ? "next" : ""));
    EXPECT_EQ(Take(gen_afgets(in)), line);
    EXPECT_EQ(Take(gen_afgets(in)), line.back() == '\n' ? "next" : "");
    fclose(in);
  }
  std::string bytes(10000, 'b');
  bytes[17] = '\0';
  Put("whole", bytes);
  ASSERT_EQ(gen_readfile_into_buffer(F("whole").c_str(), &buf, &size), 0);
  EXPECT_EQ(std::string(buf, 10001) + std::to_string(size), bytes + '\0' + "10000");
  gen_free(buf);
  EXPECT_EQ(gen_filesize(F("whole").c_str()), 10000);
  EXPECT_EQ(gen_filesize(F("none").c_str()), -1);
  for (const auto &[text, lines] : {std::pair{"a\nb", 2}, {"a\nb\n", 2}, {"", 0}}) {
    Put("lines", text);
    EXPECT_EQ(gen_count_lines_in_file(F("lines").c_str()), lines) << text;
  }
}

TEST_F(FileOpsTest, KindsLinksExecutionAndTimes) {
  Put("f", "x"), Make("a empty/");
  ASSERT_EQ(symlink(F("f").c_str(), F("link").c_str()) + link(F("a").c_str(), F("hard").c_str()), 0);
  ASSERT_EQ(chmod(F("a").c_str(), 0755), 0);
  const std::string all = dir_.path(), f = F("f"), a = F("a"), none = F("none"), empty = F("empty");
  using Row = std::tuple<int (*)(const char *), std::string, int>;
  for (const auto &[test, name, expected] :
       {Row{gen_isemptydir, empty, 1}, {gen_isemptydir, all, 0}, {gen_isemptydir, none, 0},
        {gen_isvcdir, "CVS", 1}, {gen_isvcdir, "ovc.log", 1}, {gen_isvcdir, "a/CVS", 0}, {gen_islink, f, 0},
        {gen_islink, F("link"), 1}, {gen_islink, a, 2}, {gen_islink, none, 0}, {gen_canexec, f, 0},
        {gen_canexec, a, 1}, {gen_canexec, all, 0}, {gen_canexec, none, -1}, {gen_canexec, "", -1}})
    EXPECT_EQ(test(name.c_str()), expected) << name;
  for (const auto &[a_sec, a_ns, b_sec, b_ns, newer] :
       {std::tuple{2000, 0L, 1000, 999999999L, 1}, {1000, 500L, 1000, 400L, 1}, {1000, 400L, 1000, 500L, 0},
        {1000, 500L, 1000, 500L, 0}}) {
    SetTimes("a", a_sec, a_ns);
    SetTimes("f", b_sec, b_ns);
    EXPECT_EQ(gen_newerthan(a.c_str(), f.c_str()), newer) << a_sec << "." << a_ns;
  }
  EXPECT_EQ(std::pair(gen_newerthan(none.c_str(), a.c_str()), gen_newerthan(a.c_str(), none.c_str())),
            std::pair(-1, 1));
}

TEST_F(FileOpsTest, CopiesRenamesAndMovesThatFailHalfWay) {
  const std::string a = F("a"), b = F("b"), big = F("big");
  std::string bytes;
  for (int i = 0; i < 3000; i++) bytes += static_cast<char>(i * 7);
  Put("a", bytes), Put("b", "beta"), Put("big", std::string(4000, 'c'));
  ASSERT_EQ(chmod(a.c_str(), 0751), 0);
  EXPECT_EQ(gen_copyfile(a.c_str(), F("to").c_str()), 0);
  EXPECT_EQ(std::pair(ReadFileBytes(F("to")), ModeOf("to")), std::pair(bytes, 0751));
  renames_to_fail = 1;  // b is in the way: removed, and the rename tried again
  EXPECT_EQ(gen_renamefile(a.c_str(), b.c_str()), 0);
  EXPECT_EQ(ReadFileBytes(b), bytes);
  renames_to_fail = 2;  // as across file systems: copied with its mode, then removed
  EXPECT_EQ(gen_movefile(b.c_str(), a.c_str()), 0);
  EXPECT_EQ(std::tuple(ReadFileBytes(a), ModeOf("a"), ModeOf("b")), std::tuple(bytes, 0751, -1));
  EXPECT_EQ(gen_movefile(b.c_str(), a.c_str()), -1);  // a missing source leaves the target
  EXPECT_EQ(ReadFileBytes(a), bytes);
  // Files that may not grow past 1500 bytes: the second block is written short.
  fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    signal(SIGXFSZ, SIG_IGN);
    const struct rlimit limit = {1500, 1500};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(10);
    if (gen_copyfile(big.c_str(), b.c_str()) != -1 || access(b.c_str(), F_OK) == 0) _exit(11);
    renames_to_fail = 2;  // a move whose rename and copy fail keeps its source
    _exit(gen_movefile(big.c_str(), b.c_str()) == -1 && access(b.c_str(), F_OK) != 0 ? 0 : 12);
  }
  int status = 0;
  EXPECT_TRUE(waitpid(child, &status, 0) == child && WIFEXITED(status)) << status;
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(ReadFileBytes(big), std::string(4000, 'c'));
}

TEST_F(FileOpsTest, RemovalTimesComparisonAndChecksum) {
  const std::string top = F("top"), a = F("a");
  ASSERT_EQ(gen_createdir_recursive((top + "/x/y/").c_str(), 0777), 0);
  Make("top/x/y/g outside/"), Put("outside/keep", "k");
  ASSERT_EQ(symlink(F("outside").c_str(), (top + "/x/out").c_str()), 0);
  EXPECT_EQ(gen_removestar_recursive(top.c_str()), 0);
  EXPECT_TRUE(gen_isemptydir(top.c_str()));
  EXPECT_EQ(ReadFileBytes(F("outside/keep")), "k");  // the link went, not its target
  EXPECT_EQ(gen_removedir_recursive(top.c_str()) + gen_removedir_recursive(top.c_str()), -1);
  EXPECT_EQ(gen_removefile(dir_.path().c_str()), -1);
  EXPECT_EQ(errno, EISDIR);
  std::string bytes(3000, 'z');
  Put("a", bytes), Put("same", bytes);
  bytes[2500] = 'y';
  Put("late", bytes), Put("short", bytes.substr(1));
  for (const auto &[seconds, nanoseconds, expected] : {std::tuple{5000, 1L, 5001}, {6000, 0L, 6000}}) {
    SetTimes("a", seconds, nanoseconds);  // rounded up to whole seconds
    struct stat info {};
    EXPECT_EQ(gen_sametimeas(a.c_str(), F("same").c_str()) + stat(F("same").c_str(), &info), 0);
    EXPECT_EQ(info.st_mtim.tv_sec * 1000000000L + info.st_mtim.tv_nsec, expected * 1000000000L);
  }
  testsupport::Captured run = testsupport::RunCapturing([&] {
    for (const auto &[other, expected] : {std::pair{"same", 0}, {"late", 1}, {"short", 1}, {"none", -1}})
      EXPECT_EQ(gen_binarydifffiles(a.c_str(), F(other).c_str()), expected) << other;
  });
  EXPECT_EQ(run.err, "p: error: Could not open file: " + F("none") + "\n");
  const char *text = "abc";
  uint32_t sum = 0, chained = 0;  // no bytes leave the sum as it is; blocks chain
  EXPECT_TRUE(gen_cksum(text, 0, &sum) == text && sum == 0 && gen_cksum(text, 3, &sum) == text + 3);
  gen_cksum("c", 1, (gen_cksum("ab", 2, &chained), &chained));
  EXPECT_EQ(std::pair(sum, chained), std::pair(0x8065FD10u, 0x8065FD10u));
}

TEST_F(FileOpsTest, DirectoryWalksWithEachRestrictionAndListings) {
  Make("a.c b.h noext sub/ CVS/ d.x/");
  auto walk = [&](const std::function<void(GenDir *)> &restrict) {
    GenDir w;
    EXPECT_TRUE(gen_dir_open(&w, dir_.path().c_str()));
    restrict(&w);
    std::set<std::string> names;
    while (const char *name = gen_dir_next_entry(&w)) {
      names.insert(std::string(name) + (w.isdir ? "/" : ""));
      EXPECT_TRUE(name[0] == '.' || w.fullname == F(name)) << name;
    }
    gen_dir_close(&w);
    std::string joined;
    for (const std::string &name : names) joined += name + " ";
    return joined;
  };
  EXPECT_EQ(walk([](GenDir *) {}), "CVS/ a.c b.h d.x/ noext sub/ ");
  EXPECT_EQ(walk([](GenDir *w) { gen_dir_restrict_dirs(w, 0, 0, 0); }),
            "../ ./ CVS/ a.c b.h d.x/ noext sub/ ");
  EXPECT_EQ(walk([](GenDir *w) { gen_dir_restrict_files(w, 1, nullptr); }), "CVS/ d.x/ sub/ ");
  EXPECT_EQ(walk([](GenDir *w) { gen_dir_restrict_dirs(w, 0, 1, 1); }), "a.c b.h d.x/ noext sub/ ");
  // A suffix hides every name without it, directories included.
  EXPECT_EQ(walk([](GenDir *w) { gen_dir_restrict_files(w, 0, "c"); }), "a.c ");
  EXPECT_EQ(walk([](GenDir *w) { gen_dir_restrict_files(w, 1, ".x"); }), "d.x/ ");
  // Classed by name alone: "noext" is a directory, "d.x" a file.
  EXPECT_EQ(walk([](GenDir *w) { gen_dir_optimize_search(w, 1), gen_dir_restrict_files(w, 1, nullptr); }),
            "CVS/ noext/ sub/ ");
  // 30 names and "." and ".." fill the first array of 32 up to its terminator.
  Make("flat/");
  for (int i = 0; i < 30; i++) Make("flat/f" + std::to_string(i));
  char **names = nullptr;
  ASSERT_EQ(gen_read_directory(F("flat").c_str(), &names), 32);
  std::set<std::string> seen;
  for (int i = 0; names[i] != nullptr; i++) seen.insert(Take(names[i]));
  gen_free(names);
  EXPECT_TRUE(seen.size() == 32 && seen.count(".") && seen.count("f29"));
  EXPECT_TRUE(gen_read_directory(F("none").c_str(), &names) == 0 && names == nullptr);
}

TEST_F(FileOpsTest, ProgramsAreFoundAlongPathAndInTheProgramsDirectory) {
  const std::string saved_path = getenv("PATH") != nullptr ? getenv("PATH") : "";
  Make("bin/ bin/CVS/ plain/ plain/tool src/ src/target/ src/configuration/"), Put("bin/tool", "#!/bin/sh\n");
  ASSERT_EQ(chmod(F("bin/tool").c_str(), 0755), 0);
  const std::string real = std::filesystem::canonical(F("bin"));
  setenv("PATH", (F("none") + ":" + F("plain") + ":" + F("bin")).c_str(), 1);
  EXPECT_EQ(Take(gen_findexec("tool", false, false)), F("bin/tool"));
  EXPECT_EQ(Take(gen_findexec(F("plain/tool").c_str(), false, false)), "<null>");  // the only one
  char *saved_exec = gen_execname;  // gen_getprogdir finds gen_execname on PATH
  gen_execname = const_cast<char *>("tool");
  EXPECT_STREQ(gen_getprogdir(), real.c_str());
  gen_execname = saved_exec;
  EXPECT_TRUE(gen_is_qo_dev_program());
  unsetenv("PATH");
  EXPECT_EQ(Take(gen_findexec("tool", false, false)), "<null>");  // not without try_progdir
  gen_changeprogdir(F("bin/../bin").c_str());
  EXPECT_STREQ(gen_getprogdir(), real.c_str());
  EXPECT_EQ(Take(gen_findexec("tool", true, false)), real + "/tool");
  setenv("PATH", saved_path.c_str(), 1);
  gen_free(gen_progdir), gen_progdir = nullptr;
}

}  // namespace
