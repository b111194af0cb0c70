// Tests of the address modes: the header encodings of the four modes in
// both directions, and the messages and fallbacks for unknown arguments.
#include "indgadr.h"

#include <gtest/gtest.h>

#include "gen_capture.h"

using testsupport::Captured;
using testsupport::RunCapturing;
using testsupport::ScopedProgName;

namespace {

struct ModeRow {
  int mode;
  int encoding;
};
constexpr ModeRow kModeTable[] = {{0, 2}, {1, 66}, {2, 4}, {3, 8}};

TEST(GadrModeEncoding, KnownModesAndEncodingsMapBothWaysSilently) {
  for (const ModeRow &row : kModeTable) {
    Captured run = RunCapturing([&] {
      EXPECT_EQ(gadr_encoding_from_mode(row.mode), row.encoding) << "mode " << row.mode;
      EXPECT_EQ(gadr_mode_from_encoding(row.encoding), row.mode) << "encoding " << row.encoding;
    });
    EXPECT_EQ(run.err, "");
  }
}

TEST(GadrModeEncoding, EncodingIsTakenFromTheLowByte) {
  Captured run = RunCapturing([] {
    EXPECT_EQ(gadr_mode_from_encoding(0x142), 1);
    EXPECT_EQ(gadr_mode_from_encoding(0x7708), 3);
    EXPECT_EQ(gadr_mode_from_encoding(-252), 2);  // 0xFFFFFF04
  });
  EXPECT_EQ(run.err, "");
}

TEST(GadrModeEncoding, UnknownEncodingGivesMessageAndMode32bit) {
  ScopedProgName name("tool");
  for (int encoding : {0, 1, 3, 0x40, 0xFF, 0x100}) {
    int mode = -1;
    Captured run = RunCapturing([&] { mode = gadr_mode_from_encoding(encoding); });
    EXPECT_EQ(mode, 2) << "encoding " << encoding;
    EXPECT_EQ(run.err, "tool: error: [gadr_mode_from_encoding]: unknown mode!\n");
    EXPECT_FALSE(run.exited);
  }
}

TEST(GadrModeEncoding, UnknownModeGivesMessageAndEncoding4) {
  ScopedProgName name("tool");
  for (int mode : {-1, 4, 66, 0x7FFFFFFF}) {
    int encoding = -1;
    Captured run = RunCapturing([&] { encoding = gadr_encoding_from_mode(mode); });
    EXPECT_EQ(encoding, 4) << "mode " << mode;
    EXPECT_EQ(run.err, "tool: error: [gadr_encoding_from_mode]: unknown mode!\n");
    EXPECT_FALSE(run.exited);
  }
}

}  // namespace
