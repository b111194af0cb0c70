// The one simulation of a ThreadX system behind the tests' large dumps, the
// benchmarks' and the shipped samples in examples/ (make_examples writes
// them; a test holds the committed ones to them): the running thread makes service
// calls, takes interrupts (each ended by the next event), logs user events
// and timer ticks, while threads change status and context switches hand
// the processor on.  Times rise by 1 to 40 ticks and cross a low-word
// boundary early.  A fixed seed per thread count gives the same events on
// every build, so results can be pinned.
#ifndef RAVELOG_TEST_SUPPORT_SIMULATED_DUMP_H
#define RAVELOG_TEST_SUPPORT_SIMULATED_DUMP_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "test_random.h"

namespace testsupport {

uint32_t SimulatedThreadId(uint32_t k);  // 0x20001000 + k * 0x1C0

struct SimulatedEvent {
  uint16_t type, subtype;
  uint64_t time;
  uint32_t words[5];  // the payload
};

class Simulation {
 public:
  explicit Simulation(uint32_t threads) : threads_(threads), random_(0x5eed0000u + threads) {}
  SimulatedEvent Next();

 private:
  uint32_t threads_;
  Random random_;
  uint64_t time_ = 0x00000000FFFF0000ull;
  uint32_t running_ = 0, vector_ = 0;
  bool inInterrupt_ = false;
};

// A version 2 dump whose pool holds exactly `events` slots, the ring wrapped
// with its oldest event a third of the way in, and `threads` valid threads.
struct DumpShape {
  uint32_t events = 0, threads = 0;
  bool bigEndian = true;
};
bool WriteSimulatedDump(const std::string &path, const DumpShape &shape);  // false when it can't be written
// The samples: file name and bytes, version 2 and 1, each in both byte orders.
std::vector<std::pair<std::string, std::string>> ExampleDumps();

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_SIMULATED_DUMP_H
