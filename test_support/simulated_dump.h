// The one simulation of a ThreadX system behind the tests' large dumps, the
// benchmarks' and the samples in examples/ (make_examples writes them, a test
// holds the committed ones to them): service calls, interrupts, user events,
// timer ticks, status changes and context switches, times rising across a
// low word.  A fixed seed per thread count gives the same events on every build.
#ifndef RAVELOG_TEST_SUPPORT_SIMULATED_DUMP_H
#define RAVELOG_TEST_SUPPORT_SIMULATED_DUMP_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace testsupport {

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
