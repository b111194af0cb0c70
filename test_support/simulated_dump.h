// Large version 2 dumps for tests of whole conversions: a simulated ThreadX
// system whose running thread makes service calls, takes interrupts (each
// ended by the next slot), logs user events and timer ticks, while threads
// change status and context switches hand the processor on.  Times rise by
// 1 to 40 ticks a slot and cross a low-word boundary early; the ring has
// wrapped, its oldest event a third of the way into the pool.  A fixed seed
// per shape makes every build write the same bytes, so expected results
// can be pinned.
#ifndef RAVELOG_TEST_SUPPORT_SIMULATED_DUMP_H
#define RAVELOG_TEST_SUPPORT_SIMULATED_DUMP_H

#include <cstdint>
#include <string>

namespace testsupport {

struct DumpShape {
  uint32_t events = 0;   // full slots; the pool holds exactly these
  uint32_t threads = 0;  // valid thread list entries, ids 0x20001000 + k * 0x1C0
  bool bigEndian = true;
};

// Writes the dump to path; false when the file can't be written.
bool WriteSimulatedDump(const std::string &path, const DumpShape &shape);

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_SIMULATED_DUMP_H
