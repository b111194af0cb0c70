// Tests of what the shared-library layer decides itself: the one error
// message of the "must" lookup, silence otherwise, and close that keeps a
// library mapped.
#include "indsharedlib.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "gen_capture.h"
#include "indgeninit.h"

namespace {

TEST(SharedLib, OnlyAFailedMustLookupReportsAnError) {
  testsupport::ScopedProgName name("tool");
  void *self = tov_open_shared_library(nullptr, RTLD_NOW);
  ASSERT_NE(self, nullptr);
  const int errors_before = gen_error_count[3];
  void *found[4] = {};
  const testsupport::Captured run = testsupport::RunCapturing([&] {
    found[0] = tov_must_get_shared_library_func_ptr(self, "no_such_symbol_here");
    found[1] = tov_get_shared_library_func_ptr(self, "no_such_symbol_here");
    found[2] = tov_must_get_shared_library_func_ptr(self, "strlen");
    found[3] = tov_get_shared_library_func_ptr(self, nullptr);
  });
  EXPECT_EQ(run.err, "tool: error: Could not resolve \"no_such_symbol_here\"\n");
  EXPECT_TRUE(!run.exited && gen_error_count[3] == errors_before + 1);  // an error, counted, not fatal
  EXPECT_TRUE(found[0] == nullptr && found[1] == nullptr && found[2] != nullptr && found[3] == nullptr);
  EXPECT_EQ(tov_close_shared_library(self), 1);
  EXPECT_TRUE(tov_open_shared_library("libno-such-library.so", RTLD_NOW) == nullptr &&
              tov_last_shared_library_error() != nullptr);
}

}  // namespace
