// kqv run as a program on databases that ravelog writes from the sample
// dumps and from simulated ones: each subcommand's JSON held against the
// library's own answers (and the running times against a replay of the
// event lists), a few text outputs pinned, the command line's errors, the
// check on damage, and follow beside a conversion running in another
// process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "database_script.h"
#include "indgeninit.h"
#include "kq_io.h"
#include "kq_names.h"
#include "kq_state.h"
#include "run_process.h"
#include "simulated_dump.h"
#include "temp_dir.h"
#include "test_random.h"

namespace {

using testsupport::ProcessResult;
using testsupport::ReadFileBytes;
using testsupport::RunProcess;
using testsupport::TempDir;

ProcessResult Kqv(const std::vector<std::string> &args) {
  std::vector<std::string> argv{"kqv"};
  argv.insert(argv.end(), args.begin(), args.end());
  return RunProcess(KQV_BINARY, argv);
}

std::vector<std::string> Lines(const std::string &text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The raw text of key's value in a JSON line written by kqv (no nesting
// before the key): a number, null, or a string with its quotes.
std::string Field(const std::string &line, const std::string &key) {
  const std::string marker = "\"" + key + "\":";
  const size_t at = line.find(marker);
  if (at == std::string::npos) return "<missing>";
  size_t end = at + marker.size();
  if (line[end] == '"') {
    end = line.find('"', end + 1) + 1;
  } else {
    while (end < line.size() && line[end] != ',' && line[end] != '}') end++;
  }
  return line.substr(at + marker.size(), end - at - marker.size());
}

uint64_t Number(const std::string &line, const std::string &key) {
  return std::stoull(Field(line, key));
}

std::string Hex(const uint8_t *bytes, uint32_t n) {
  std::string out;
  char pair[3];
  for (uint32_t i = 0; i < n; i++) {
    snprintf(pair, sizeof pair, "%02x", bytes[i]);
    out += pair;
  }
  return out;
}

// Every event of the database through the list interface, with the state
// after each.
struct Listed {
  uint64_t time;
  uint16_t type, subtype;
  std::string payload;
  std::map<uint32_t, bool> running;  // Tasks after the event: id -> runs
};

std::vector<Listed> ListAll(kq_DB *db) {
  std::vector<Listed> all;
  kq_State *state = nullptr;
  List_PT list = kq_GetNEventsAndStateFromEventNum(db, 0, 0, &state);
  for (ListIter_PT it = List_Begin(list, 0); it != List_End(list, 1); ListIter_Next(&it, 1)) {
    void *value = nullptr;
    ListIter_GetValue(it, &value);
    const auto *e = static_cast<const kq_Event *>(value);
    kq_UpdateStateFromStateAndEvent(state, e);
    Listed listed{e->time, e->type, e->subtype, Hex(e->data, e->length), {}};
    HT_ForEach(
        state->table,
        [](void *key, void *, void *out) {
          const auto *o = static_cast<const kq_StateObject *>(key);
          (*static_cast<std::map<uint32_t, bool> *>(out))[o->id] =
              o->length >= 3 && o->value[2] == 1 && o->value[0] == 0 && o->value[1] == 3;
          return 1;
        },
        &listed.running);
    all.push_back(listed);
  }
  List_Delete(list);
  kq_DeleteState(state);
  return all;
}

class KqvTest : public ::testing::Test {
 protected:
  TempDir dir;

  // Converts dump with ravelog into dir/name and returns the base name.
  std::string Convert(const std::string &dump, const std::string &name) {
    const std::string base = dir.file(name);
    const ProcessResult run = RunProcess(RAVELOG_BINARY, {"ravelog", dump, base});
    EXPECT_EQ(run.status, 0) << run.err;
    return base;
  }

  std::vector<std::string> Databases() {
    std::vector<std::string> bases;
    const std::string examples = std::string(getenv("RAVELOG_SOURCE_DIR")) + "/examples/";
    for (const char *sample : {"sample_v2_big", "sample_v1_little"}) {
      bases.push_back(Convert(examples + sample + ".core", sample));
    }
    const std::string dump = dir.file("sim.core");
    EXPECT_TRUE(testsupport::WriteSimulatedDump(dump, {2500, 9, false}));
    bases.push_back(Convert(dump, "sim"));
    return bases;
  }

  // The simulated dump with a 48 MHz clock, whose ticks are fractions of a
  // microsecond.
  std::string Clock48MHz() {
    const std::string dump = dir.file("sim48.core");
    EXPECT_TRUE(testsupport::WriteSimulatedDump(dump, {2500, 9, false}));
    std::string bytes = ReadFileBytes(dump);
    bytes.replace(20, 4, std::string("\x00\x6c\xdc\x02", 4));  // ticks per second, little-endian
    EXPECT_TRUE(testsupport::WriteFileBytes(dump, bytes));
    return Convert(dump, "sim48");
  }

  // A database written through the library whose Task values the status
  // walk of stats and exports must follow as the state model does: a Mod
  // past the value's end and a New of an object that exists change nothing,
  // and a value too short to hold its fields has no known status.
  std::string Scripted() {
    using testsupport::Del, testsupport::Mod, testsupport::New;
    const std::string running = std::string("\x00\x03\x01", 3) + std::string(KQ_TASK_VALUE_SIZE - 3, '\0');
    const std::string ready = std::string("\x00\x00\x01", 3) + std::string(KQ_TASK_VALUE_SIZE - 3, '\0');
    const std::string cut("\x00\x03\x01", 3);  // too short for its fields to be known
    static const testsupport::Script script = {
        {10, 1, 0, "", {New(KQ_TYPE_TASK, 1, running), New(KQ_TYPE_TASK, 2, ready)}},
        {20, 3, 1, "", {Mod(KQ_TYPE_TASK, 1, 0, std::string("\x00\x05\x01", 3) + std::string(KQ_TASK_VALUE_SIZE - 2, 0))}},
        {30, 3, 1, "", {New(KQ_TYPE_TASK, 2, running)}},
        {40, 3, 2, "", {Mod(KQ_TYPE_TASK, 2, 0, std::string("\x00\x03", 2))}},
        {50, 3, 3, "", {Del(KQ_TYPE_TASK, 1)}},
        {55, 1, 0, "", {New(KQ_TYPE_TASK, 3, cut)}},
        {60, 1, 0, "", {}}};
    const std::string base = dir.file("scripted");
    testsupport::ScriptWriter writer(base, script);
    EXPECT_TRUE(writer.ok() && writer.AddAll());
    return base;
  }
};

// ---- Each subcommand against the library --------------------------------------------------

TEST_F(KqvTest, JsonOutputAgreesWithTheLibrary) {
  for (const std::string &base : Databases()) {
    SCOPED_TRACE(base);
    kq_DB *db = kq_OpenForUse(base.c_str());
    ASSERT_NE(db, nullptr);
    uint64_t start = 0, end = 0;
    uint32_t count = 0;
    kq_GetTimeExtent(db, &start, &end);
    kq_GetStartEventAndNumEvents(db, nullptr, &count);
    const std::vector<Listed> all = ListAll(db);
    ASSERT_EQ(all.size(), count);

    const std::string info = Kqv({"info", "--json", base}).out;
    EXPECT_EQ(Number(info, "events"), count);
    EXPECT_EQ(Number(info, "blocks"), (count + 99) / 100);
    EXPECT_EQ(Number(info, "threads"), all.back().running.size());
    EXPECT_EQ(Number(info, "start"), start);
    EXPECT_EQ(Number(info, "end"), end);
    EXPECT_EQ(Number(info, "ticks_per_second"), kq_GetNumTicksPerSecond(db));
    EXPECT_EQ(Field(info, "byte_order"), kq_IsBigEndian(db) ? "\"big\"" : "\"little\"");
    EXPECT_EQ(Field(info, "config"), "\"threadx\"");

    const std::vector<std::string> events = Lines(Kqv({"events", "--json", base}).out);
    ASSERT_EQ(events.size(), all.size());
    for (size_t n = 0; n < all.size(); n++) {
      ASSERT_EQ(Number(events[n], "n"), n);
      ASSERT_EQ(Number(events[n], "time"), all[n].time);
      ASSERT_EQ(Number(events[n], "type") * 65536 + Number(events[n], "subtype"),
                all[n].type * 65536u + all[n].subtype);
      ASSERT_EQ(Field(events[n], "payload"), "\"" + all[n].payload + "\"");
    }

    // Running time per thread, replayed from the lists: a thread runs from
    // the event that makes it run to the event that stops it, or to `end`.
    std::map<uint32_t, uint64_t> ticks, switches;
    std::map<uint32_t, uint64_t> since;
    std::map<uint32_t, bool> before;
    for (const Listed &e : all) {
      for (const auto &[id, runs] : e.running) {
        if (runs && !before[id]) since[id] = e.time, switches[id]++;
        if (!runs && before[id]) ticks[id] += e.time - since[id];
      }
      before = e.running;
    }
    for (const auto &[id, runs] : before) {
      if (runs) ticks[id] += end - since[id];
    }
    size_t threads = 0;
    for (const std::string &line : Lines(Kqv({"stats", "--json", base}).out)) {
      if (Field(line, "record") != "\"thread\"") continue;
      const auto id = static_cast<uint32_t>(Number(line, "id"));
      EXPECT_EQ(Number(line, "running_ticks"), ticks[id]) << id;
      EXPECT_EQ(Number(line, "switched_in"), switches[id]) << id;
      threads++;
    }
    EXPECT_EQ(threads, before.size());

    for (uint64_t at : {start, (start + end) / 3, end - 1, end}) {
      kq_State *state = nullptr;
      kq_GetStateAndIterFromTime(db, at, nullptr, &state);
      const std::vector<std::string> objects =
          Lines(Kqv({"state", "--json", "--at", std::to_string(at), base}).out);
      EXPECT_EQ(objects.size(), static_cast<size_t>(HT_GetSize(state->table)));
      for (const std::string &line : objects) {
        const auto id = static_cast<uint32_t>(Number(line, "id"));
        uint8_t *value = nullptr;
        uint32_t length = 0;
        ASSERT_TRUE(kq_GetStateOfObject(state, 0, id, &value, &length));
        EXPECT_EQ(Number(line, "status_value"), value[0] * 256u + value[1]);
        EXPECT_EQ(Field(line, "status"),
                  "\"" + std::string(kq_GetStatusName(db, value[0] * 256 + value[1])) + "\"");
        gen_free(value);
      }
      kq_DeleteState(state);
    }

    uint32_t *ids = nullptr;
    uint32_t idCount = 0;
    kq_GetObjectIdsInTimeRange(db, &ids, &idCount, 0, start, (start + end) / 2);
    const std::vector<std::string> used = Lines(
        Kqv({"objects", "--json", "--from", std::to_string(start), "--to",
             std::to_string((start + end) / 2), base}).out);
    ASSERT_EQ(used.size(), idCount);
    for (uint32_t i = 0; i < idCount; i++) EXPECT_EQ(Number(used[i], "id"), ids[i]);
    gen_free(ids);

    const ProcessResult check = Kqv({"check", base});
    EXPECT_EQ(check.status, 0) << check.out;
    kq_Close(db);
  }
}

TEST_F(KqvTest, EventOptionsPickTheirEvents) {
  const std::string base = Databases()[0];
  kq_DB *db = kq_OpenForUse(base.c_str());
  const std::vector<Listed> all = ListAll(db);
  kq_Close(db);
  struct Case {
    std::vector<std::string> options;
    bool (*keep)(uint64_t n, uint64_t time);
    size_t limit;
  };
  const Case cases[] = {
      {{"--from", "1000", "--to", "2ms"}, [](uint64_t, uint64_t t) { return t >= 1000 && t < 2000; }, 9999},
      {{"--from", "0.0104s"}, [](uint64_t, uint64_t t) { return t >= 10400; }, 9999},
      {{"--first", "100", "--count", "3"}, [](uint64_t n, uint64_t) { return n >= 100; }, 3},
      {{"--first", "5", "--from", "21676us"}, [](uint64_t n, uint64_t t) { return n >= 5 && t >= 21676; }, 9999},
      {{"--count", "0"}, [](uint64_t, uint64_t) { return true; }, 0},
  };
  for (const Case &c : cases) {
    std::vector<std::string> args{"events", "--json"};
    args.insert(args.end(), c.options.begin(), c.options.end());
    args.push_back(base);
    std::vector<uint64_t> want;
    for (size_t n = 0; n < all.size() && want.size() < c.limit; n++) {
      if (c.keep(n, all[n].time)) want.push_back(n);
    }
    std::vector<uint64_t> got;
    for (const std::string &line : Lines(Kqv(args).out)) got.push_back(Number(line, "n"));
    EXPECT_EQ(got, want) << c.options[0];
  }
}

// ---- Text -------------------------------------------------------------------------------

TEST_F(KqvTest, TextOutputOfTheSampleIsPinned) {
  const std::string base = Databases()[0];
  EXPECT_EQ(Kqv({"info", base}).out,
            "Database:          " + base + "\n"
            "Configuration:     threadx\n"
            "Format version:    3\n"
            "Byte order:        big-endian\n"
            "Ticks per second:  1000000\n"
            "Time extent:       0 .. 10287 ticks (0.000000000 .. 0.010287000 s)\n"
            "Events:            518\n"
            "Blocks:            6\n"
            "Threads at end:    7\n");
  EXPECT_EQ(Kqv({"events", "--first", "100", "--count", "2", "--changes", base}).out,
            "     100         1871 0.001871000  Status Change                      0x20001700 "
            "logger_with_a_rather_long_threa 20001700 00000005 00000000 00000000 00000000\n"
            "     101         1898 0.001898000  TaskChange                         0x20001000 "
            "System Timer Thread  20001000 00000000 00000000 00000000 00000000\n"
            "        mod Task 0x200011c0 +0 0000\n"
            "        mod Task 0x20001000 +0 0003\n");
  const std::vector<std::string> state = Lines(Kqv({"state", "--at", "5ms", base}).out);
  ASSERT_EQ(state.size(), 8u);
  EXPECT_EQ(state[0], "Type   Id          Name                            Status               Priority");
  EXPECT_EQ(state[5], "Task   0x20001700  logger_with_a_rather_long_threa TX_MUTEX_SUSP        5");
}

// ---- The command line ---------------------------------------------------------------------------

TEST_F(KqvTest, BadUsageEndsWithOneMessageAndStatusOne) {
  const std::string base = Databases()[0];
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{}, "kqv: fatal: No command given; see kqv --help.\n"},
      {{"show", base}, "kqv: fatal: Unknown command \"show\"; see kqv --help.\n"},
      {{"info", "--all", base}, "kqv: fatal: Unknown option \"--all\" for kqv info; see kqv info --help.\n"},
      {{"events", base, "--from"}, "kqv: fatal: Option --from of kqv events needs a value; see kqv events --help.\n"},
      {{"info", base, base}, "kqv: fatal: kqv info takes one database name; see kqv info --help.\n"},
      {{"state", base}, "kqv: fatal: kqv state needs --at T; see kqv state --help.\n"},
      {{"state", "--at", "3 ms", base}, "kqv: fatal: Bad time \"3 ms\" for --at: give ticks, or a number with s, ms, us or ns.\n"},
      {{"events", "--count", "-1", base}, "kqv: fatal: Bad number \"-1\" for --count.\n"},
      {{"info", dir.file("none")}, "kqv: fatal: Can't open database \"" + dir.file("none") + "\" (its .kqv, .kqs and .kqi files).\n"},
  };
  for (const auto &[args, message] : cases) {
    const ProcessResult run = Kqv(args);
    EXPECT_EQ(run.err, message);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.status, 1);
  }
  for (const char *command : {"info", "events", "state", "objects", "stats", "follow", "check"}) {
    const ProcessResult help = Kqv({command, "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind(std::string("usage: kqv ") + command + " ", 0), 0u) << command;
  }
}

TEST_F(KqvTest, CheckFindsDamageAndSaysSoInItsStatus) {
  const std::string base = Databases()[0];
  std::string kqs = ReadFileBytes(base + ".kqs");
  kqs[kqs.size() - 1] = 9;  // the final 0 tag
  ASSERT_TRUE(testsupport::WriteFileBytes(base + ".kqs", kqs));
  const ProcessResult check = Kqv({"check", base});
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.out, base + ": .kqs position " + std::to_string(kqs.size() - 1) +
                           ": unknown packet tag 9\n" + base +
                           ": 518 events in 6 blocks, 6 index entries: 1 problem\n");
  const ProcessResult events = Kqv({"events", base});
  EXPECT_EQ(events.status, 1);
  EXPECT_EQ(events.err, "kqv: fatal: Database \"" + base + "\" is damaged: unknown packet tag 9 at "
                        ".kqs position " + std::to_string(kqs.size() - 1) + ".\n");
}

