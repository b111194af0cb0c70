// The simulated dumps of simulated_dump.h.
#include "simulated_dump.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "test_random.h"

namespace testsupport {
namespace {

constexpr uint32_t kSlotSize = 32;
constexpr uint32_t kHeaderSize = 24;
constexpr uint32_t kThreadEntrySize = 44;

uint32_t ThreadId(uint32_t k) { return 0x20001000u + k * 0x1C0u; }

// Numbers in the dump's byte order.
class Writer {
 public:
  explicit Writer(bool big) : big_(big) {}
  void Put16(unsigned char *at, uint32_t v) const { Put(at, v, 2); }
  void Put32(unsigned char *at, uint32_t v) const { Put(at, v, 4); }

 private:
  void Put(unsigned char *at, uint32_t v, int n) const {
    for (int i = 0; i < n; i++) {
      const int shift = big_ ? 8 * (n - 1 - i) : 8 * i;
      at[i] = static_cast<unsigned char>(v >> shift);
    }
  }
  bool big_;
};

class Simulation {
 public:
  Simulation(uint32_t threads, const Writer &out)
      : threads_(threads), out_(out), random_(0x5eed0000u + threads) {}

  void NextSlot(unsigned char *slot) {
    memset(slot, 0, kSlotSize);
    time_ += 1 + random_.Below(40);
    uint32_t type = 0, subtype = 0;
    uint32_t words[5] = {ThreadId(running_), 0, 0, 0, 0};
    if (inInterrupt_) {
      type = 2;
      subtype = 3;
      words[0] = vector_;
      inInterrupt_ = false;
    } else {
      const uint32_t roll = random_.Below(100);
      if (roll < 40) {
        type = 3;
        subtype = random_.Below(59);
        words[1] = 0x20010000u + random_.Below(64) * 0x40u;
        words[2] = random_.Below(1000);
      } else if (roll < 55) {
        type = 2;
        subtype = 1;
        vector_ = 16 + random_.Below(32);
        words[0] = vector_;
        inInterrupt_ = true;
      } else if (roll < 65) {
        type = 4;
        subtype = random_.Below(8);
        words[1] = random_.Next();
      } else if (roll < 73) {
        type = 7;
      } else if (roll < 85) {
        type = 5;
        const uint32_t who = random_.Below(threads_);
        words[0] = ThreadId(who);
        subtype = random_.Below(3) == 0 ? 0 : 4 + random_.Below(10);
        words[1] = 1 + who % 31;
      } else {
        type = 1;
        running_ = random_.Below(threads_);
        words[0] = ThreadId(running_);
      }
    }
    out_.Put16(slot, type);
    out_.Put16(slot + 2, subtype);
    out_.Put32(slot + 4, static_cast<uint32_t>(time_ >> 32));
    out_.Put32(slot + 8, static_cast<uint32_t>(time_));
    for (int i = 0; i < 5; i++) out_.Put32(slot + 12 + 4 * i, words[i]);
  }

 private:
  uint32_t threads_;
  const Writer &out_;
  Random random_;
  uint64_t time_ = 0x00000000FFFF0000ull;
  uint32_t running_ = 0;
  bool inInterrupt_ = false;
  uint32_t vector_ = 0;
};

}  // namespace

bool WriteSimulatedDump(const std::string &path, const DumpShape &shape) {
  if (shape.events == 0 || shape.threads == 0) return false;
  const Writer out(shape.bigEndian);
  const uint32_t poolSize = shape.events * kSlotSize;
  const uint32_t start = shape.events / 3;  // slot of the oldest event
  std::vector<unsigned char> head(kHeaderSize + shape.threads * kThreadEntrySize, 0);
  out.Put16(&head[0], 2);
  out.Put16(&head[2], shape.threads);
  out.Put32(&head[4], poolSize);
  out.Put32(&head[8], shape.events);
  out.Put32(&head[12], 0x40000000u);
  out.Put32(&head[16], 0x40000000u + start * kSlotSize);
  out.Put32(&head[20], 1000000);
  for (uint32_t k = 0; k < shape.threads; k++) {
    unsigned char *entry = &head[kHeaderSize + k * kThreadEntrySize];
    snprintf(reinterpret_cast<char *>(entry), 34, "worker_thread_%u", k);
    entry[34] = 1;
    out.Put32(entry + 36, ThreadId(k));
    out.Put32(entry + 40, 1 + k % 31);
  }
  FILE *file = fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  bool ok = fwrite(head.data(), 1, head.size(), file) == head.size();

  /* The pool in walk order, a chunk at a time, each chunk at its place in
   * the ring, so that memory stays small for dumps of any size. */
  Simulation simulation(shape.threads, out);
  constexpr uint32_t kChunkSlots = 1 << 16;
  std::vector<unsigned char> chunk(size_t{kChunkSlots} * kSlotSize);
  for (uint32_t done = 0; ok && done < shape.events;) {
    const uint32_t slot = (start + done) % shape.events;
    const uint32_t n = std::min({kChunkSlots, shape.events - done, shape.events - slot});  // up to the wrap
    for (uint32_t i = 0; i < n; i++) simulation.NextSlot(&chunk[size_t{i} * kSlotSize]);
    const long at = static_cast<long>(head.size() + size_t{slot} * kSlotSize);
    ok = fseek(file, at, SEEK_SET) == 0 && fwrite(chunk.data(), kSlotSize, n, file) == n;
    done += n;
  }
  return fclose(file) == 0 && ok;
}

}  // namespace testsupport
