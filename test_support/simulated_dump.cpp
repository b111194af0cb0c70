// The simulation and the dumps of simulated_dump.h.
#include "simulated_dump.h"

#include <algorithm>
#include <cstdio>

#include "corefile_builder.h"

namespace testsupport {

uint32_t SimulatedThreadId(uint32_t k) { return 0x20001000u + k * 0x1C0u; }

SimulatedEvent Simulation::Next() {
  SimulatedEvent e{0, 0, time_ += 1 + random_.Below(40), {SimulatedThreadId(running_), 0, 0, 0, 0}};
  const uint32_t roll = inInterrupt_ ? 100 : random_.Below(100);
  if (inInterrupt_) {  // the interrupt's end
    e.type = 2, e.subtype = 3, e.words[0] = vector_, inInterrupt_ = false;
  } else if (roll < 40) {  // a service call on an object
    e.type = 3, e.subtype = static_cast<uint16_t>(random_.Below(59));
    e.words[1] = 0x20010000u + random_.Below(64) * 0x40u;
    e.words[2] = random_.Below(1000);
  } else if (roll < 55) {
    e.type = 2, e.subtype = 1, vector_ = 16 + random_.Below(32), e.words[0] = vector_, inInterrupt_ = true;
  } else if (roll < 65) {
    e.type = 4, e.subtype = static_cast<uint16_t>(random_.Below(8)), e.words[1] = random_.Next();
  } else if (roll < 73) {
    e.type = 7;
  } else if (roll < 85) {  // a thread's status: ready or one of the suspensions
    const uint32_t who = random_.Below(threads_);
    e.type = 5, e.words[0] = SimulatedThreadId(who);
    e.subtype = static_cast<uint16_t>(random_.Below(3) == 0 ? 0 : 4 + random_.Below(10));
    e.words[1] = 1 + who % 31;
  } else {
    e.type = 1, running_ = random_.Below(threads_), e.words[0] = SimulatedThreadId(running_);
  }
  return e;
}

bool WriteSimulatedDump(const std::string &path, const DumpShape &shape) {
  if (shape.events == 0 || shape.threads == 0) return false;
  const uint32_t start = shape.events / 3;  // the slot of the oldest event
  Corefile core = Corefile::V2(shape.bigEndian ? Endian::kBig : Endian::kLittle, 0);
  core.Evps(shape.events * 32).Capacity(shape.events).Location(0x40000000u).Start(start * 32).TimerHz(1000000);
  for (uint32_t k = 0; k < shape.threads; k++) core.Thread("worker_thread_" + std::to_string(k), SimulatedThreadId(k), 1 + k % 31);
  FILE *file = fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  const std::string head = core.Head();
  bool ok = fwrite(head.data(), 1, head.size(), file) == head.size();
  // The pool in walk order, a chunk at a time, each at its place in the
  // ring, so that memory stays small for dumps of any size.
  Simulation simulation(shape.threads);
  for (uint32_t done = 0; ok && done < shape.events;) {
    const uint32_t slot = (start + done) % shape.events;
    const uint32_t n = std::min({1u << 16, shape.events - done, shape.events - slot});  // up to the wrap
    std::string chunk;
    for (uint32_t i = 0; i < n; i++) {
      const SimulatedEvent e = simulation.Next();
      chunk += core.SlotBytes(e.type, e.subtype, e.time, core.Words({e.words[0], e.words[1], e.words[2], e.words[3], e.words[4]}));
    }
    ok = fseek(file, static_cast<long>(head.size() + size_t{slot} * 32), SEEK_SET) == 0 && fwrite(chunk.data(), 1, chunk.size(), file) == chunk.size();
    done += n;
  }
  return fclose(file) == 0 && ok;
}

}  // namespace testsupport
