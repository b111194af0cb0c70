/*
 * kqv.h - the inspector's internal interface: the command line of every
 * subcommand, times in ticks or with a unit, the text and JSON forms of what
 * is printed, and the subcommands themselves.  Everything kqv shows comes
 * from libkqv's public interface (kq_io.h, kq_cursor.h, kq_check.h,
 * kq_names.h).
 *
 * Error convention: as in the converter, a failure prints one message
 * through gen_errorexit(1, ...) ("kqv: fatal: ...") and ends the process
 * with status 1; a function that "fails" never returns from it.  Bad usage
 * and an unreadable database are such failures.
 *
 * Sources: kqv_main.cpp (main, dispatch, help), kqv_args.cpp (options and
 * times), kqv_text.cpp (formatting), kqv_info.cpp, kqv_events.cpp (events,
 * follow), kqv_state.cpp (state, objects), kqv_stats.cpp, kqv_check.cpp,
 * kqv_walk.cpp (the status walk of stats and the exports), kqv_export.cpp
 * and kqv_html.cpp (export).
 */
#ifndef RAVELOG_KQV_H
#define RAVELOG_KQV_H

#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kq_cursor.h"
#include "kq_io.h"

namespace kqv {

/* ---- The command line ------------------------------------------------------ */

/* The options of one subcommand as given; times stay text until the
 * database is open, since a unit needs its ticks per second. */
struct Options {
  std::string command;
  std::string database;                     // the base name, suffix taken off
  std::map<std::string, std::string> values;  // "--from" -> "1.5ms", ...
  bool json = false;
  bool changes = false;
  bool wait = false;

  bool Has(const char *name) const { return values.count(name) != 0; }
};

/* One subcommand: its name, its one-line summary, its help text (with the
 * usage line first) and the options that take a value or are flags. */
struct Command {
  const char *name;
  const char *summary;
  const char *help;
  std::vector<const char *> valueOptions;  // "--from", ...
  std::vector<const char *> flagOptions;   // "--changes", ...
  void (*run)(const Options &options);
};

/* The table of subcommands (kqv_main.cpp). */
const std::vector<Command> &Commands();

/* Parses argv[2..] for command; fails with a usage message on an unknown
 * option, a missing value or a missing or extra database name. */
Options ParseOptions(const Command &command, int argc, char **argv);

/* ---- The database ---------------------------------------------------------------- */

/* An open database for the length of a subcommand. */
class Database {
 public:
  /* Opens name (a base name); fails with "Can't open database ..." when it
   * can't be read. */
  explicit Database(const std::string &name);
  ~Database();
  Database(const Database &) = delete;
  Database &operator=(const Database &) = delete;

  kq_DB *db() const { return db_; }
  const std::string &name() const { return name_; }
  uint64_t ticksPerSecond() const { return kq_GetNumTicksPerSecond(db_); }

  /* The time extent [start, end) and the event count, brought up to date. */
  uint64_t start() const { return start_; }
  uint64_t end() const { return end_; }
  uint64_t events() const { return events_; }
  void Refresh();

 private:
  std::string name_;
  kq_DB *db_ = nullptr;
  uint64_t start_ = 0, end_ = 0, events_ = 0;
};

/* A cursor for the length of a subcommand; fails with the cursor's own
 * message when the stream is damaged where it reads. */
class Cursor {
 public:
  Cursor(const Database &database, bool keepState);
  ~Cursor();
  Cursor(const Cursor &) = delete;
  Cursor &operator=(const Cursor &) = delete;

  void SeekTime(uint64_t time);
  void SeekNumber(uint64_t number);
  /* The next event, or null at the end of what is written. */
  const kq_CursorEvent *Next();
  kq_State *state() const { return kq_CursorState(cursor_); }
  kq_Cursor *cursor() const { return cursor_; }

 private:
  void FailIfStopped() const;

