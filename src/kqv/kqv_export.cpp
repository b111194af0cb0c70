/*
 * kqv_export.cpp - kqv export: a recording in the forms other tools read.
 *
 *   chrome  the trace-event JSON of trace viewers: one process for the
 *           target, one track per thread (thread_name metadata: its name
 *           with its id beside it), a complete slice ("X") for every stretch
 *           a thread spends in one status, never overlapping on a thread,
 *           and instant events for interrupts (on a track of their own),
 *           service calls by name and user events, with payload words as
 *           arguments.  Times are microseconds from the database's ticks
 *           per second, each taken from its tick count with integer
 *           arithmetic (nanoseconds, rounded down), so nothing drifts.
 *   csv     one row per stretch in one status, for spreadsheets.
 *   html    a self-contained timeline page (kqv_html.cpp).
 *
 * The stretches come from one status walk (kqv_walk.cpp): a thread's
 * stretch begins where the range starts or where an event changes its
 * status, and ends at its next change, its deletion or the range's end;
 * stretches of no ticks are left out.  chrome and csv stream: memory holds
 * one open stretch per thread.  The output goes to a temporary file beside
 * FILE that is renamed to FILE only when all of it was written, so a failed
 * export leaves no file that reads as whole.
 */
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstring>
#include <map>
#include <set>
#include <unordered_map>

#include "adt_hash.h"
#include "indgen.h"
#include "kq_names.h"
#include "kq_state.h"
#include "kqv.h"
#include "kqv_export.h"

namespace kqv {

/* ---- Output ------------------------------------------------------------------------ */

Output::Output(const std::string &name) : name_(name) {
  if (name == "-") {
    file_ = stdout;
    return;
  }
  temporary_ = name + ".tmp" + std::to_string(getpid());
  file_ = fopen(temporary_.c_str(), "w");
  if (file_ == nullptr) {
    gen_errorexit(1, "Can't write \"%s\": %s.", name.c_str(), strerror(errno));
  }
}

Output::~Output() {
  if (!temporary_.empty()) {
    if (file_ != nullptr) fclose(file_);
    unlink(temporary_.c_str());
  }
}

void Output::Flush() {
  if (!buffer_.empty() && fwrite(buffer_.data(), 1, buffer_.size(), file_) != buffer_.size()) {
    Fail();
  }
  buffer_.clear();
}

void Output::Fail() {
  const int error = errno;
  if (!temporary_.empty()) {
    fclose(file_);
    file_ = nullptr;
    unlink(temporary_.c_str());
    temporary_.clear();
  }
  gen_errorexit(1, "Can't write \"%s\": %s.", name_.c_str(), strerror(error != 0 ? error : EIO));
}

void Output::Commit() {
  Flush();
  if (fflush(file_) != 0 || ferror(file_)) Fail();
  if (temporary_.empty()) return;
  if (fclose(file_) != 0) {
    file_ = nullptr;
    Fail();
  }
  file_ = nullptr;
  if (rename(temporary_.c_str(), name_.c_str()) != 0) Fail();
  temporary_.clear();
}

void Output::Number(uint64_t value) {
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  buffer_.append(digits, end);
}

/* ---- Stretches ------------------------------------------------------------------------ */

Stretches::Stretches(const Database &database, Range range)
    : database_(database), walk_(database, range) {}

void Stretches::Run() {
  walk_.Run(this);
  for (auto &[id, open] : open_) {
    if (open.exists) Close(id, walk_.range().to);
  }
}

void Stretches::Start(uint32_t id, const TaskStatus &status, uint64_t time) {
  if (status.exists) open_[id] = Open{true, status, time};
}

void Stretches::Change(uint32_t id, const TaskStatus &, const TaskStatus &after, uint64_t time) {
  auto found = open_.find(id);
  if (found != open_.end() && found->second.exists) Close(id, time);
  open_[id] = Open{after.exists, after, time};
}

void Stretches::Close(uint32_t id, uint64_t end) {
  Open &open = open_[id];
  if (end > open.since) Stretch(id, open.status, open.since, end);
  open.exists = false;
}

std::map<uint32_t, std::string> ThreadNames(const Database &database, const Range &range) {
  std::map<uint32_t, std::string> names;
  for (const uint64_t at : {range.from, database.end()}) {
    kq_State *state = nullptr;
    kq_GetStateAndIterFromTime(database.db(), at, nullptr, &state);
    if (state == nullptr) continue;
    struct Gather {
      const Database *database;
      kq_State *state;
      std::map<uint32_t, std::string> *names;
    } gather{&database, state, &names};
    HT_ForEach(
        state->table,
        [](void *key, void *, void *context) {
          const auto &g = *static_cast<Gather *>(context);
          const auto *object = static_cast<const kq_StateObject *>(key);
          const std::string name = TaskName(g.database->db(), g.state, object->id);
          if (object->type == KQ_TYPE_TASK && !name.empty()) (*g.names)[object->id] = name;
          return 1;
        },
        &gather);
    kq_DeleteState(state);
  }
  return names;
}

std::string StatusText(kq_DB *db, const TaskStatus &status) {
  return status.known ? StatusName(db, status.value) : "unknown";
}

namespace {

/* ---- chrome ----------------------------------------------------------------------------- */

constexpr uint16_t kInterrupt = 2;
constexpr uint16_t kKernelCall = 3;
constexpr uint16_t kUserEvent = 4;
/* The track of interrupts: a tid no 32-bit thread id can take. */
constexpr uint64_t kInterruptTrack = uint64_t{1} << 32;

class ChromeExport : public Stretches {
 public:
  ChromeExport(const Database &database, Range range, Output *out)
      : Stretches(database, range), out_(*out), names_(ThreadNames(database, range)),
        perSecond_(database.ticksPerSecond()) {}

