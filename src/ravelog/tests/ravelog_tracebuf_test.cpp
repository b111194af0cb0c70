// Tests of the trace buffer decoder through its database points, on small
// buffers built here: where context switches go in (the running thread of
// threads, interrupts, idle and self-suspension), the statuses of resume,
// suspend and priority change, the walk from the current entry, times
// carried over the timer's wraps, entries left out, event ids outside the
// kernel's table, the thread records and the -d listing.  The real kernel's
// recordings and the refusals are tested end to end (tracebuf_e2e_test.py).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "decode_fixture.h"
#include "kq_names.h"
#include "ravelog_tracebuf.h"

namespace {

constexpr uint32_t kA = 0xA0, kB = 0xB0, kIsr = 0xFFFFFFFF, kInit = 0xF0F0F0F0, kInvalid = 0xFFFFFFFF;

// One entry: thread pointer, priority field, event id, time, fields 1, 2, 4.
struct E {
  uint32_t thread, priority, id, time, info1 = 0, info2 = 0, info4 = 0;
};

// A little-endian buffer at 0x1000: header, a registry of threads A ("a")
// and B (a name of 40 characters), `slots` entries filled from the front
// (an unused slot is E{0, ...}), and the current pointer at slot `current`.
std::string Buffer(const std::vector<E> &entries, uint32_t slots, uint32_t current, uint32_t mask = 0xFFFFFFFF) {
  std::string bytes;
  auto word = [&bytes](uint32_t v) { for (int i = 0; i < 4; i++) bytes += static_cast<char>(v >> (8 * i)); };
  const uint32_t base = 0x1000, registry = base + 48, entries0 = registry + 2 * 48;
  for (uint32_t v : {0x54585442u, mask, base, registry, 32u << 16, entries0, entries0, entries0 + 32 * slots,
                     entries0 + 32 * current, 0xAAAAAAAAu, 0xBBBBBBBBu, 0xCCCCCCCCu}) {
    word(v);
  }
  for (auto [object, name] : {std::pair{kA, std::string("a")}, std::pair{kB, std::string(40, 'b')}}) {
    bytes += std::string("\x00\x01\x80\x00", 4);
    for (uint32_t v : {object, 0u, 0u}) word(v);
    bytes += (name.substr(0, 31) + std::string(32, '\0')).substr(0, 32);
  }
  for (uint32_t slot = 0; slot < slots; slot++) {
    const E e = slot < entries.size() ? entries[slot] : E{0, 0, 0, 0};
    for (uint32_t v : {e.thread, e.priority, e.id, e.time, e.info1, e.info2, 0u, e.info4}) word(v);
  }
  return bytes;
}

class TraceBufferDecode : public ravelogtest::DecodeFixture {
 protected:
  TraceBufferDecode() : DecodeFixture(cv_ParseTraceBuffer) {}
  // The events handed over, as "time/typeWord+length", after the open and
  // the two thread records.
  std::string Events(const std::string &buffer) {
    const testsupport::Captured run = Decode(buffer);
    EXPECT_FALSE(run.exited) << run.err;
    const std::string trace = Trace(true);
    EXPECT_EQ(trace.rfind("open thread thread ", 0), 0u) << trace;
    std::string events = trace.substr(trace.find("event") == std::string::npos ? trace.size() : trace.find("event"));
    for (size_t at; (at = events.find("event@0:")) != std::string::npos;) events.erase(at, 8);
    return events;
  }
};

struct Case {
  const char *name;
  std::vector<E> entries;
  uint32_t slots, current, mask;
  const char *events;  // time/typeWord+length, in hex
};

// Service calls: 0x70 sleep (3001d), 0x45 queue send (30011).  Status
// changes: 1 resume, 2 suspend (field 2 the state).  Interrupts: 3, 4.
const Case kCases[] = {
    {"a context switch goes before the first entry of each thread",
     {{kA, 0x80010001, 0x70, 10}, {kB, 0x80020002, 0x45, 15}}, 2, 0, 0xFFFFFFFF,
     "0/10000+8 0/3001d+20 5/10000+8 5/30011+20 close"},
    {"an interrupt keeps the thread it interrupted running",
     {{kA, 0x80010001, 0x70, 1}, {kIsr, kA, 3, 2, 0, 7}, {kIsr, kA, 4, 3, 0, 7}, {kA, 0x80010001, 0x70, 4}}, 4, 0,
     0xFFFFFFFF, "0/10000+8 0/3001d+20 1/20001+20 2/20003+20 3/3001d+20 close"},
    {"after an interrupt over idle the thread it resumed is switched in",
     {{kA, 0x80010001, 2, 1, kA, 4}, {kIsr, 0, 3, 2}, {kIsr, 0, 1, 3, kA, 4}, {kA, 0x80010001, 0x70, 4}}, 4, 0,
     0xFFFFFFFF, "0/10000+8 0/50004+24 1/20001+20 2/50000+24 3/10000+8 3/3001d+20 close"},
    {"the thread a suspension or resume names to run next is switched in there, when it runs next",
     {{kA, 0x80010001, 2, 1, kA, 5, kB}, {kB, 0x80020002, 1, 2, kA, 5, kA}, {kA, 0x80010001, 0x70, 3}}, 3, 0,
     0xFFFFFFFF, "0/10000+8 0/50005+24 0/10000+8 1/50000+24 1/10000+8 2/3001d+20 close"},
    {"... and only then: an interrupt came first",
     {{kA, 0x80010001, 2, 1, kA, 5, kB}, {kIsr, 0, 3, 2}, {kB, 0x80020002, 0x70, 3}}, 3, 0, 0xFFFFFFFF,
     "0/10000+8 0/50005+24 1/20001+20 2/10000+8 2/3001d+20 close"},
    {"a thread that suspended itself is switched in at its next entry",
     {{kA, 0x80010001, 2, 1, kA, 5}, {kA, 0x80010001, 0x70, 2}}, 2, 0, 0xFFFFFFFF,
     "0/10000+8 0/50005+24 1/10000+8 1/3001d+20 close"},
    {"a priority change of the running thread keeps it running; of another, ready",
     {{kA, 0x80010001, 2, 1, kA, 14}, {kA, 0x80010001, 1, 2, kA, 14}, {kA, 0x80010001, 2, 3, kB, 14},
      {kA, 0x80010001, 1, 4, kB, 3}}, 4, 0, 0xFFFFFFFF,
     "0/10000+8 0/5000a+24 1/5000a+24 2/50000+24 3/50000+24 close"},
    {"kernel states: suspended 3 as 3, I/O driver and those past 14 without a place",
     {{kA, 0x80010001, 2, 1, kB, 3}, {kA, 0x80010001, 2, 2, kB, 10}, {kA, 0x80010001, 2, 3, kB, 15}}, 3, 0,
     0xFFFFFFFF, "0/10000+8 0/50003+24 1/5ffff+24 2/5ffff+24 close"},
    {"times carry over each wrap of a 16-bit timer",
     {{kA, 0x80010001, 0x70, 0x5FFF0}, {kA, 0x80010001, 0x70, 0x10}, {kA, 0x80010001, 0x70, 0xFFF0}}, 4, 3, 0xFFFF,
     "0/10000+8 0/3001d+20 20/3001d+20 10000/3001d+20 close"},
    {"the walk starts at the current entry and skips unused and invalid ones",
     {{kA, 0x80010001, 0x70, 30}, {0, 0, 0, 0}, {kA, 0x80010001, 0x70, 10}, {kA, 0x80010001, kInvalid, 20}}, 4, 2,
     0xFFFFFFFF, "0/10000+8 0/3001d+20 14/3001d+20 close"},
    {"an entry at the current pointer of a ring not yet full is being written: left out",
     {{kA, 0x80010001, 0x70, 10}, {kB, 0x80020002, 0x70, 20}}, 3, 1, 0xFFFFFFFF, "0/10000+8 0/3001d+20 close"},
    {"an entry at the current pointer newer than the newest is being written: left out",
     {{kA, 0x80010001, 0x70, 30}, {kB, 0x80020002, 0x70, 50}, {kA, 0x80010001, 0x70, 20}}, 3, 1, 0xFFFFFFFF,
     "0/10000+8 0/3001d+20 a/3001d+20 close"},
    {"user events, other components' events and ids past 65535 are type 4 by id",
     {{kA, 0x80010001, 4097, 1}, {kA, 0x80010001, 300, 2}, {kA, 0x80010001, 70000, 3}}, 3, 0, 0xFFFFFFFF,
     "0/10000+8 0/41001+20 1/4012c+20 2/4ffff+20 close"},
    {"a service call made where no thread runs carries no thread",
     {{kInit, 0, 6, 1}, {kA, 0x80010001, 5, 2}}, 2, 0, 0xFFFFFFFF, "0/3003c+0 1/10000+8 1/3003b+20 close"},
};

TEST_F(TraceBufferDecode, EntriesBecomeTheDatabasesEvents) {
  for (const Case &c : kCases) {
    EXPECT_EQ(Events(Buffer(c.entries, c.slots, c.current, c.mask)), c.events) << c.name;
  }
}

TEST_F(TraceBufferDecode, ThreadRecordsTakeThePriorityOfTheFirstEntryAndANameCutTo31Bytes) {
  // Priority 263 (a kernel may have up to 1024), preemption threshold 7.
  Events(Buffer({{kB, 0x80070107, 0x70, 1}, {kB, 0x80090009, 0x70, 2}}, 2, 0));
  ASSERT_GE(calls.size(), 3u);
  EXPECT_EQ(calls[1].bytes, std::string("\xa0\0\0\0\0\0\0\0a", 9) + std::string(30, '\0'));
  EXPECT_EQ(calls[2].bytes, std::string("\xb0\0\0\0\x07\x01\0\0", 8) + std::string(31, 'b'));
  EXPECT_EQ(calls[0].ticks, 1000000);
}

TEST_F(TraceBufferDecode, ListingShowsHeaderRegistryAndEachEntryWithItsEvents) {
  const testsupport::Captured run =
      Decode(Buffer({{kInit, 0, 6, 7}, {kA, 0x80010001, 2, 9, kA, 4}, {0, 0, 0, 0}}, 3, 2), true);
  EXPECT_EQ(run.out,
            "Trace Buffer Header Section\nOffset     Size     Value\n---------  -------- ---------------\n"
            " 0 (0x00)   4 bytes 0x54585442 = trace buffer id (little-endian)\n"
            " 4 (0x04)   4 bytes 0xffffffff = timer valid mask\n"
            " 8 (0x08)   4 bytes 0x00001000 = trace base address\n"
            "12 (0x0c)   4 bytes 0x00001030 = object registry start pointer\n"
            "16 (0x10)   2 bytes 0x0000 = reserved\n"
            "18 (0x12)   2 bytes 32 = object name size (bytes)\n"
            "20 (0x14)   4 bytes 0x00001090 = object registry end pointer\n"
            "24 (0x18)   4 bytes 0x00001090 = trace buffer start pointer\n"
            "28 (0x1c)   4 bytes 0x000010f0 = trace buffer end pointer\n"
            "32 (0x20)   4 bytes 0x000010d0 = current (oldest) entry pointer\n"
            "                    1000000 = timer frequency (Hz), not in the buffer: RAVELOG_TICKS_PER_SECOND or "
            "the default\n\n"
            "Object Registry Section\nFree Type        Parameter1 Parameter2 Object ID  Object name\n"
            "---- ----------- ---------- ---------- ---------- -------------------------------\n"
            "  0  thread      0x00000000 0x00000000 0x000000a0 a\n"
            "  0  thread      0x00000000 0x00000000 0x000000b0 bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb\n\n"
            "Trace Entries Section: each entry, then the events it became\n"
            "Offset     Thread     Priority   Event ID   Time stamp Info 1     Info 2     Info 3     Info 4\n"
            "---------- ---------- ---------- ---------- ---------- ---------- ---------- ---------- ----------\n"
            "Thread ID  Event                                 Type:Sub Event time         \n"
            "---------- ------------------------------------- -------- -------------------\n"
            "0x00000090 0xf0f0f0f0 0x00000000 0x00000006 0x00000007 0x00000000 0x00000000 0x00000000 0x00000000  "
            "running\n"
            "           running                               0x03:3c  0x00000000:00000000\n"
            "0x000000b0 0x000000a0 0x80010001 0x00000002 0x00000009 0x000000a0 0x00000004 0x00000000 0x00000000  "
            "thread suspend\n"
            "0x000000a0 context switch to thread              0x01:00  0x00000000:00000002\n"
            "0x000000a0 status = TX_SLEEP                     0x05:04  0x00000000:00000002\n");
}

TEST(TraceBufferEvents, EveryServiceCallOfTheTableCarriesItsServicesName) {
  uint32_t count = 0;
  const ravelog::tracebuf::EventRow *rows = ravelog::tracebuf::EventTable(&count);
  uint32_t calls = 0;
  for (uint32_t i = 0; i < count; i++) {
    if (rows[i].type != 3) continue;
    calls++;
    const uint16_t subtype = rows[i].subtype;
    const char *name = subtype < KQ_THREADX_SERVICE_COUNT ? threadServiceCall[subtype]
                                                          : threadTraceEvent[subtype - KQ_THREADX_SERVICE_COUNT];
    EXPECT_STREQ(name, rows[i].name) << "event " << rows[i].id;
  }
  EXPECT_EQ(calls, KQ_THREADX_SERVICE_COUNT + KQ_THREADX_EVENT_COUNT) << "each service named once";
}

}  // namespace
