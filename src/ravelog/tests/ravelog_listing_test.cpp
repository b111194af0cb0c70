// Tests of the -d listing: the two headings, the thread list line in both
// byte orders with its widths and 31-character names, and one event line
// for every row of the description table, unknown forms and widened
// columns included.  Expected lines are written out in full.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "gen_capture.h"
#include "ravelog.h"

using testsupport::RunCapturing;

namespace {

std::string Printed(const std::function<void()> &print) { return RunCapturing(print).out; }

cv_ThreadEntry Entry(const std::string &name, const char *id4, const char *priority4,
                     unsigned char valid, unsigned char next) {
  cv_ThreadEntry entry;
  memset(entry.name, 0, sizeof entry.name);
  memcpy(entry.name, name.data(), std::min(name.size(), sizeof entry.name));
  entry.valid = valid;
  entry.next = next;
  memcpy(&entry.threadId, id4, 4);
  memcpy(&entry.priority, priority4, 4);
  return entry;
}

TEST(ListingHeadings, AreExact) {
  EXPECT_EQ(Printed(debug_PrintTaskHeader),
            "Thread List Section\n"
            "valid Next priority Thread ID  Thread name\n"
            "----- ---- -------- ---------- -------------------------------\n");
  EXPECT_EQ(Printed(debug_PrintEventsHeader),
            "\nEvents Section\n"
            "Thread ID  Event                                 Type:Sub Event time         \n"
            "---------- ------------------------------------- -------- -------------------\n");
}

TEST(ThreadLine, ReadsIdAndPriorityInTheLogsOrder) {
  cv_ThreadEntry big = Entry("main", "\x00\x00\x12\x34", "\x00\x00\x00\x0a", 1, 0);
  EXPECT_EQ(Printed([&] { debug_PrintTaskInfo(&big, 1); }),
            "  1    0      10    0x00001234 main\n");
  cv_ThreadEntry little = Entry("main", "\x34\x12\x00\x00", "\x0a\x00\x00\x00", 0, 1);
  EXPECT_EQ(Printed([&] { debug_PrintTaskInfo(&little, 0); }),
            "  0    1      10    0x00001234 main\n");
}

TEST(ThreadLine, WideNumbersWidenTheirColumns) {
  cv_ThreadEntry entry = Entry("x", "\xde\xad\xbe\xef", "\x00\x00\x30\x39", 12, 255);
  EXPECT_EQ(Printed([&] { debug_PrintTaskInfo(&entry, 1); }),
            "  12    255     12345    0xdeadbeef x\n");
}

TEST(ThreadLine, NamesShowAtMost31Characters) {
  const std::string thirty_one = "abcdefghijklmnopqrstuvwxyz01234";
  for (const std::string &name : {thirty_one, thirty_one + "5", thirty_one + "567"}) {
    cv_ThreadEntry entry = Entry(name, "\0\0\0\1", "\0\0\0\2", 1, 1);
    EXPECT_EQ(Printed([&] { debug_PrintTaskInfo(&entry, 1); }),
              "  1    1       2    0x00000001 " + thirty_one + "\n")
        << name;
  }
  cv_ThreadEntry empty = Entry("", "\0\0\0\1", "\0\0\0\2", 1, 1);
  EXPECT_EQ(Printed([&] { debug_PrintTaskInfo(&empty, 1); }),
            "  1    1       2    0x00000001 \n");
}

struct EventRow {
  unsigned type;
  unsigned subtype;
  const char *line;
};

// Value 0x00001234 in the first payload word, time 0x00000001:0x00000064.
const EventRow kRows[] = {
    {1, 0, "0x00001234 context switch to thread              0x01:00  0x00000001:00000064\n"},
    {1, 7, "0x00001234 context switch to thread              0x01:07  0x00000001:00000064\n"},
    {2, 0, "           fatal exception 0x1234                0x02:00  0x00000001:00000064\n"},
    {2, 1, "           interrupt vector=0x1234               0x02:01  0x00000001:00000064\n"},
    {2, 2, "           interrupt unknown                     0x02:02  0x00000001:00000064\n"},
    {2, 3, "           interrupt end, vector=0x1234          0x02:03  0x00000001:00000064\n"},
    {2, 4, "           interrupt unknown                     0x02:04  0x00000001:00000064\n"},
    {3, 0, "0x00001234 tx_byte_allocate                      0x03:00  0x00000001:00000064\n"},
    {3, 22, "0x00001234 tx_thread_create                      0x03:16  0x00000001:00000064\n"},
    {3, 25, "0x00001234 tx_thread_preemption_change           0x03:19  0x00000001:00000064\n"},
    {3, 58, "0x00001234 tx_timer_info_get                     0x03:3a  0x00000001:00000064\n"},
    {3, 59, "0x00001234 UNKNOWN SERVICE CALL                  0x03:3b  0x00000001:00000064\n"},
    {4, 9, "0x00001234 user event                            0x04:09  0x00000001:00000064\n"},
    {5, 0, "0x00001234 status = TX_READY                     0x05:00  0x00000001:00000064\n"},
    {5, 3, "0x00001234 status = RUNNING                      0x05:03  0x00000001:00000064\n"},
    {5, 10, "0x00001234 status = UNKNOWN                      0x05:0a  0x00000001:00000064\n"},
    {5, 13, "0x00001234 status = TX_MUTEX_SUSP                0x05:0d  0x00000001:00000064\n"},
    {5, 14, "0x00001234 status = unknown (0xe)                0x05:0e  0x00000001:00000064\n"},
    {0, 0, "           UNKNOWN EVENT extra1 = 0x1234         0x00:00  0x00000001:00000064\n"},
    {6, 10, "           UNKNOWN EVENT extra1 = 0x1234         0x06:0a  0x00000001:00000064\n"},
    {7, 0, "           UNKNOWN EVENT extra1 = 0x1234         0x07:00  0x00000001:00000064\n"},
    {0x100, 1, "           UNKNOWN EVENT extra1 = 0x1234         0x100:01  0x00000001:00000064\n"},
    {5, 0x123, "0x00001234 status = unknown (0x123)              0x05:123  0x00000001:00000064\n"},
    {3, 0xffff, "0x00001234 UNKNOWN SERVICE CALL                  0x03:ffff  0x00000001:00000064\n"},
};

TEST(EventLine, EveryDescriptionFormInBothByteOrders) {
  const unsigned char big[4] = {0x00, 0x00, 0x12, 0x34};
  const unsigned char little[4] = {0x34, 0x12, 0x00, 0x00};
  for (const EventRow &row : kRows) {
    EXPECT_EQ(Printed([&] { debug_PrintEventsInfo(row.type, row.subtype, 1, 100, big, 1); }), row.line)
        << row.type << ":" << row.subtype;
    EXPECT_EQ(Printed([&] { debug_PrintEventsInfo(row.type, row.subtype, 1, 100, little, 0); }),
              row.line)
        << row.type << ":" << row.subtype;
  }
}

TEST(EventLine, TypeAndSubtypeAreTakenAs16BitValues) {
  const unsigned char word[4] = {0xab, 0xcd, 0xef, 0x01};
  EXPECT_EQ(Printed([&] { debug_PrintEventsInfo(0x10001, 0x20016, 0xffffffff, 0, word, 1); }),
            "0xabcdef01 context switch to thread              0x01:16  0xffffffff:00000000\n");
}

TEST(EventLine, TablesHoldTheirEnds) {
  EXPECT_STREQ(threadStatus[0], "TX_READY");
  EXPECT_STREQ(threadStatus[11], "TX_SUSPENDED");
  EXPECT_STREQ(threadStatus[12], "TX_TCP_IP");
  EXPECT_STREQ(threadServiceCall[32], "tx_thread_time_slice_change");
  EXPECT_STREQ(threadServiceCall[45], "tx_mutex_create");
  EXPECT_STREQ(threadServiceCall[57], "tx_thread_wait_abort");
}

}  // namespace