  void Write() {
    out_.Text("{\"displayTimeUnit\":\"ns\",\"traceEvents\":[\n");
    out_.Text("{\"name\":\"process_name\",\"ph\":\"M\",\"pid\":1,\"tid\":0,\"args\":{\"name\":");
    out_.Text(JsonString(std::string("target (") + kq_GetNameOfConfigFile(database_.db()) + ")"));
    out_.Text("}}");
    ShowProgress("exporting");
    Run();
    for (const uint64_t tid : tracks_) {
      out_.Text(",\n{\"name\":\"thread_name\",\"ph\":\"M\",\"pid\":1,\"tid\":");
      out_.Number(tid);
      out_.Text(",\"args\":{\"name\":");
      out_.Text(JsonString(TrackName(tid)));
      out_.Text("}}");
    }
    out_.Text("\n]}\n");
    out_.Commit();
  }

 private:
  std::string TrackName(uint64_t tid) const {
    if (tid == kInterruptTrack) return "Interrupts";
    char id[16];
    snprintf(id, sizeof id, "0x%08" PRIx64, tid);
    const auto found = names_.find(static_cast<uint32_t>(tid));
    return found != names_.end() ? found->second + " (" + id + ")" : std::string("thread ") + id;
  }

  /* Microseconds of a tick count, to the nanosecond (rounded down). */
  uint64_t Nanos(uint64_t ticks) const {
    return perSecond_ == 0 ? 0
                           : static_cast<uint64_t>(static_cast<unsigned __int128>(ticks) *
                                                   1000000000u / perSecond_);
  }
  void Micros(uint64_t nanos) {
    out_.Number(nanos / 1000);
    if (nanos % 1000 != 0) {
      char fraction[8];
      snprintf(fraction, sizeof fraction, ".%03u", static_cast<unsigned>(nanos % 1000));
      out_.Text(fraction);
    }
  }

  /* name is the event's name as JSON, quotes included. */
  void Head(const std::string &name, char phase, uint64_t tid, uint64_t time) {
    out_.Text(",\n{\"name\":");
    out_.Text(name);
    out_.Text(",\"ph\":\"");
    out_.Char(phase);
    out_.Text("\",\"pid\":1,\"tid\":");
    out_.Number(tid);
    out_.Text(",\"ts\":");
    Micros(Nanos(time));
    tracks_.insert(tid);
  }

  void Stretch(uint32_t id, const TaskStatus &status, uint64_t start, uint64_t end) override {
    const uint32_t key = status.known ? status.value : 0x10000u;
    auto name = statusNames_.find(key);
    if (name == statusNames_.end()) {
      name = statusNames_.emplace(key, JsonString(StatusText(database_.db(), status))).first;
    }
    Head(name->second, 'X', id, start);
    out_.Text(",\"dur\":");
    Micros(Nanos(end) - Nanos(start));
    out_.Text("}");
  }

