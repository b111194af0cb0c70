// Test vocabulary for the trace buffer decoder: runs it on a corefile's bytes in this
// process, with the database points replaced by a recorder and gen_exit by
// an exception, and keeps what was handed over at each point.
#ifndef RAVELOG_TESTS_DECODE_FIXTURE_H
#define RAVELOG_TESTS_DECODE_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "gen_capture.h"
#include "ravelog.h"

namespace ravelogtest {

// One call of a database point, with the bytes it was handed.
struct Call {
  std::string point;  // "open", "thread", "event", "close"
  uint32_t high = 0, low = 0, typeWord = 0;
  std::string bytes = {};  // thread record, or event payload (its length is the length handed over)
  int32_t ticks = 0;        // open: ticks per second
};

inline std::vector<Call> *recording = nullptr;

inline void RecordOpen(const char *, int32_t ticks, uint8_t) {
  Call call{"open"};
  call.ticks = ticks;
  recording->push_back(call);
}
inline void RecordThread(const unsigned char *record) {
  Call call{"thread"};
  call.bytes.assign(reinterpret_cast<const char *>(record), CV_THREAD_RECORD_SIZE);
  recording->push_back(call);
}
inline void RecordEvent(uint32_t high, uint32_t low, uint32_t typeWord, const unsigned char *payload,
                        int length) {
  Call call{"event", high, low, typeWord};
  EXPECT_GE(length, 0);
  if (length > 0) call.bytes.assign(reinterpret_cast<const char *>(payload), static_cast<size_t>(length));
  recording->push_back(call);
}
inline void RecordClose() { recording->push_back(Call{"close"}); }

using Decoder = int (*)(FILE *stream, const char *KQfile, uint8_t bigEndian);

// Runs a decoder on a corefile's bytes with the points recorded.
class DecodeFixture : public testing::Test {
 protected:
  explicit DecodeFixture(Decoder decoder) : decoder_(decoder), name_("ravelog") {
    saved_ = cv_database;
    cv_database = {RecordOpen, RecordThread, RecordEvent, RecordClose};
    recording = &calls;
  }
  ~DecodeFixture() override {
    cv_database = saved_;
    recording = nullptr;
    debug = 0;
  }

  // Decodes bytes (a whole corefile; the stream starts at offset 2 and the
  // byte order follows byte 0) with lastTimeStamp at 0:0.
  testsupport::Captured Decode(const std::string &bytes, bool with_debug = false) {
    calls.clear();
    lastTimeStamp[0] = lastTimeStamp[1] = 0;
    debug = with_debug ? 1 : 0;
    std::string copy = bytes;
    FILE *stream = fmemopen(copy.data(), copy.size(), "rb");
    if (stream == nullptr) {
      ADD_FAILURE() << "no stream for the corefile";
      return {};
    }
    fseek(stream, 2, SEEK_SET);
    testsupport::Captured run =
        testsupport::RunCapturing([&] { decoder_(stream, "db", copy[0] == 0 ? 1 : 0); });
    fclose(stream);
    return run;
  }

  // "point" or "event@high:low/typeWord" for each call, in order; with
  // lengths, each event also shows "+length" of its payload.
  std::string Trace(bool with_lengths = false) const {
    std::string trace;
    for (const Call &call : calls) {
      if (!trace.empty()) trace += " ";
      trace += call.point;
      if (call.point == "event") {
        char text[64];
        snprintf(text, sizeof text, "@%x:%x/%x", call.high, call.low, call.typeWord);
        trace += text;
        if (with_lengths) trace += "+" + std::to_string(call.bytes.size());
      }
    }
    return trace;
  }

  std::vector<Call> calls;

 private:
  Decoder decoder_;
  testsupport::ScopedProgName name_;
  cv_DatabasePoints saved_;
};

}  // namespace ravelogtest

#endif  // RAVELOG_TESTS_DECODE_FIXTURE_H
