// Tests of the database points where no corefile can reach them: a record
// that the library refuses ends the conversion with the point's own fatal
// message.  The library refuses any record while no database is open.
#include <gtest/gtest.h>

#include "gen_capture.h"
#include "ravelog.h"

using testsupport::RunCapturing;
using testsupport::ScopedProgName;

namespace {

TEST(DatabasePoints, ARefusedThreadRecordIsABadRefresh) {
  ScopedProgName name("ravelog");
  unsigned char record[CV_THREAD_RECORD_SIZE] = {0, 0, 0x12, 0x34};
  auto captured = RunCapturing([&] { cv_DbAddThread(record); });
  EXPECT_TRUE(captured.exited);
  EXPECT_EQ(captured.status, 1);
  EXPECT_EQ(captured.err, "ravelog: fatal: Bad refresh: unexpected return value from libkqv.\n");
}

TEST(DatabasePoints, ARefusedEventEndsTheConversion) {
  ScopedProgName name("ravelog");
  unsigned char payload[CV_V2_PAYLOAD_SIZE] = {};
  auto captured = RunCapturing([&] { cv_DbAddEvent(0, 5, 0x10000, payload, CV_V2_PAYLOAD_SIZE); });
  EXPECT_TRUE(captured.exited);
  EXPECT_EQ(captured.status, 1);
  EXPECT_EQ(captured.err, "ravelog: fatal: Unexpected return value from libkqv.\n");
  cv_DbClose();  // closing nothing is harmless
}

}  // namespace
