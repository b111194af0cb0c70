// Vocabulary of the end-to-end tests: the built ravelog (RAVELOG_BINARY) run
// on a corefile in a fresh directory, its outcome held against a case's:
// standard output, standard error, exit status and the database's files.
#ifndef RAVELOG_TESTS_RAVELOG_RUN_H
#define RAVELOG_TESTS_RAVELOG_RUN_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <optional>

#include "corefile_builder.h"
#include "database_model.h"
#include "run_process.h"
#include "temp_dir.h"

namespace ravelogtest {

using namespace testsupport;

inline const std::string kBinary = RAVELOG_BINARY;
inline const std::string kVerify = "Verify that the correct target memory region was saved.\n";
inline const std::string kThreadHeading =
    "Thread List Section\nvalid Next priority Thread ID  Thread name\n----- ---- -------- ---------- -------------------------------\n";
inline const std::string kEventsHeading =
    "\nEvents Section\nThread ID  Event                                 Type:Sub Event time         \n"
    "---------- ------------------------------------- -------- -------------------\n";

inline std::string SourceDir() {  // the source tree, from the environment ctest gives every test
  return getenv("RAVELOG_SOURCE_DIR") != nullptr ? getenv("RAVELOG_SOURCE_DIR") : "(RAVELOG_SOURCE_DIR unset)";
}

inline ProcessResult Ravelog(std::vector<std::string> args, const std::string &cwd = "") {
  args.insert(args.begin(), kBinary);  // argv[0]: the binary's path
  return RunProcess(kBinary, args, cwd);
}

struct Outcome {
  std::string out, err;
  int status = 0;
  std::optional<DatabaseFiles> files;  // none: no file may exist
};

// Whether `got` is the database `want` as it stood between two of its events:
// the same .kqv, .kqs and .kqi each up to a 0 tag where `want` goes on (or
// the whole index when it had no more to say).
inline ::testing::AssertionResult StoppedEarly(const DatabaseFiles &got, const DatabaseFiles &want) {
  auto endsEarly = [](const std::string &g, const std::string &w) {
    const auto at = static_cast<size_t>(std::mismatch(g.begin(), g.end(), w.begin(), w.end()).first - g.begin());
    return at < g.size() && at < w.size() && g[at] == 0 && w[at] != 0;
  };
  if (got.kqv == want.kqv && endsEarly(got.kqs, want.kqs) && (got.kqi == want.kqi || endsEarly(got.kqi, want.kqi)))
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "not the database stopped early" << SameFiles(got, want).message();
}

// Runs `ravelog [-d] core db` on the corefile's bytes and checks the outcome.
inline void ExpectConversion(const std::string &core, bool debug, const Outcome &want) {
  TempDir dir;
  ASSERT_TRUE(WriteFileBytes(dir.file("core"), core));
  const ProcessResult run = debug ? Ravelog({"-d", dir.file("core"), dir.file("db")}) : Ravelog({dir.file("core"), dir.file("db")});
  EXPECT_EQ(run.out, want.out);
  EXPECT_EQ(run.err, want.err);
  EXPECT_EQ(run.status, want.status);
  EXPECT_TRUE(want.files ? SameFiles(ReadDatabase(dir.file("db")), *want.files) : ::testing::AssertionSuccess());
  for (const char *suffix : {".kqv", ".kqs", ".kqi"}) EXPECT_TRUE(want.files || !FileExists(dir.file("db") + suffix));
}

}  // namespace ravelogtest

#endif  // RAVELOG_TESTS_RAVELOG_RUN_H