// ---- export -----------------------------------------------------------------------------------

struct CsvRow {
  uint32_t thread;
  std::string status;
  uint64_t start, end;
};

std::vector<CsvRow> ReadCsv(const std::string &text) {
  std::vector<CsvRow> rows;
  const std::vector<std::string> lines = Lines(text);
  for (size_t i = 1; i < lines.size(); i++) {
    std::vector<std::string> f;
    std::istringstream in(lines[i]);
    for (std::string field; std::getline(in, field, ',');) f.push_back(field);
    rows.push_back({static_cast<uint32_t>(std::stoul(f[0])), f[2], std::stoull(f[3]),
                    std::stoull(f[4])});
    EXPECT_EQ(std::stoull(f[5]), rows.back().end - rows.back().start);
  }
  return rows;
}

// The trace-event rules a viewer relies on, and the stretches against the
// state the library answers at seeded random moments.
TEST_F(KqvTest, ExportsFollowTheTraceRulesAndTheState) {
  std::vector<std::string> bases = Databases();
  bases.push_back(Clock48MHz());
  bases.push_back(Scripted());
  for (const std::string &base : bases) {
    SCOPED_TRACE(base);
    ASSERT_EQ(Kqv({"export", "--format", "chrome", "-o", base + ".json", base}).status, 0);
    ASSERT_EQ(Kqv({"export", "--format", "csv", "-o", base + ".csv", base}).status, 0);
    const std::vector<CsvRow> rows = ReadCsv(ReadFileBytes(base + ".csv"));
    std::map<std::string, std::vector<std::pair<double, double>>> slices;  // tid -> ts, dur
    std::map<std::string, bool> named;
    std::map<std::string, std::vector<std::string>> stamps;  // tid -> "ts" of its slices
    for (const std::string &line : Lines(ReadFileBytes(base + ".json"))) {
      if (line.rfind("{\"name\"", 0) != 0) continue;  // one event a line
      const std::string ph = Field(line, "ph");
      ASSERT_TRUE(ph == "\"X\"" || ph == "\"i\"" || ph == "\"M\"") << line;
      if (ph == "\"X\"") {
        slices[Field(line, "tid")].emplace_back(std::stod(Field(line, "ts")),
                                                std::stod(Field(line, "dur")));
        stamps[Field(line, "tid")].push_back(Field(line, "ts"));
      } else if (ph == "\"i\"") {
        named.emplace(Field(line, "tid"), false);
      } else if (Field(line, "name") == "\"thread_name\"") {
        named[Field(line, "tid")] = true;
      }
    }
    size_t total = 0;
    for (const auto &[tid, list] : slices) {
      named.emplace(tid, false);
      for (size_t i = 0; i + 1 < list.size(); i++) {
        ASSERT_LE(list[i].first + list[i].second, list[i + 1].first + 1e-9) << tid;
      }
      total += list.size();
    }
    for (const auto &[tid, has] : named) EXPECT_TRUE(has) << "no thread_name for " << tid;
    EXPECT_EQ(total, rows.size());

    // Each slice starts at its stretch's first tick in microseconds, rounded
    // down to the nanosecond: ts * 1000 = floor(ticks * 10^9 / ticks per second).
    const uint64_t perSecond = Number(Kqv({"info", "--json", base}).out, "ticks_per_second");
    std::map<std::string, std::vector<uint64_t>> starts;
    for (const CsvRow &row : rows) starts[std::to_string(row.thread)].push_back(row.start);
    for (const auto &[tid, list] : stamps) {
      ASSERT_EQ(list.size(), starts[tid].size()) << tid;
      for (size_t i = 0; i < list.size(); i++) {
        const size_t dot = list[i].find('.');
        ASSERT_TRUE(dot == std::string::npos || list[i].size() == dot + 4) << list[i];
        const uint64_t nanos = std::stoull(list[i].substr(0, dot)) * 1000 +
                               (dot == std::string::npos ? 0 : std::stoull(list[i].substr(dot + 1)));
        const unsigned __int128 exact = static_cast<unsigned __int128>(starts[tid][i]) * 1000000000u;
        EXPECT_TRUE(nanos * static_cast<unsigned __int128>(perSecond) <= exact &&
                    exact < (nanos + 1) * static_cast<unsigned __int128>(perSecond))
            << list[i] << " for tick " << starts[tid][i];
      }
    }

    kq_DB *db = kq_OpenForUse(base.c_str());
    uint64_t start = 0, end = 0;
    kq_GetTimeExtent(db, &start, &end);
    kq_Close(db);
    testsupport::Random random(end);
    for (int i = 0; i < 12; i++) {
      // The state at T is the one just before the events at T: the stretch
      // that ends at T or goes on past it.
      const uint64_t at = start + 1 + random.Below(static_cast<uint32_t>(end - start));
      for (const std::string &line :
           Lines(Kqv({"state", "--json", "--at", std::to_string(at), base}).out)) {
        const auto id = static_cast<uint32_t>(Number(line, "id"));
        const std::string status = Field(line, "status");
        std::vector<std::string> covering;
        for (const CsvRow &row : rows) {
          if (row.thread == id && row.start < at && at <= row.end) covering.push_back(row.status);
        }
        ASSERT_EQ(covering.size(), 1u) << id << " at " << at;
        EXPECT_EQ("\"" + covering[0] + "\"", status == "null" ? "\"unknown\"" : status);
      }
    }
  }
}

