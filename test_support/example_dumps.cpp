// The sample dumps of example_dumps.h, from the one simulation
// (simulated_dump.h) of seven threads, one of them not valid.  Version 2: a
// ring of 512 slots that has wrapped, the oldest event in slot 317.
// Version 1: 300 records of 12 to 24 bytes, zero to two filler bytes between
// them, the oldest at two fifths of the pool, the newest from offset 0; the
// space before the wrap and behind the newest is filler, and no record
// wraps after its length byte.
#include "example_dumps.h"

#include "corefile_builder.h"
#include "simulated_dump.h"

namespace testsupport {
namespace {

Corefile WithThreads(Corefile core) {
  const char *names[] = {"System Timer Thread", "main", "sensor_poll", "net_rx", "logger_with_a_rather_long_thread_name", "old_worker", "idle"};
  for (uint32_t k = 0; k < 7; k++) core.Thread(names[k], SimulatedThreadId(k), 1 + k * 5 % 31, k != 5, k < 6);
  return core.TimerHz(1000000);
}

// The payload words a record of each type keeps: none for a timer tick.
std::string Payload(const Corefile &core, const SimulatedEvent &e, bool version1) {
  std::string payload = core.Words({e.words[0], e.words[1], e.words[2], e.words[3], e.words[4]});
  return version1 ? payload.substr(0, 4 * (e.type == 3 ? 3 : e.type == 4 || e.type == 5 ? 2 : e.type < 3)) : payload;
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

std::vector<std::pair<std::string, std::string>> ExampleDumps() {
  return {{"sample_v2_big.core", V2Dump(Endian::kBig)}, {"sample_v2_little.core", V2Dump(Endian::kLittle)},
          {"sample_v1_big.core", V1Dump(Endian::kBig)}, {"sample_v1_little.core", V1Dump(Endian::kLittle)}};
}

}  // namespace testsupport