  const Database &database_;
  kq_Cursor *cursor_;
};

/* A time option's value in ticks: a whole number of ticks, or a decimal
 * number with the unit s, ms, us or ns, which counts whole ticks (rounded
 * down).  Fails on any other text. */
uint64_t ParseTime(const std::string &text, uint64_t ticksPerSecond, const char *option);
/* A count option's value; fails on anything but a whole number. */
uint64_t ParseCount(const std::string &text, const char *option);

/* The range [from, to) of --from and --to: from defaults to the start of
 * the database's extent, to to no end at all (every event that is there,
 * also when damage at the end of the stream shortens the extent). */
struct Range {
  uint64_t from = 0;
  uint64_t to = UINT64_MAX;
  bool bounded = false;  // --to was given
};
Range RangeOf(const Options &options, const Database &database);

/* ---- The status walk -------------------------------------------------------------
 * One pass over a range that tells a listener each event and each change of
 * a Task's status (kqv_walk.cpp).  Used by stats and the exports. */

/* A Task's status as the walk follows it. */
struct TaskStatus {
  bool exists = false;  // the Task is in the state
  bool known = false;   // its statusKnown flag is set
  uint16_t value = 0;   // the status, when known
};
bool operator==(const TaskStatus &a, const TaskStatus &b);

class StatusWalk {
 public:
  class Listener {
   public:
    virtual ~Listener() = default;
    /* Each Task of the state at the range's start, in rising order of id. */
    virtual void Start(uint32_t id, const TaskStatus &status, uint64_t time) {}
    /* Each event of the range, before its changes are reported. */
    virtual void Event(const kq_CursorEvent &event) {}
    /* A Task whose status the event changed (as it stands after the whole
     * event); a Task the event created has before.exists false. */
    virtual void Change(uint32_t id, const TaskStatus &before, const TaskStatus &after,
                        uint64_t time) {}
  };

  StatusWalk(const Database &database, Range range);
  /* Shows a progress line ("<what> 45%") for a long walk on a terminal. */
  void ShowProgress(const char *what) { progress_ = what; }
  /* Walks the range; fails (kqv.h) when the stream is damaged. */
  void Run(Listener *listener);
  /* The range walked: without --to, after Run, it ends one tick behind the
   * last event (or at its start when there was none). */
  const Range &range() const { return range_; }

 private:
  const Database &database_;
  Range range_;
  const char *progress_ = nullptr;
};

/* ---- Text ---------------------------------------------------------------------- */

/* Ticks as seconds with nine decimals, exact: 1500 at 1000 per second is
 * "1.500000000".  "-" when ticksPerSecond is 0. */
std::string Seconds(uint64_t ticks, uint64_t ticksPerSecond);
/* text as a JSON string, quotes included; bytes outside printable ASCII
 * and '<' are escaped (\u00XX), so any name gives valid JSON, also inside a
 * page's script element. */
std::string JsonString(const std::string &text);
/* Bytes as lowercase hexadecimal, no separators. */
std::string Hex(const uint8_t *bytes, uint32_t length);
/* A payload as 32-bit words read in the target's byte order ("%08x",
 * separated by blanks), a short tail as bytes ("%02x"). */
std::string PayloadWords(const uint8_t *payload, uint32_t length, bool bigEndian);

/* The long name of an event: the library's (kq_GetNameOfEvent), with a
 * kernel call named by its service (kq_GetServiceName) where one is known. */
std::string EventName(kq_DB *db, uint16_t type, uint16_t subtype);
/* The name (field 2) of object (type, id) in state, or "" when unknown. */
std::string ObjectName(kq_DB *db, kq_State *state, uint16_t type, uint32_t id);
/* The name of Task id. */
inline std::string TaskName(kq_DB *db, kq_State *state, uint32_t id) {
  return ObjectName(db, state, 0, id);
}
/* The name of a status value, or "unknown (N)". */
std::string StatusName(kq_DB *db, uint16_t status);
/* The name of object type `type` ("Task"), or "type N". */
std::string TypeName(kq_DB *db, uint16_t type);

/* ---- Subcommands (each fails as the top of this file says) ----------------------------- */

void RunInfo(const Options &options);
void RunEvents(const Options &options);
void RunFollow(const Options &options);
void RunState(const Options &options);
void RunObjects(const Options &options);
void RunStats(const Options &options);
void RunCheck(const Options &options);
void RunExport(const Options &options);

/* Prints one event as `events` does (text or JSON). */
void PrintEvent(const Database &database, kq_State *state, const kq_CursorEvent &event,
                bool json, bool changes);

}  // namespace kqv

#endif /* RAVELOG_KQV_H */
