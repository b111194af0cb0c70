// Generator of the sample dumps; see example_dumps.h.
//
// Version 2: a ring of 512 slots that has wrapped: the current event pointer
// stands at slot 317, which holds the oldest event, and times rise along the
// ring from there (and carry over a low-word boundary on the way).
// Version 1: 300 records of 12 to 36 bytes with zero to two filler bytes
// between them, written from the middle of the pool: the oldest record
// stands at about two fifths of the pool, the newest run from offset 0, and
// the space behind the last record before the end and the space behind the
// newest one are filler.  No record wraps after its length byte.
// Events come from a small simulation of six threads: context switches,
// service calls with plausible arguments, interrupts with their ends, user
// events, status changes and timer ticks.  Random choices use a fixed
// linear congruential generator, so every build writes the same bytes.
#include "example_dumps.h"

#include <cstdint>

#include "corefile_builder.h"
#include "test_random.h"

namespace testsupport {
namespace {

constexpr uint32_t kSlots = 512;
constexpr uint32_t kStartSlot = 317;
constexpr uint32_t kV1Records = 300;

struct SampleThread {
  const char *name;
  uint32_t id;
  uint32_t priority;
  uint8_t valid;
};

const SampleThread kThreads[] = {
    {"System Timer Thread", 0x20001A40, 0, 1},
    {"main", 0x20002100, 8, 1},
    {"sensor_poll", 0x200022C0, 12, 1},
    {"net_rx", 0x20002480, 10, 1},
    {"logger_with_a_rather_long_thread_name", 0x20002640, 20, 1},
    {"old_worker", 0x20002800, 16, 0},
    {"idle", 0x200029C0, 31, 1},
};
constexpr int kRunnable[] = {1, 2, 3, 4, 6}; /* valid threads that run */

/* Service calls a thread makes, with the object address they act on. */
struct Service {
  uint16_t subtype;
  uint32_t object;
};
const Service kServices[] = {
    {0x14, 0x20003000}, {0x15, 0x20003000}, {0x10, 0x20003100}, {0x11, 0x20003100},
    {0x2f, 0x20003200}, {0x32, 0x20003200}, {0x0a, 0x20003300}, {0x0b, 0x20003300},
    {0x1d, 0},          {0x21, 0},          {0x00, 0x20004000}, {0x03, 0x20004000},
    {0x04, 0x20005000}, {0x07, 0x20005000}, {0x23, 0x20003400}, {0x1a, 0},
    {0x34, 0x20003100}, {0x18, 0},
};

/* Suspensions that end a thread's turn, as type 5 subtypes. */
constexpr uint16_t kSuspensions[] = {4, 5, 6, 7, 13};

struct Event {
  uint16_t type;
  uint16_t subtype;
  uint32_t words[5];
};

std::vector<Event> SimulateEvents(size_t count) {
  Random random(0x5eed2024u);
  std::vector<Event> events;
  int running = 1;
  while (events.size() < count) {
    const SampleThread &thread = kThreads[running];
    switch (random.Below(10)) {
    case 0:
    case 1: { /* context switch to another thread */
      int next = kRunnable[random.Below(5)];
      if (next == running) next = 6;
      events.push_back({5, 0, {thread.id, thread.priority}});
      running = next;
      events.push_back({1, 0, {kThreads[running].id, kThreads[running].priority}});
      break;
    }
    case 2:
    case 3:
    case 4: { /* service call */
      const Service &service = kServices[random.Below(sizeof kServices / sizeof kServices[0])];
      events.push_back({3, service.subtype, {thread.id, service.object, random.Below(64), 0, 0}});
      break;
    }
    case 5: { /* interrupt and its end */
      const uint32_t vector = 16 + random.Below(8);
      events.push_back({2, 1, {vector}});
      if (random.Below(6) == 0) events.push_back({7, 0, {}});
      events.push_back({2, 3, {vector}});
      break;
    }
    case 6: /* user event */
      events.push_back({4, static_cast<uint16_t>(random.Below(4)), {thread.id, random.Next()}});
      break;
    case 7: /* timer */
      events.push_back({7, 0, {}});
      break;
    case 8: { /* thread suspends; another runs */
      const uint16_t why = kSuspensions[random.Below(5)];
      events.push_back({5, why, {thread.id, thread.priority}});
      running = running == 6 ? 1 : 6;
      events.push_back({5, 10, {kThreads[running].id, kThreads[running].priority}});
      events.push_back({1, 0, {kThreads[running].id, kThreads[running].priority}});
      break;
    }
    default: /* rare things: an unknown interrupt form, a priority change */
      if (random.Below(2) == 0) {
        events.push_back({2, 2, {0}});
      } else {
        events.push_back({3, 0x1a, {thread.id, thread.id, thread.priority}});
        events.push_back({5, 0, {thread.id, thread.priority}});
      }
      break;
    }
  }
  events.resize(count);
  return events;
}

void AddThreads(Corefile &core) {
  const size_t count = sizeof kThreads / sizeof kThreads[0];
  for (size_t i = 0; i < count; i++) {
    const SampleThread &thread = kThreads[i];
    core.Thread(thread.name, thread.id, thread.priority, thread.valid, i + 1 < count ? 1 : 0);
  }
}

std::string BuildDump(Endian order, const std::vector<Event> &events) {
  Corefile core = Corefile::V2(order, kSlots * 32);
  core.Location(0x20010000).StartOffset(kStartSlot * 32).TimerHz(1000000);
  AddThreads(core);
  Random gaps(0x71c4u);
  uint64_t time = (uint64_t{0x00000002} << 32) | 0xFFFF8000u;
  for (uint32_t i = 0; i < kSlots; i++) {
    const Event &event = events[i];
    const uint32_t slot = (kStartSlot + i) % kSlots;
    std::string payload;
    for (uint32_t word : event.words) payload += core.Word32(word);
    core.Slot(slot * 32, event.type, event.subtype, static_cast<uint32_t>(time >> 32),
              static_cast<uint32_t>(time), payload);
    time += 20 + gaps.Below(400);
  }
  return core.Bytes();
}

/* Payload words a version 1 record of each type carries: none for a timer
 * tick, so its length byte is 12. */
size_t V1PayloadWords(uint16_t type) {
  switch (type) {
  case 1: return 1; /* thread switched to */
  case 2: return 1; /* vector */
  case 3: return 3; /* caller, object, argument */
  case 4: return 2; /* thread, value */
  case 5: return 2; /* thread, priority */
  default: return 0;
  }
}

std::string BuildV1Dump(Endian order, const std::vector<Event> &events) {
  /* Room for every record with two filler bytes, the padding before the
   * wrap (less than one record) and some filler behind the newest. */
  uint32_t bytes = 0;
  for (const Event &event : events) bytes += 13 + 4 * V1PayloadWords(event.type) + 2;
  const uint32_t size = bytes + 64;
  const uint32_t oldest = size * 2 / 5;
  Corefile core = Corefile::V1(order, size);
  core.TimerHz(1000000).EQsize(size).Evploc(0x20010000).Qhead(0x20010000 + oldest);
  AddThreads(core);
  Random random(0xf111e7u);
  uint64_t time = (uint64_t{0x00000002} << 32) | 0xFFFF8000u;
  uint32_t offset = oldest;
  bool wrapped = false;
  for (const Event &event : events) {
    std::string payload;
    for (size_t i = 0; i < V1PayloadWords(event.type); i++) payload += core.Word32(event.words[i]);
    const uint32_t length = 13 + static_cast<uint32_t>(payload.size());
    if (!wrapped && offset + length > size) {
      offset = 0; /* the rest of the pool stays filler */
      wrapped = true;
    }
    core.Record(offset, event.type, event.subtype, static_cast<uint32_t>(time >> 32),
                static_cast<uint32_t>(time), payload);
    offset += length + random.Below(3);
    time += 20 + random.Below(400);
  }
  core.Qtail(0x20010000 + offset);
  return core.Bytes();
}

}  // namespace

std::vector<std::pair<std::string, std::string>> ExampleDumps() {
  const std::vector<Event> events = SimulateEvents(kSlots);
  const std::vector<Event> v1_events = SimulateEvents(kV1Records);
  return {{"sample_v2_big.core", BuildDump(Endian::kBig, events)},
          {"sample_v2_little.core", BuildDump(Endian::kLittle, events)},
          {"sample_v1_big.core", BuildV1Dump(Endian::kBig, v1_events)},
          {"sample_v1_little.core", BuildV1Dump(Endian::kLittle, v1_events)}};
}

}  // namespace testsupport
