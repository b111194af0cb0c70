/*
 * kqv_args.cpp - the command line of a subcommand, times with units, and
 * the open database and cursor that every subcommand works with.
 */
#include <cctype>
#include <cstring>

#include "indgen.h"
#include "kqv.h"

namespace kqv {

namespace {

bool Listed(const std::vector<const char *> &names, const char *name) {
  for (const char *listed : names) {
    if (strcmp(listed, name) == 0) return true;
  }
  return false;
}

/* The base name of a database given with one of its files' suffixes. */
std::string BaseName(const std::string &name) {
  for (const char *suffix : {".kqv", ".kqs", ".kqi"}) {
    const size_t n = strlen(suffix);
    if (name.size() > n && name.compare(name.size() - n, n, suffix) == 0) {
      return name.substr(0, name.size() - n);
    }
  }
  return name;
}

/* Units of a time and their number per second. */
struct Unit {
  const char *name;
  uint64_t perSecond;
};
constexpr Unit kUnits[] = {{"ns", 1000000000}, {"us", 1000000}, {"ms", 1000}, {"s", 1}};

/* Digits only, at least one. */
bool AllDigits(const std::string &text) {
  if (text.empty()) return false;
  for (char c : text) {
    if (!isdigit(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

/* whole + fraction (decimal digits) units of perSecond per second, in ticks,
 * rounded down; false when it doesn't fit in 64 bits.  Exact: the fraction
 * is carried as a ratio of integers, with at most 18 of its digits. */
bool ToTicks(const std::string &whole, const std::string &fraction, uint64_t perSecond,
             uint64_t ticksPerSecond, uint64_t *ticks) {
  const std::string digits = fraction.substr(0, 18);
  unsigned __int128 scale = 1;
  for (size_t i = 0; i < digits.size(); i++) scale *= 10;
  unsigned __int128 value = 0;
  for (char c : whole + digits) {
    value = value * 10 + static_cast<unsigned>(c - '0');
    if (value > (static_cast<unsigned __int128>(1) << 100)) return false;
  }
  const unsigned __int128 result = value * ticksPerSecond / (scale * perSecond);
  if (result > UINT64_MAX) return false;
  *ticks = static_cast<uint64_t>(result);
  return true;
}

}  // namespace

/* ---- Options ---------------------------------------------------------------------- */

Options ParseOptions(const Command &command, int argc, char **argv) {
  Options options;
  options.command = command.name;
  std::vector<std::string> names;
  for (int i = 2; i < argc; i++) {
    const char *argument = argv[i];
    if (strcmp(argument, "--json") == 0) {
      options.json = true;
    } else if (Listed(command.flagOptions, argument)) {
      if (strcmp(argument, "--changes") == 0) options.changes = true;
      if (strcmp(argument, "--wait") == 0) options.wait = true;
    } else if (Listed(command.valueOptions, argument)) {
      if (i + 1 >= argc) {
        gen_errorexit(1, "Option %s of kqv %s needs a value; see kqv %s --help.", argument,
                      command.name, command.name);
      }
      options.values[argument] = argv[++i];
    } else if (argument[0] == '-' && argument[1] != '\0') {
      gen_errorexit(1, "Unknown option \"%s\" for kqv %s; see kqv %s --help.", argument,
                    command.name, command.name);
    } else {
      names.push_back(argument);
    }
  }
  if (names.size() != 1) {
    gen_errorexit(1, "kqv %s takes one database name; see kqv %s --help.", command.name,
                  command.name);
  }
  options.database = BaseName(names[0]);
  return options;
}

uint64_t ParseCount(const std::string &text, const char *option) {
  uint64_t count = 0;
  if (!AllDigits(text) || !ToTicks(text, "", 1, 1, &count)) {
    gen_errorexit(1, "Bad number \"%s\" for %s.", text.c_str(), option);
  }
  return count;
}

uint64_t ParseTime(const std::string &text, uint64_t ticksPerSecond, const char *option) {
  size_t digitsEnd = 0;
  while (digitsEnd < text.size() &&
         (isdigit(static_cast<unsigned char>(text[digitsEnd])) || text[digitsEnd] == '.')) {
    digitsEnd++;
  }
  const std::string number = text.substr(0, digitsEnd);
  const std::string unit = text.substr(digitsEnd);
  const size_t point = number.find('.');
  const std::string whole = number.substr(0, point);
  const std::string fraction = point == std::string::npos ? "" : number.substr(point + 1);
  const bool wellFormed = !number.empty() && (whole.empty() || AllDigits(whole)) &&
                          (fraction.empty() || AllDigits(fraction)) &&
                          !(whole.empty() && fraction.empty());
  uint64_t ticks = 0;
  if (wellFormed && unit.empty() && fraction.empty()) {
    if (ToTicks(whole, "", 1, 1, &ticks)) return ticks;
  } else if (wellFormed) {
    for (const Unit &known : kUnits) {
      if (unit != known.name) continue;
      if (ticksPerSecond == 0) {
        gen_errorexit(1, "The database has no ticks per second, so %s can't be \"%s\".", option,
                      text.c_str());
      }
      if (ToTicks(whole.empty() ? "0" : whole, fraction, known.perSecond, ticksPerSecond, &ticks)) {
        return ticks;
      }
    }
  }
  gen_errorexit(1, "Bad time \"%s\" for %s: give ticks, or a number with s, ms, us or ns.",
                text.c_str(), option);
  return 0;
}

Range RangeOf(const Options &options, const Database &database) {
  Range range;
  range.from = database.start();
  const uint64_t perSecond = database.ticksPerSecond();
  if (options.Has("--from")) range.from = ParseTime(options.values.at("--from"), perSecond, "--from");
  if (options.Has("--to")) {
    range.to = ParseTime(options.values.at("--to"), perSecond, "--to");
    range.bounded = true;
  }
  return range;
}

/* ---- The database and its cursor ---------------------------------------------------------- */

Database::Database(const std::string &name) : name_(name) {
  db_ = kq_OpenForUse(name.c_str());
  if (db_ == nullptr) {
    gen_errorexit(1, "Can't open database \"%s\" (its .kqv, .kqs and .kqi files).", name.c_str());
  }
  Refresh();
}

Database::~Database() { kq_Close(db_); }

void Database::Refresh() {
  kq_GetTimeExtent(db_, &start_, &end_);
  uint32_t count = 0;
  kq_GetStartEventAndNumEvents(db_, nullptr, &count);
  events_ = count;
}

Cursor::Cursor(const Database &database, bool keepState)
    : database_(database), cursor_(kq_NewCursor(database.db(), keepState ? 1 : 0)) {
  if (cursor_ == nullptr) {
    gen_errorexit(1, "Can't read the events of database \"%s\".", database.name().c_str());
  }
}

Cursor::~Cursor() { kq_DeleteCursor(cursor_); }

void Cursor::FailIfStopped() const {
  const char *error = kq_CursorError(cursor_);
  if (error != nullptr) {
    fflush(stdout);
    gen_errorexit(1, "Database \"%s\" is damaged: %s.", database_.name().c_str(), error);
  }
}

void Cursor::SeekTime(uint64_t time) {
  kq_CursorSeekTime(cursor_, time);
  FailIfStopped();
}

void Cursor::SeekNumber(uint64_t number) {
  kq_CursorSeekNumber(cursor_, number);
  FailIfStopped();
}

const kq_CursorEvent *Cursor::Next() {
  const kq_CursorEvent *event = nullptr;
  if (kq_CursorNext(cursor_, &event) < 0) FailIfStopped();
  return event;
}

}  // namespace kqv
