// The committed sample dumps in examples/ must be exactly what the
// generator writes today: rebuild them in a temporary directory and compare
// byte for byte.  Regenerate with `make_examples examples` after a change.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "example_dumps.h"
#include "temp_dir.h"

namespace {

TEST(ExampleDumps, CommittedFilesMatchTheGenerator) {
  const char *source = getenv("RAVELOG_SOURCE_DIR");
  ASSERT_NE(source, nullptr) << "run through ctest, which sets RAVELOG_SOURCE_DIR";
  testsupport::TempDir dir;
  const auto dumps = testsupport::ExampleDumps();
  ASSERT_GE(dumps.size(), 2u);
  for (const auto &[name, bytes] : dumps) {
    ASSERT_TRUE(testsupport::WriteFileBytes(dir.file(name), bytes));
    const std::string committed = testsupport::ReadFileBytes(std::string(source) + "/examples/" + name);
    EXPECT_EQ(testsupport::ReadFileBytes(dir.file(name)), committed)
        << name << " differs from the generator; run make_examples examples";
  }
}

}  // namespace
