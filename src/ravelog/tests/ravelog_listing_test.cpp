// Tests of the -d listing's event lines where the end-to-end tests don't
// reach: every form at the description table's edges, in both byte orders.
#include <gtest/gtest.h>

#include "gen_capture.h"
#include "ravelog.h"

using testsupport::RunCapturing;

namespace {

TEST(Listing, EveryFormAtTheTablesEdgesHasItsEventLineInBothByteOrders) {
  const std::tuple<unsigned, unsigned, const char *> rows[] = {  // the first payload word 0x00001234, time 1:0x64
      {2, 0, "           fatal exception 0x1234                0x02:00  0x00000001:00000064\n"},
      {2, 2, "           interrupt unknown                     0x02:02  0x00000001:00000064\n"},
      {2, 3, "           interrupt end, vector=0x1234          0x02:03  0x00000001:00000064\n"},
      {3, 58, "0x00001234 tx_timer_info_get                     0x03:3a  0x00000001:00000064\n"},
      {3, 59, "0x00001234 UNKNOWN SERVICE CALL                  0x03:3b  0x00000001:00000064\n"},
      {5, 13, "0x00001234 status = TX_MUTEX_SUSP                0x05:0d  0x00000001:00000064\n"},
      {5, 14, "0x00001234 status = unknown (0xe)                0x05:0e  0x00000001:00000064\n"},
      {0, 0, "           UNKNOWN EVENT extra1 = 0x1234         0x00:00  0x00000001:00000064\n"},
      {6, 10, "           UNKNOWN EVENT extra1 = 0x1234         0x06:0a  0x00000001:00000064\n"},
      {0x100, 1, "           UNKNOWN EVENT extra1 = 0x1234         0x100:01  0x00000001:00000064\n"},
      {5, 0x123, "0x00001234 status = unknown (0x123)              0x05:123  0x00000001:00000064\n"},
      {0x10001, 0x20016, "0x00001234 context switch to thread              0x01:16  0x00000001:00000064\n"}};  // 16 bits each
  for (const auto &[type, subtype, line] : rows)
    for (const char *word : {"\x00\x00\x12\x34", "\x34\x12\x00\x00"})
      EXPECT_EQ(RunCapturing([&, type = type, subtype = subtype] {
                  debug_PrintEventsInfo(type, subtype, 1, 100, word, word[0] == 0);
                }).out,
                line);
}

}  // namespace