TEST_F(KqvTest, AnExportThatCantBeWrittenWholeLeavesNoFile) {
  const std::string base = Databases()[0];
  const std::string file = dir.file("cut.json");
  const ProcessResult run = RunProcess(
      "/bin/sh", {"sh", "-c", "trap '' XFSZ; ulimit -f 8; exec \"$0\" export --format chrome -o \"$1\" \"$2\"",
                  KQV_BINARY, file, base});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "kqv: fatal: Can't write \"" + file + "\": File too large.\n");
  EXPECT_FALSE(testsupport::FileExists(file));
  EXPECT_EQ(Lines(run.out).size(), 0u);
  const ProcessResult nowhere = Kqv({"export", "--format", "csv", "-o", dir.file("no/such.csv"), base});
  EXPECT_EQ(nowhere.status, 1);
  EXPECT_EQ(nowhere.err, "kqv: fatal: Can't write \"" + dir.file("no/such.csv") +
                             "\": No such file or directory.\n");
}

// ---- follow ------------------------------------------------------------------------------------------

pid_t Spawn(const std::vector<std::string> &argv, const std::string &out) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  std::vector<char *> args;
  for (const std::string &arg : argv) args.push_back(const_cast<char *>(arg.c_str()));
  args.push_back(nullptr);
  pid_t pid = -1;
  posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