  void Event(const kq_CursorEvent &event) override {
    if (event.type != kInterrupt && event.type != kKernelCall && event.type != kUserEvent) return;
    if (event.type != kInterrupt && !event.hasOwner) return;
    const uint32_t key = static_cast<uint32_t>(event.type) << 16 | event.subtype;
    auto name = eventNames_.find(key);
    if (name == eventNames_.end()) {
      name = eventNames_.emplace(key, JsonString(InstantName(event.type, event.subtype))).first;
    }
    Head(name->second, 'i', event.type == kInterrupt ? kInterruptTrack : event.ownerId, event.time);
    out_.Text(",\"s\":\"t\",\"args\":{\"words\":\"");
    out_.Text(PayloadWords(event.payload, event.length, kq_IsBigEndian(database_.db()) != 0));
    out_.Text("\"}}");
  }

  std::string InstantName(uint16_t type, uint16_t subtype) const {
    if (type == kUserEvent) return "user event " + std::to_string(subtype);
    if (type == kInterrupt) return "interrupt " + std::to_string(subtype);
    const char *name = kq_GetServiceName(database_.db(), subtype);
    return name != nullptr ? name : "kernel call " + std::to_string(subtype);
  }

  Output &out_;
  const std::map<uint32_t, std::string> names_;
  const uint64_t perSecond_;
  std::set<uint64_t> tracks_;
  std::unordered_map<uint32_t, std::string> statusNames_;  // as JSON, by status (0x10000: unknown)
  std::unordered_map<uint32_t, std::string> eventNames_;   // as JSON, by type << 16 | subtype
};

/* ---- csv ----------------------------------------------------------------------------------- */

std::string CsvField(const std::string &text) {
  if (text.find_first_of(",\"\n\r") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

class CsvExport : public Stretches {
 public:
  CsvExport(const Database &database, Range range, Output *out)
      : Stretches(database, range), out_(*out), names_(ThreadNames(database, range)),
        perSecond_(database.ticksPerSecond()) {}

  void Write() {
    out_.Text("thread_id,thread_name,status,start_ticks,end_ticks,duration_ticks,start_s,end_s,"
              "duration_s\n");
    ShowProgress("exporting");
    Run();
    out_.Commit();
  }

 private:
  void Stretch(uint32_t id, const TaskStatus &status, uint64_t start, uint64_t end) override {
    const auto name = names_.find(id);
    out_.Number(id);
    out_.Char(',');
    out_.Text(CsvField(name != names_.end() ? name->second : ""));
    out_.Char(',');
    out_.Text(CsvField(StatusText(database_.db(), status)));
    for (const uint64_t ticks : {start, end, end - start}) {
      out_.Char(',');
      out_.Number(ticks);
    }
    for (const uint64_t ticks : {start, end, end - start}) {
      out_.Char(',');
      out_.Text(Seconds(ticks, perSecond_));
    }
    out_.Char('\n');
  }

  Output &out_;
  const std::map<uint32_t, std::string> names_;
  const uint64_t perSecond_;
};

}  // namespace

void RunExport(const Options &options) {
  if (!options.Has("--format") || !options.Has("-o")) {
    gen_errorexit(1, "kqv export needs --format and -o FILE; see kqv export --help.");
  }
  const std::string format = options.values.at("--format");
  if (format != "chrome" && format != "csv" && format != "html") {
    gen_errorexit(1, "Unknown format \"%s\" for kqv export: chrome, csv or html.", format.c_str());
  }
  const Database database(options.database);
  const Range range = RangeOf(options, database);
  Output out(options.values.at("-o"));
  if (format == "chrome") {
    ChromeExport(database, range, &out).Write();
  } else if (format == "csv") {
    CsvExport(database, range, &out).Write();
  } else {
    const uint64_t maxSlices =
        options.Has("--max-slices") ? ParseCount(options.values.at("--max-slices"), "--max-slices")
                                    : kDefaultMaxSlices;
    WriteHtml(database, range, maxSlices, &out);
  }
}

}  // namespace kqv
