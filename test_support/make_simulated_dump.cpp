// make_simulated_dump FILE EVENTS THREADS: writes one simulated dump
// (simulated_dump.h) of that shape, for tests that run the built programs on
// a large recording.
#include <cstdio>
#include <cstdlib>

#include "simulated_dump.h"

int main(int argc, char **argv) {
  if (argc != 4 || atol(argv[2]) <= 0 || atol(argv[3]) <= 0) {
    fprintf(stderr, "usage: %s FILE EVENTS THREADS\n", argc > 0 ? argv[0] : "make_simulated_dump");
    return 1;
  }
  const testsupport::DumpShape shape{static_cast<uint32_t>(atol(argv[2])),
                                     static_cast<uint32_t>(atol(argv[3])), true};
  if (!testsupport::WriteSimulatedDump(argv[1], shape)) {
    fprintf(stderr, "make_simulated_dump: can't write %s\n", argv[1]);
    return 1;
  }
  return 0;
}
