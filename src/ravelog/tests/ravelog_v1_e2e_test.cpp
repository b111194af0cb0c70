// End-to-end tests of version 1 logs against the model: pools rising, filled
// exactly, wrapped in the middle or after a length byte; the drop test and
// reversals; a long random ring in both byte orders; refusals.
#include <gtest/gtest.h>

#include "ravelog_run.h"

using namespace ravelogtest;

namespace {

const std::string kMain = "  1    0      10    0x00001234 main\n";
const std::string kBadRecord = "ravelog: fatal: Bad event record at offset ";

// The database (1000 Hz) after these records, in the order sent.
DatabaseFiles Sent(const Corefile &core, const Script &records) { return ThreadXLog(core.big(), records).Files(1000); }
Event MainRecord(const Corefile &core) { return {0, 6, 10, core.Words({0x1234, 10}) + "main" + std::string(27, '\0')}; }

Corefile Rising() {  // three records from offset 0, zero bytes behind them
  Corefile core = Corefile::V1(Endian::kLittle, 64).Thread("main", 0x1234, 10);
  return core.Append(4, 0, 0, 0x100, core.Words({0x1234})).Append(7, 0, 0, 0x180).Append(3, 0x14, 0, 0x1f0, core.Words({0x1234, 7}));
}
// Newer records at offsets 0 and 17, filler, the oldest at 32, two more, filler.
Corefile Wrapped(Endian order) {
  Corefile core = Corefile::V1(order, 88).Thread("main", 0x1234, 10).Thread("idle", 0x2000, 31, 0, 1);
  core.Append(1, 0, 0, 0x300, core.Words({0x1234})).Append(7, 0, 0, 0x310).Record(32, 3, 0x14, 0, 0x100, core.Words({0x1234, 2}));
  return core.Append(5, 4, 0, 0x180, core.Words({0x1234, 10})).Append(7, 0, 0, 0x200);
}
std::string WrappedListing(const char *task) {
  return kThreadHeading + kMain + "  0    1      31    0x00002000 idle\nEvent (Type 1:0) time was: 0:300\n"
         "Event (Type 7:0) time was: 0:310\nBreaking out of loop.\nStarttime is 0:100.\n" + kEventsHeading +
         "Sending event of type 0x3:0x14 time 0:0\nSending event of type 0x5:0x4 time 0:80\n"
         "Sending event of type 0x7:0x0 time 0:100\nSending event of type 0x1:0x0 time 0:200\n"
         "Context Switch to task " + task + ".\nSending event of type 0x7:0x0 time 0:210\n";
}

TEST(Version1, PoolsThatDecodeListAndStoreTheRecordsOfOneLapFromTheOldest) {
  const Corefile rising = Rising();
  const DatabaseFiles risingFiles = Sent(rising, {MainRecord(rising), {0, 4, 0, rising.Words({0x1234})}, {0x80, 7, 0},
                                                  {0xf0, 3, 0x14, rising.Words({0x1234, 7})}});
  ExpectConversion(rising.Bytes(), true,
                   {kThreadHeading + kMain + "Event (Type 4:0) time was: 0:100\nEvent (Type 7:0) time was: 0:180\n"
                        "Event (Type 3:20) time was: 0:1f0\nStarttime is 0:100.\n" + kEventsHeading +
                        "Sending event of type 0x4:0x0 time 0:0\nSending event of type 0x7:0x0 time 0:80\n"
                        "Sending event of type 0x3:0x14 time 0:f0\n", "", 0, risingFiles});
  ExpectConversion(rising.Bytes(), false, {"", "", 0, risingFiles});
  Corefile exact = Corefile::V1(Endian::kBig, 47);  // filled exactly: walked from its start
  exact.Append(1, 0, 5, 0xfffffff0u, exact.Words({0x20002100})).Append(2, 1, 6, 0x10, exact.Words({0x13})).Append(7, 0, 6, 0x20);
  ExpectConversion(exact.Bytes(), true,
                   {kThreadHeading + "Event (Type 1:0) time was: 5:fffffff0\nEvent (Type 2:1) time was: 6:10\n"
                        "Event (Type 7:0) time was: 6:20\nStarttime is 5:fffffff0.\n" + kEventsHeading +
                        "Sending event of type 0x1:0x0 time 0:0\nContext Switch to task 20002100.\n"
                        "Sending event of type 0x2:0x1 time 0:20\nSending event of type 0x7:0x0 time 0:30\n", "", 0,
                    Sent(exact, {{0, 1, 0, exact.Words({0x20002100})}, {0x20, 2, 1, exact.Words({0x13})}, {0x30, 7, 0}})});
  for (Endian order : {Endian::kBig, Endian::kLittle}) {  // the switch line shows the bytes as they stand
    const Corefile core = Wrapped(order);
    ExpectConversion(core.Bytes(), true,
                     {WrappedListing(order == Endian::kBig ? "00001234" : "34120000"), "", 0,
                      Sent(core, {MainRecord(core), {0, 3, 0x14, core.Words({0x1234, 2})}, {0x80, 5, 4, core.Words({0x1234, 10})},
                                  {0x100, 7, 0}, {0x200, 1, 0, core.Words({0x1234})}, {0x210, 7, 0}})});
  }
  // The scan reads the head of a record that wraps after its length byte
  // (at 63) as two short records and is back in step at 16.
  Corefile last = Corefile::V1(Endian::kBig, 64).Record(63, 4, 0, 0, 4, Word(0x1234, true));
  last.Append(1, 0, 0, 0x50000, last.Words({0x1234})).Record(36, 2, 1, 0, 1).Append(3, 0x16, 0, 2, "\xab");
  ExpectConversion(last.Bytes(), true,
                   {kThreadHeading + "Event (Type 0:0) time was: 0:40000\nEvent (Type 0:4660) time was: 10000100:0\n"
                        "Event (Type 1:0) time was: 0:50000\nBreaking out of loop.\nStarttime is 0:1.\n" + kEventsHeading +
                        "Sending event of type 0x2:0x1 time 0:0\nSending event of type 0x3:0x16 time 0:1\n"
                        "Sending event of type 0x4:0x0 time 0:3\nSending event of type 0x1:0x0 time 0:4ffff\n"
                        "Context Switch to task 00001234.\n", "", 0,
                    Sent(last, {{0, 2, 1}, {1, 3, 0x16, "\xab"}, {3, 4, 0, Word(0x1234, true)}, {0x4ffff, 1, 0, Word(0x1234, true)}})});
  Corefile shortSwitch = Corefile::V1(Endian::kBig, 28).Append(1, 0, 0, 1).Append(1, 0, 0, 2, "\xab\xcd");  // to the pool's end
  ExpectConversion(shortSwitch.Bytes(), true,
                   {kThreadHeading + "Event (Type 1:0) time was: 0:1\nEvent (Type 1:0) time was: 0:2\nStarttime is 0:1.\n" +
                        kEventsHeading + "Sending event of type 0x1:0x0 time 0:0\nContext Switch to task 00000000.\n"
                        "Sending event of type 0x1:0x0 time 0:1\nContext Switch to task abcd0000.\n", "", 0,
                    Sent(shortSwitch, {{0, 1, 0}, {1, 1, 0, "\xab\xcd"}})});
}

TEST(Version1, TheDropIsJudgedAgainstTheFirstRecordAndLaterFallsAreReversals) {
  Corefile core = Corefile::V1(Endian::kBig, 80);
  core.Append(4, 0, 0, 0x100).Append(4, 1, 0, 0x300).Append(4, 2, 0, 0x200).Append(4, 3, 0, 0x50).Append(4, 4, 0, 0x80);
  const std::string reversal = "Error: Timestamp reverses from 0x0:2b0 to 0x0:1b0 \n\tfor event of type 0x4:0x2.\n";
  const DatabaseFiles files = Sent(core, {{0, 4, 3}, {0x30, 4, 4}, {0xb0, 4, 0}, {0x2b0, 4, 1}, {0x2b0, 4, 2}});
  ExpectConversion(core.Bytes(), true,
                   {kThreadHeading + "Event (Type 4:0) time was: 0:100\nEvent (Type 4:1) time was: 0:300\n"
                        "Event (Type 4:2) time was: 0:200\nBreaking out of loop.\nStarttime is 0:50.\n" + kEventsHeading +
                        "Sending event of type 0x4:0x3 time 0:0\nSending event of type 0x4:0x4 time 0:30\n"
                        "Sending event of type 0x4:0x0 time 0:b0\nSending event of type 0x4:0x1 time 0:2b0\n" + reversal +
                        "Sending event of type 0x4:0x2 time 0:2b0\n", "", 0, files});
  ExpectConversion(core.Bytes(), false, {reversal, "", 0, files});
  Corefile zero = Corefile::V1(Endian::kLittle, 60).Append(4, 0, 0, 0).Append(4, 1, 0, 0x10).Append(4, 2, 0, 0x20);
  const uint64_t huge = 0xfffffffffffffff0;  // below the start, which the next record sets
  ExpectConversion(zero.Bytes(), false,
                   {"Error: Timestamp reverses from 0xffffffff:fffffff0 to 0x0:0 \n\tfor event of type 0x4:0x1.\n"
                    "Error: Timestamp reverses from 0xffffffff:fffffff0 to 0x0:10 \n\tfor event of type 0x4:0x2.\n",
                    "", 0, Sent(zero, {{huge, 4, 0}, {huge, 4, 1}, {huge, 4, 2}})});
}

TEST(Version1, ALongWrappedRingOfRandomRecordsIsStoredAsTheModelSaysInBothByteOrders) {
  const uint32_t ids[] = {0x20001000, 0x20002000, 0x20004000, 0x30000001, 0x30000002};
  for (Endian order : {Endian::kBig, Endian::kLittle}) {
    Random random(4711);  // every type, payloads of 0 to 243 bytes, zero bytes between records now and then
    Corefile core = Corefile::V1(order, 9000).Thread("main", ids[0], 8).Thread("gone", ids[1], 4, 0);
    core.Thread("name_with_exactly_thirty_one_ch", ids[2], 3);
    Script sent = {{0, 6, 10, core.Words({ids[0], 8}) + "main" + std::string(27, '\0')},
                   {0, 6, 10, core.Words({ids[2], 3}) + "name_with_exactly_thirty_one_ch"}};
    const uint64_t first = 0x1FFFFF000ull;  // crosses a low-word boundary
    uint32_t at = 3000;                     // the oldest; the ring wraps to 0 and stops short of it
    bool wrapped = false;
    for (uint64_t time = first;; time += 1 + random.Below(90)) {
      const auto type = static_cast<uint16_t>(1 + random.Below(7)), subtype = static_cast<uint16_t>(random.Below(14));
      std::string payload = core.Words({ids[random.Below(5)], random.Below(3) * 4}) +
                            std::string("sensor_renamed_with_a_name_longer_than_its_field").substr(0, random.Below(45));
      payload.resize(random.Below(5) == 0 ? random.Below(static_cast<uint32_t>(payload.size()) + 1) : payload.size());
      if (random.Below(40) == 0) payload = std::string(243, static_cast<char>(random.Next()));
      const auto size = static_cast<uint32_t>(13 + payload.size());
      if (!wrapped && at + size > 9000) at = 0, wrapped = true;  // the rest is zero bytes
      if (wrapped && at + size >= 3000) break;
      core.Record(at, type, subtype, uint32_t(time >> 32), uint32_t(time), payload);
      sent.push_back({time - first, type, subtype, payload});
      at += size + random.Below(3);
    }
    ASSERT_GT(sent.size(), 200u);
    ExpectConversion(core.Bytes(), false, {"", "", 0, Sent(core, sent)});
  }
}

TEST(Version1, RecordsThatDontFitThePoolAreRefusedWithTheDatabaseAsItStood) {
  const Corefile rising = Rising();
  const std::string whole = rising.Bytes();  // 28 + 44 + 64 bytes
  Corefile low = Corefile::V1(Endian::kBig, 32).Append(4, 0, 0, 0x10).Append(4, 1, 0, 5, "", 5);
  Corefile scan = Corefile::V1(Endian::kLittle, 40).Append(4, 0, 0, 0x10).Record(20, 4, 1, 0, 0x20, "", 30);
  Corefile walk = Corefile::V1(Endian::kBig, 48).Append(4, 0, 0, 0x100).Append(4, 1, 0, 0x50).Append(4, 2, 0, 0x60, "", 30);
  Corefile lap = Corefile::V1(Endian::kBig, 64);  // a record whose head says it runs round past the walk's start
  lap.Record(63, 0, 0, 0, 0x0c, lap.Words({0, 0, 0x200}) + "\x0c" + lap.Word16(2) + lap.Word16(0) + lap.Words({0, 0x10}));
  const Corefile none = Corefile::V1(Endian::kBig, 0).Thread("main", 0x1234, 10);
  const std::string scanned = "Event (Type 4:0) time was: 0:10\n";
  const std::tuple<std::string, std::string, std::string, std::optional<DatabaseFiles>> rows[] = {
      {whole.substr(0, 3), "", "ravelog: fatal: Error reading short from corefile.\n", std::nullopt},
      {whole.substr(0, 27), "", "ravelog: fatal: Error reading int4 from corefile.\n", std::nullopt},
      {whole.substr(0, 62), kThreadHeading, "ravelog: fatal: Error reading char from corefile.\n", Sent(rising, {})},
      {whole.substr(0, 72), kThreadHeading + kMain, "ravelog: fatal: Error reading in event pool.\n", Sent(rising, {MainRecord(rising)})},
      {low.Bytes(), kThreadHeading + scanned + "Breaking out of loop.\nStarttime is 0:5.\n" + kEventsHeading,
       kBadRecord + "13 of the event pool: its length 5 is below 12.\n" + kVerify, Sent(low, {})},
      {Corefile::V1(Endian::kLittle, 32).Append(4, 0, 0, 0x10).PoolBytes(31, "\x0c").Bytes(), kThreadHeading + scanned,
       kBadRecord + "31 of the event pool: it runs past the end of the pool of 32 bytes.\n" + kVerify, Sent(scan, {})},
      {Corefile::V1(Endian::kLittle, 32).Append(4, 0, 0, 0x10).PoolBytes(20, "\x0c").Bytes(), kThreadHeading + scanned,
       kBadRecord + "20 of the event pool: it runs past the end of the pool of 32 bytes.\n" + kVerify, Sent(scan, {})},
      {scan.Bytes(), kThreadHeading + scanned,
       kBadRecord + "20 of the event pool: it runs past the end of the pool of 40 bytes.\n" + kVerify, Sent(scan, {})},
      {walk.Bytes(), kThreadHeading + "Event (Type 4:0) time was: 0:100\nBreaking out of loop.\nStarttime is 0:50.\n" +
                         kEventsHeading + "Sending event of type 0x4:0x1 time 0:0\n",
       kBadRecord + "26 of the event pool: it runs past the end of the pool of 48 bytes.\n" + kVerify, Sent(walk, {{0, 4, 1}})},
      {lap.Bytes(), kThreadHeading + "Event (Type 0:0) time was: 0:200\nBreaking out of loop.\nStarttime is 0:10.\n" +
                        kEventsHeading + "Sending event of type 0x2:0x0 time 0:0\n",
       kBadRecord + "63 of the event pool: it runs past offset 24, where the oldest part of the ring begins.\n" + kVerify,
       Sent(lap, {{0, 2, 0}})},
      {none.Bytes(), kThreadHeading + kMain + "Starttime is 0:0.\n" + kEventsHeading,
       "ravelog: fatal: Bad event pool size 0 in core file.  It holds no byte to read.\n" + kVerify, Sent(none, {MainRecord(none)})}};
  for (const auto &[bytes, out, err, files] : rows) ExpectConversion(bytes, true, {out, err, 1, files});
}

}  // namespace