int Wait(pid_t pid) {
  int status = 0;
  waitpid(pid, &status, 0);
  return status;
}

TEST_F(KqvTest, FollowSeesEveryEventOfARunningConversionOnceInOrder) {
  const std::string dump = dir.file("big.core");
  ASSERT_TRUE(testsupport::WriteSimulatedDump(dump, {300000, 16, true}));
  const std::string base = dir.file("live");
  const std::string printed = dir.file("follow.out");
  const pid_t follow = Spawn({KQV_BINARY, "follow", "--wait", "--json", base}, printed);
  const pid_t convert = Spawn({RAVELOG_BINARY, dump, base}, dir.file("ravelog.out"));
  ASSERT_EQ(Wait(convert), 0);
  const uint64_t total = 300000 + 16;  // the events and the thread records
  std::string lines;
  for (int i = 0; i < 600; i++) {  // up to a minute for follow to catch up
    lines = ReadFileBytes(printed);
    if (Lines(lines).size() >= total) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  kill(follow, SIGINT);
  const int status = Wait(follow);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  const std::vector<std::string> seen = Lines(ReadFileBytes(printed));
  ASSERT_EQ(seen.size(), total);
  for (uint64_t n = 0; n < total; n += 1) ASSERT_EQ(Number(seen[n], "n"), n);
}

}  // namespace
