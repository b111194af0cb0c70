// Tests of the file operations, each in a fresh temporary directory: the
// messages of the safe stream calls byte for byte, the readers at their
// buffer boundaries, tests and modes, copies and moves that fail half way,
// times, directory walks with each restriction, identity, comparison, the
// checksum and the search for programs.  rename is replaced in this program
// (see renames_to_fail) so that a rename can be made to fail on demand.
#include "indgen_fileops.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "gen_capture.h"
#include "indgeninit.h"
#include "temp_dir.h"

namespace {
int renames_to_fail = 0;     // renames still to fail with EXDEV
bool target_existed = false;  // at the last rename
}  // namespace

extern "C" int rename(const char *old_name, const char *new_name) noexcept {
  target_existed = access(new_name, F_OK) == 0;
  if (renames_to_fail > 0 && renames_to_fail--) return errno = EXDEV, -1;
  return renameat(AT_FDCWD, old_name, AT_FDCWD, new_name);
}

namespace {

using testsupport::FileExists;
using testsupport::ReadFileBytes;
using testsupport::RunCapturing;
using testsupport::TempDir;
using testsupport::WriteFileBytes;

std::string Take(char *s) {
  std::string text = s == nullptr ? "<null>" : s;
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

// A stream over the given bytes, from a file in dir.
FILE *StreamOf(const TempDir &dir, const std::string &bytes) {
  WriteFileBytes(dir.file("stream-input"), bytes);
  return fopen(dir.file("stream-input").c_str(), "rb");
}

TEST(SafeCalls, EveryMessageByteForByte) {
  TempDir dir;
  testsupport::ScopedProgName prog("prog");
  const std::string f = dir.file("f"), nowhere = dir.file("no/dir");
  ASSERT_TRUE(WriteFileBytes(f, "abcd"));
  FILE *stream = fopen(f.c_str(), "r");
  char buf[8];
  const struct {
    std::function<void()> body;
    std::string err;
    int exit_status;  // -1: goes on
  } rows[] = {
      {[&] { gen_safe_fopen(nowhere.c_str(), nullptr, "r"); },
       "prog: fatal: Unable to open " + nowhere + " for input: : No such file or directory\n", 1},
      {[&] { gen_safe_fopen(nowhere.c_str(), "log", "a"); },
       "prog: fatal: Unable to open log '" + nowhere + "' for output: : No such file or directory\n", 1},
      {[&] { EXPECT_EQ(gen_safe_fread("f", buf, 1, 8, stream), 4); }, "", -1},  // short but not 0
      {[&] { gen_safe_fread(nullptr, buf, 1, 8, stream); }, "prog: fatal: Error reading from file\n", -1},
      {[&] { EXPECT_EQ(gen_safe_fread("f", nullptr, 1, 8, stream), -1); },
       "prog: error: internal: null buffer passed to gen_safe_fread\n", -1},
      {[&] { EXPECT_EQ(gen_safe_readbytes("f", stream, buf, 3), buf); },
       "prog: fatal: Error reading from 'f'\n", -1},  // at the end
      {[&] { EXPECT_EQ(gen_safe_fwrite("f", "xy", 1, 2, stream), 0u); },
       "prog: fatal: Error writing to 'f': Bad file descriptor\n", -1},
      {[&] { gen_safe_fseek("f", stream, -5, SEEK_SET); },
       "prog: fatal: seek failed to -5 in 'f': Invalid argument\n", 1},
      {[&] { gen_safe_fseek(nullptr, stream, -7, SEEK_SET); },
       "prog: fatal: seek failed to -7 in file: Invalid argument\n", 1},
      {[&] { gen_safe_fclose("f", "data", nullptr); },
       "prog: fatal: Error closing data 'f': : Bad file descriptor\n", -1},
      {[&] { fclose(stream), gen_safe_fclose(nullptr, nullptr, nullptr); },
       "prog: fatal: Error closing file: : Bad file descriptor\n", -1},
  };
  int row = 0;
  for (const auto &r : rows) {
    testsupport::Captured run = RunCapturing([&] { errno = 0, r.body(); });
    EXPECT_EQ(run.err, r.err) << "row " << row;
    EXPECT_EQ(run.exited ? run.status : -1, r.exit_status) << "row " << row++;
  }
}

TEST(Readers, LinesTokensAndWholeLinesAtTheirBufferBoundaries) {
  TempDir dir;
  char *buf = nullptr;
  int size = 0;
  std::string got;
  FILE *stream = StreamOf(dir, "a\r\nb\n\nx\ryz\nlast");
  while (const char *line = gen_getline(stream, &buf, &size)) got += std::string(line) + "|";
  EXPECT_EQ(got, "a|b||x|z|last|");  // CR LF, LF and CR end a line; CR drops one more
  fclose(stream);
  gen_free(buf);
  // After a growth the room counts as 250: 499 characters need a third step.
  for (const auto &[length, line_size, token_size] :
       {std::tuple{0, 250, 0}, {249, 250, 250}, {250, 500, 500}, {498, 500, 500}, {499, 750, 500}}) {
    const std::string text(static_cast<size_t>(length), 'q');
    stream = StreamOf(dir, text + "\n" + text + "\n");
    buf = nullptr, size = 0;
    EXPECT_EQ(std::string(gen_getline(stream, &buf, &size)), text);
    EXPECT_EQ(std::string(gen_getline(stream, &buf, &size)), text);  // the buffer again
    EXPECT_EQ(size, line_size) << length;
    gen_free(buf);
    rewind(stream);
    buf = nullptr, size = 0;
    EXPECT_EQ(gen_gettoken(stream, &buf, &size) != nullptr, length > 0);
    EXPECT_EQ(size, token_size) << length;
    gen_free(buf);
    fclose(stream);
  }
  // 2046 characters and the newline fill the first block of gen_afgets exactly.
  for (const std::string &line : {std::string(2046, 'w') + "\n", std::string(4095, 'e')}) {
    stream = StreamOf(dir, line + (line.back() == '\n' ? "next" : ""));
    EXPECT_EQ(Take(gen_afgets(stream)), line);
    EXPECT_EQ(Take(gen_afgets(stream)), line.back() == '\n' ? "next" : "");
    fclose(stream);
  }
  EXPECT_EQ(gen_afgets(nullptr), nullptr);
}

TEST(Readers, WholeFiles) {
  TempDir dir;
  std::string bytes(10000, 'b');
  bytes[17] = '\0';
  const std::string name = dir.file("whole"), missing = dir.file("missing");
  ASSERT_TRUE(WriteFileBytes(name, bytes) && WriteFileBytes(dir.file("words"), " one two\n\tthree\v "));
  char *buf = nullptr;
  int size = -1;
  ASSERT_EQ(gen_readfile_into_buffer(name.c_str(), &buf, &size), 0);
  EXPECT_EQ(std::string(buf, 10001), bytes + '\0');
  EXPECT_EQ(size, 10000);
  gen_free(buf);
  EXPECT_EQ(gen_readfile_into_buffer(missing.c_str(), &buf, &size), -1);
  EXPECT_EQ(size, 10000);  // untouched
  EXPECT_EQ(gen_filesize(name.c_str()), 10000);
  EXPECT_EQ(gen_filesize(missing.c_str()), -1);
  for (const auto &[text, lines] : {std::pair{"a\nb", 2}, {"a\nb\n", 2}, {"", 0}}) {
    ASSERT_TRUE(WriteFileBytes(dir.file("lines"), text));
    EXPECT_EQ(gen_count_lines_in_file(dir.file("lines").c_str()), lines) << text;
  }
  EXPECT_EQ(gen_count_lines_in_file(missing.c_str()), 0);
}

TEST(FileTests, KindsLinksExecutionTimesAndModes) {
  TempDir dir;
  const std::string file = dir.file("f"), a = dir.file("a"), missing = dir.file("missing");
  ASSERT_TRUE(WriteFileBytes(file, "x") && WriteFileBytes(a, ""));
  ASSERT_EQ(mkdir(dir.file("empty").c_str(), 0777), 0);
  ASSERT_EQ(symlink(file.c_str(), dir.file("link").c_str()), 0);
  ASSERT_EQ(link(a.c_str(), dir.file("hard").c_str()), 0);
  ASSERT_EQ(chmod(a.c_str(), 0755), 0);
  const struct {
    int (*test)(const char *);
    std::string name;
    int expected;
  } rows[] = {
      {gen_isdir, dir.path(), 1},   {gen_isdir, file, 0},          {gen_isdir, missing, 0},
      {gen_isemptydir, dir.file("empty"), 1}, {gen_isemptydir, dir.path(), 0},
      {gen_isemptydir, missing, 0}, {gen_isvcdir, "CVS", 1},       {gen_isvcdir, "ovc.log", 1},
      {gen_isvcdir, "a/CVS", 0},    {gen_islink, dir.file("link"), 1}, {gen_islink, file, 0},
      {gen_islink, a, 2},           {gen_islink, missing, 0},      {gen_canexec, file, 0},
      {gen_canexec, a, 1},          {gen_canexec, dir.path(), 0},  {gen_canexec, missing, -1},
      {gen_canexec, "", -1},
  };
  for (const auto &r : rows) EXPECT_EQ(r.test(r.name.c_str()), r.expected) << r.name;
  EXPECT_FALSE(gen_isvcdir(nullptr) || gen_canexec(nullptr) != -1);
  for (const auto &[a_sec, a_ns, b_sec, b_ns, newer] :
       {std::tuple{2000, 0L, 1000, 999999999L, 1}, {1000, 500L, 1000, 400L, 1}, {1000, 400L, 1000, 500L, 0},
        {1000, 500L, 1000, 500L, 0}}) {
    SetTimes(a, a_sec, a_ns);
    SetTimes(file, b_sec, b_ns);
    EXPECT_EQ(gen_newerthan(a.c_str(), file.c_str()), newer) << a_sec << "." << a_ns;
  }
  EXPECT_EQ(gen_newerthan(missing.c_str(), a.c_str()), -1);
  EXPECT_EQ(gen_newerthan(a.c_str(), missing.c_str()), 1);

}

TEST(CopyMove, CopiesRenamesAndMovesThatFailHalfWay) {
  TempDir dir;
  const std::string a = dir.file("a"), b = dir.file("b"), big = dir.file("big");
  std::string bytes;
  for (int i = 0; i < 3000; i++) bytes += static_cast<char>(i * 7);
  ASSERT_TRUE(WriteFileBytes(a, bytes) && WriteFileBytes(b, "beta"));
  ASSERT_EQ(chmod(a.c_str(), 0751), 0);
  EXPECT_EQ(gen_copyfile(a.c_str(), dir.file("to").c_str()), 0);
  EXPECT_EQ(ReadFileBytes(dir.file("to")), bytes);
  EXPECT_EQ(ModeOf(dir.file("to")), 0751);
  renames_to_fail = 1;  // b is in the way: removed, and the rename tried again
  EXPECT_EQ(gen_renamefile(a.c_str(), b.c_str()), 0);
  EXPECT_FALSE(target_existed);
  EXPECT_EQ(ReadFileBytes(b), bytes);
  EXPECT_EQ(gen_renamefile(b.c_str(), dir.path().c_str()), -1);
  renames_to_fail = 2;  // as across file systems: copied with its mode, then removed
  EXPECT_EQ(gen_movefile(b.c_str(), a.c_str()), 0);
  EXPECT_EQ(ReadFileBytes(a), bytes);
  EXPECT_EQ(ModeOf(a), 0751);
  EXPECT_FALSE(FileExists(b));
  EXPECT_EQ(gen_movefile(b.c_str(), a.c_str()), -1);  // a missing source leaves the target
  EXPECT_EQ(ReadFileBytes(a), bytes);
  // Files that may not grow past 1500 bytes: the second block is written short.
  ASSERT_TRUE(WriteFileBytes(big, std::string(4000, 'c')));
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
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 0);
  EXPECT_EQ(ReadFileBytes(big), std::string(4000, 'c'));
}

TEST(Changes, RemovalTimesComparisonAndChecksum) {
  TempDir dir, outside;
  const std::string top = dir.file("top"), a = dir.file("a"), missing = dir.file("missing");
  ASSERT_EQ(gen_createdir_recursive((top + "/x/y/").c_str(), 0777), 0);
  ASSERT_TRUE(WriteFileBytes(outside.file("keep"), "k") && WriteFileBytes(top + "/x/y/g", ""));
  ASSERT_EQ(symlink(outside.path().c_str(), (top + "/x/out").c_str()), 0);
  EXPECT_EQ(gen_removestar_recursive(top.c_str()), 0);
  EXPECT_TRUE(gen_isemptydir(top.c_str()));
  EXPECT_EQ(ReadFileBytes(outside.file("keep")), "k");  // the link went, not its target
  EXPECT_EQ(gen_removedir_recursive(top.c_str()) + gen_removedir_recursive(top.c_str()), -1);
  EXPECT_EQ(gen_removefile(dir.path().c_str()), -1);
  EXPECT_EQ(errno, EISDIR);
  std::string bytes(3000, 'z');
  ASSERT_TRUE(WriteFileBytes(a, bytes) && WriteFileBytes(dir.file("same"), bytes));
  bytes[2500] = 'y';
  ASSERT_TRUE(WriteFileBytes(dir.file("late"), bytes) && WriteFileBytes(dir.file("short"), bytes.substr(1)));
  for (const auto &[seconds, nanoseconds, expected] : {std::tuple{5000, 1L, 5001}, {6000, 0L, 6000}}) {
    SetTimes(a, seconds, nanoseconds);  // rounded up to whole seconds
    errno = EDOM;
    EXPECT_EQ(gen_sametimeas(a.c_str(), dir.file("same").c_str()), 0);
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(MtimeOf(dir.file("same")).tv_sec * 1000000000L + MtimeOf(dir.file("same")).tv_nsec,
              expected * 1000000000L);
  }
  testsupport::ScopedProgName prog("prog");
  testsupport::Captured run = RunCapturing([&] {
    for (const auto &[other, expected] : {std::pair{"same", 0}, {"late", 1}, {"short", 1}})
      EXPECT_EQ(gen_binarydifffiles(a.c_str(), dir.file(other).c_str()), expected) << other;
    EXPECT_EQ(gen_binarydifffiles(missing.c_str(), a.c_str()), -1);
  });
  EXPECT_EQ(run.err, "prog: error: Could not open file: " + missing + "\n");
  uint32_t sum = 0, chained = 0;
  const char *text = "abc";
  EXPECT_EQ(gen_cksum(text, 0, &sum), text);  // nothing: the sum stays
  EXPECT_EQ(gen_cksum(text, 3, &sum), text + 3);
  gen_cksum("c", 1, gen_cksum("ab", 2, &chained) != nullptr ? &chained : nullptr);  // blocks chain
  EXPECT_EQ(sum, 0x8065FD10u);
  EXPECT_EQ(chained, 0x8065FD10u);
}

TEST(DirWalk, EachRestrictionListingsAndSearches) {
  TempDir dir;
  for (const char *file : {"a.c", "b.h", "noext"}) ASSERT_TRUE(WriteFileBytes(dir.file(file), ""));
  for (const char *sub : {"sub", "CVS", "d.x"}) ASSERT_EQ(mkdir(dir.file(sub).c_str(), 0777), 0);
  auto walk = [&](const std::function<void(GenDir *)> &restrict) {
    GenDir w;
    EXPECT_TRUE(gen_dir_open(&w, dir.path().c_str()));
    restrict(&w);
    std::set<std::string> names;
    while (const char *name = gen_dir_next_entry(&w)) {
      names.insert(std::string(name) + (w.isdir ? "/" : ""));
      EXPECT_TRUE(name[0] == '.' || w.fullname == dir.file(name)) << name;
      EXPECT_TRUE(!w.optimize || w.st.st_ino == 0) << name;  // no stat made
    }
    gen_dir_close(&w);
    EXPECT_EQ(w.dir, nullptr);
    std::string joined;
    for (const std::string &name : names) joined += name + " ";
    return joined;
  };
  EXPECT_EQ(walk([](GenDir *) {}), "CVS/ a.c b.h d.x/ noext sub/ ");
  EXPECT_EQ(walk([](GenDir *w) { gen_dir_restrict_dirs(w, 0, 0, 0); }), "../ ./ CVS/ a.c b.h d.x/ noext sub/ ");
  EXPECT_EQ(walk([](GenDir *w) { gen_dir_restrict_files(w, 1, nullptr); }), "CVS/ d.x/ sub/ ");
  EXPECT_EQ(walk([](GenDir *w) { gen_dir_restrict_dirs(w, 0, 1, 1); }), "a.c b.h d.x/ noext sub/ ");
  // A suffix hides every name without it, directories included.
  EXPECT_EQ(walk([](GenDir *w) { gen_dir_restrict_files(w, 0, "c"); }), "a.c ");
  EXPECT_EQ(walk([](GenDir *w) { gen_dir_restrict_files(w, 1, ".x"); }), "d.x/ ");
  // Classed by name alone: "noext" is a directory, "d.x" a file.
  EXPECT_EQ(walk([](GenDir *w) { gen_dir_optimize_search(w, 1), gen_dir_restrict_files(w, 1, nullptr); }),
            "CVS/ noext/ sub/ ");

  // 30 names and "." and ".." fill the first array of 32 up to its terminator.
  TempDir flat;
  for (int i = 0; i < 30; i++) ASSERT_TRUE(WriteFileBytes(flat.file("f" + std::to_string(i)), ""));
  char **names = nullptr;
  ASSERT_EQ(gen_read_directory(flat.path().c_str(), &names), 32);
  std::set<std::string> seen;
  for (int i = 0; names[i] != nullptr; i++) seen.insert(Take(names[i]));
  gen_free(names);
  EXPECT_TRUE(seen.size() == 32 && seen.count(".") && seen.count("f29"));
  EXPECT_EQ(gen_read_directory(dir.file("missing").c_str(), &names), 0);
  EXPECT_EQ(names, nullptr);
}

TEST(FindProgram, AlongPathByNameAndInTheProgramsDirectory) {
  TempDir dir;
  const std::string saved_path = getenv("PATH") != nullptr ? getenv("PATH") : "";
  ASSERT_EQ(gen_createdir_recursive(dir.file("bin/CVS").c_str(), 0777), 0);
  for (const char *sub : {"plain", "src", "src/target", "src/configuration"})
    ASSERT_EQ(mkdir(dir.file(sub).c_str(), 0777), 0);
  ASSERT_TRUE(WriteFileBytes(dir.file("bin/tool"), "#!/bin/sh\n") && WriteFileBytes(dir.file("plain/tool"), ""));
  ASSERT_EQ(chmod(dir.file("bin/tool").c_str(), 0755), 0);
  char *real_dir = realpath(dir.path().c_str(), nullptr);
  const std::string real = real_dir;
  free(real_dir);
  setenv("PATH", (dir.file("none") + ":" + dir.file("plain") + ":" + dir.file("bin")).c_str(), 1);
  EXPECT_EQ(Take(gen_findexec("tool", false, false)), dir.file("bin/tool"));
  EXPECT_EQ(Take(gen_findexec(dir.file("plain/tool").c_str(), false, false)), "<null>");  // the only one
  char *saved_exec = gen_execname;  // gen_getprogdir finds gen_execname on PATH
  gen_execname = const_cast<char *>("tool");
  EXPECT_STREQ(gen_getprogdir(), (real + "/bin").c_str());
  gen_execname = saved_exec;
  EXPECT_TRUE(gen_is_qo_dev_program());
  unsetenv("PATH");
  EXPECT_EQ(Take(gen_findexec("tool", false, false)), "<null>");  // not without try_progdir
  gen_changeprogdir(dir.file("bin/../bin").c_str());
  EXPECT_STREQ(gen_getprogdir(), (real + "/bin").c_str());
  EXPECT_EQ(Take(gen_findexec("tool", true, false)), real + "/bin/tool");
  setenv("PATH", saved_path.c_str(), 1);
  gen_free(gen_progdir);
  gen_progdir = nullptr;
}

}  // namespace
