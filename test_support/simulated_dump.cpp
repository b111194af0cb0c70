// The simulation and the dumps of simulated_dump.h.  The samples: seven
// threads, one of them not valid.  Version 2: a ring of 512 slots that has
// wrapped, the oldest event in slot 317.  Version 1: 300 records of 12 to 24
// bytes, zero to two filler bytes between them, the oldest at two fifths of
// the pool, the newest from offset 0; the space before the wrap and behind
// the newest is filler, and no record wraps after its length byte.
#include "simulated_dump.h"

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

#include "corefile_builder.h"
#include "test_random.h"

namespace testsupport {

namespace {

uint32_t SimulatedThreadId(uint32_t k) { return 0x20001000u + k * 0x1C0u; }

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

Corefile WithThreads(Corefile core) {
  const char *names[] = {"System Timer Thread", "main", "sensor_poll", "net_rx",
                         "logger_with_a_rather_long_thread_name", "old_worker", "idle"};
  for (uint32_t k = 0; k < 7; k++) core.Thread(names[k], SimulatedThreadId(k), 1 + k * 5 % 31, k != 5, k < 6);
  return core.TimerHz(1000000);
}

// The payload words a record of each type keeps: none for a timer tick.
std::string Payload(const Corefile &core, const SimulatedEvent &e, bool version1) {
  std::string payload = core.Words({e.words[0], e.words[1], e.words[2], e.words[3], e.words[4]});
  return version1 ? payload.substr(0, 4 * (e.type == 3 ? 3 : e.type == 4 || e.type == 5 ? 2 : e.type < 3)) : payload;
}

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

std::string V2Dump(Endian order) {
  Corefile core = WithThreads(Corefile::V2(order, 512 * 32).Location(0x20010000).Start(317 * 32));
  Simulation simulation(7);
  for (uint32_t i = 0; i < 512; i++) {
    const SimulatedEvent e = simulation.Next();
    core.PoolBytes((317 + i) % 512 * 32, core.SlotBytes(e.type, e.subtype, e.time, Payload(core, e, false)));
  }
  return core.Bytes();
}

std::string V1Dump(Endian order) {
  Simulation simulation(7), sizing(7);
  uint32_t bytes = 64;  // every record with two filler bytes, the padding before the wrap, filler behind the newest
  for (int i = 0; i < 300; i++) bytes += static_cast<uint32_t>(13 + Payload(Corefile::V1(order), sizing.Next(), true).size() + 2);
  const uint32_t oldest = bytes * 2 / 5;
  Corefile core = WithThreads(Corefile::V1(order, bytes));
  Random filler(0xf111e7u);
  uint32_t at = oldest;
  bool wrapped = false;
  for (int i = 0; i < 300; i++) {
    const SimulatedEvent e = simulation.Next();
    const std::string payload = Payload(core, e, true);
    if (!wrapped && at + 13 + payload.size() > bytes) at = 0, wrapped = true;  // the rest of the pool stays filler
    core.Record(at, e.type, e.subtype, uint32_t(e.time >> 32), uint32_t(e.time), payload);
    at += 13 + static_cast<uint32_t>(payload.size()) + filler.Below(3);
  }
  return core.V1Words(bytes, 0x20010000, 0x20010000 + oldest, 0x20010000 + at).Bytes();
}

}  // namespace

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
    ok = fseek(file, static_cast<long>(head.size() + size_t{slot} * 32), SEEK_SET) == 0 &&
         fwrite(chunk.data(), 1, chunk.size(), file) == chunk.size();
    done += n;
  }
  return fclose(file) == 0 && ok;
}

std::vector<std::pair<std::string, std::string>> ExampleDumps() {
  return {{"sample_v2_big.core", V2Dump(Endian::kBig)}, {"sample_v2_little.core", V2Dump(Endian::kLittle)},
          {"sample_v1_big.core", V1Dump(Endian::kBig)}, {"sample_v1_little.core", V1Dump(Endian::kLittle)}};
}

}  // namespace testsupport
