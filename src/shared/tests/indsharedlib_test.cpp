// Tests of what the shared-library layer decides itself: the one error
// message of the "must" lookup, silence otherwise, and close that keeps a
// library mapped.
#include "indsharedlib.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "gen_capture.h"
#include "indgeninit.h"

using testsupport::Captured;
using testsupport::RunCapturing;

namespace {

TEST(SharedLib, OnlyAFailedMustLookupReportsAnError) {
  testsupport::ScopedProgName name("tool");
  void *self = tov_open_shared_library(nullptr, RTLD_NOW);
  ASSERT_NE(self, nullptr);
  const int errors_before = gen_error_count[3];
  void *found[4] = {};
  Captured run = RunCapturing([&] {
    found[0] = tov_must_get_shared_library_func_ptr(self, "no_such_symbol_here");
    found[1] = tov_get_shared_library_func_ptr(self, "no_such_symbol_here");
    found[2] = tov_must_get_shared_library_func_ptr(self, "strlen");
    found[3] = tov_get_shared_library_func_ptr(self, nullptr);
  });
  EXPECT_EQ(run.err, "tool: error: Could not resolve \"no_such_symbol_here\"\n");
  EXPECT_FALSE(run.exited);
  EXPECT_EQ(gen_error_count[3], errors_before + 1);
  EXPECT_EQ(found[0], nullptr);
  EXPECT_EQ(found[1], nullptr);
  EXPECT_NE(found[2], nullptr);
  EXPECT_EQ(found[3], nullptr);
  EXPECT_EQ(tov_close_shared_library(self), 1);
  EXPECT_EQ(tov_open_shared_library("libno-such-library.so", RTLD_NOW), nullptr);
  EXPECT_NE(tov_last_shared_library_error(), nullptr);
}

}  // namespace
