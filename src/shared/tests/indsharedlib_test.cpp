// Tests of the shared-library layer: a libc and a libm symbol resolve, an
// unknown one gives null after exactly one error message.
#include "indsharedlib.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>

#include "gen_capture.h"
#include "indgeninit.h"

using testsupport::Captured;
using testsupport::RunCapturing;
using testsupport::ScopedProgName;

namespace {

TEST(SharedLib, FindsALibcSymbolInTheProgram) {
  void *self = tov_open_shared_library(nullptr, RTLD_NOW);
  ASSERT_NE(self, nullptr) << tov_last_shared_library_error();
  auto length = reinterpret_cast<size_t (*)(const char *)>(
      tov_must_get_shared_library_func_ptr(self, "strlen"));
  ASSERT_NE(length, nullptr);
  EXPECT_EQ(length("four"), 4u);
  EXPECT_EQ(tov_close_shared_library(self), 1);
}

TEST(SharedLib, FindsALibmSymbolInAnOpenedLibrary) {
  void *libm = tov_open_shared_library("libm.so.6", RTLD_LAZY);
  ASSERT_NE(libm, nullptr) << tov_last_shared_library_error();
  auto cosine = reinterpret_cast<double (*)(double)>(
      tov_get_shared_library_func_ptr(libm, "cos"));
  ASSERT_NE(cosine, nullptr);
  EXPECT_EQ(cosine(0.0), 1.0);
  EXPECT_EQ(tov_close_shared_library(libm), 1);
}

TEST(SharedLib, UnknownSymbolGivesNullAfterOneMessage) {
  ScopedProgName name("tool");
  void *self = tov_open_shared_library(nullptr, RTLD_NOW);
  int errors_before = gen_error_count[3];
  void *found = &found;
  Captured run = RunCapturing(
      [&] { found = tov_must_get_shared_library_func_ptr(self, "no_such_symbol_here"); });
  EXPECT_EQ(found, nullptr);
  EXPECT_FALSE(run.exited);
  EXPECT_EQ(run.err, "tool: error: Could not resolve \"no_such_symbol_here\"\n");
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(gen_error_count[3], errors_before + 1);
  EXPECT_NE(tov_last_shared_library_error(), nullptr);

  // The quiet form says nothing.
  run = RunCapturing([&] { found = tov_get_shared_library_func_ptr(self, "no_such_symbol"); });
  EXPECT_EQ(found, nullptr);
  EXPECT_EQ(run.err, "");
}

TEST(SharedLib, MissingLibraryGivesNullAndAReason) {
  EXPECT_EQ(tov_open_shared_library("libno-such-library.so", RTLD_NOW), nullptr);
  const char *reason = tov_last_shared_library_error();
  ASSERT_NE(reason, nullptr);
  EXPECT_NE(strstr(reason, "libno-such-library.so"), nullptr) << reason;
  EXPECT_EQ(tov_last_shared_library_error(), nullptr);
}

}  // namespace
