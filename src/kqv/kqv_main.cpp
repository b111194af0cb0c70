/*
 * kqv_main.cpp - main of the inspector: the table of subcommands with their
 * help texts, and the dispatch from the first argument to one of them.
 *
 *   kqv [--help] <command> [options] DB
 *
 * Help goes to standard output with status 0; a missing or unknown command
 * fails (kqv.h) with a message that points at --help.
 */
#include <csignal>
#include <cstring>

#include "indgen.h"
#include "kqv.h"

namespace kqv {

namespace {

const char *const kProgramHelp =
    "usage: kqv [--help] <command> [options] DB\n"
    "\n"
    "Shows what an event database written by ravelog holds.  DB is the\n"
    "database's base name (the name given to ravelog), with or without one\n"
    "of the suffixes .kqv, .kqs, .kqi.  Times (T) are ticks, or a number with\n"
    "a unit: s, ms, us, ns.  Events are numbered from 0.  Every command takes\n"
    "--json (one JSON object a line) and --help.\n"
    "\n"
    "commands:\n";

const char *const kInfoHelp =
    "usage: kqv info [--json] DB\n"
    "\n"
    "The database's configuration, format version, byte order, ticks per\n"
    "second, time extent, number of events and blocks, and the number of\n"
    "threads at the end.\n";

const char *const kEventsHelp =
    "usage: kqv events [--from T] [--to T] [--first N] [--count M] [--changes] [--json] DB\n"
    "\n"
    "One line per event: its number, time in ticks and seconds, name, owning\n"
    "thread (id and name) and payload words in the target's byte order.\n"
    "--from and --to keep the events with from <= time < to; --first starts\n"
    "at event N; --count prints at most M events; --changes adds the state\n"
    "changes each event made.\n";

const char *const kStateHelp =
    "usage: kqv state --at T [--json] DB\n"
    "\n"
    "Every object as it stands just before the first event at or after T:\n"
    "type, id, name, status by name and priority.\n";

const char *const kObjectsHelp =
    "usage: kqv objects [--from T] [--to T] [--json] DB\n"
    "\n"
    "The object types and ids used in from <= time < to: every object that\n"
    "exists at the start of the range or is created in it.\n";

const char *const kStatsHelp =
    "usage: kqv stats [--from T] [--to T] [--json] DB\n"
    "\n"
    "Per thread: the time it ran in from <= time < to (ticks and share of the\n"
    "range), how often it was switched in, its longest run and its service\n"
    "calls by name.  Per event type: how many events of it the range holds.\n";

const char *const kFollowHelp =
    "usage: kqv follow [--wait] [--json] DB\n"
    "\n"
    "Prints every event of the database, then each event that another process\n"
    "adds, as it comes, until interrupted (Ctrl-C).  With --wait a database\n"
    "that doesn't exist yet is waited for.\n";

const char *const kCheckHelp =
    "usage: kqv check [--json] DB\n"
    "\n"
    "Walks the database and verifies its structure: tags, block sizes, index\n"
    "entries at block openings, times that never fall, snapshots equal to the\n"
    "replayed state and the lists of used objects.  Prints each problem and\n"
    "exits with status 1 when there is one.  A database that is still being\n"
    "written is checked as far as it goes.\n";

const char *const kExportHelp =
    "usage: kqv export --format chrome|csv|html -o FILE [--from T] [--to T] [--max-slices N] DB\n"
    "\n"
    "Writes the stretches of time each thread spends in one status (running,\n"
    "ready, each kind of suspension) for other tools:\n"
    "  chrome  trace-event JSON for trace viewers (Perfetto, chrome://tracing):\n"
    "          a track per thread, a slice per stretch, instant events for\n"
    "          interrupts, service calls and user events;\n"
    "  csv     one row per stretch: thread, status, start, end and duration in\n"
    "          ticks and seconds;\n"
    "  html    one self-contained page with a zoomable timeline; beyond N\n"
    "          stretches (--max-slices, 1000000) short ones are merged.\n"
    "FILE - is standard output.  FILE appears only when it was written whole.\n";

const Command *FindCommand(const char *name) {
  for (const Command &command : Commands()) {
    if (strcmp(command.name, name) == 0) return &command;
  }
  return nullptr;
}

void PrintProgramHelp() {
  fputs(kProgramHelp, stdout);
  for (const Command &command : Commands()) printf("  %-8s %s\n", command.name, command.summary);
}

bool IsHelp(const char *argument) {
  return strcmp(argument, "--help") == 0 || strcmp(argument, "-h") == 0;
}

}  // namespace

const std::vector<Command> &Commands() {
  static const std::vector<Command> commands = {
      {"info", "configuration, extent and counts", kInfoHelp, {}, {}, RunInfo},
      {"events", "the events, one a line", kEventsHelp, {"--from", "--to", "--first", "--count"},
       {"--changes"}, RunEvents},
      {"state", "every object at a moment", kStateHelp, {"--at"}, {}, RunState},
      {"objects", "the objects used in a range", kObjectsHelp, {"--from", "--to"}, {}, RunObjects},
      {"stats", "running time per thread, counts per event type", kStatsHelp, {"--from", "--to"},
       {}, RunStats},
      {"follow", "events as another process adds them", kFollowHelp, {}, {"--wait"}, RunFollow},
      {"check", "verify the database's structure", kCheckHelp, {}, {}, RunCheck},
      {"export", "write a timeline for trace viewers, spreadsheets or a browser", kExportHelp,
       {"--format", "-o", "--from", "--to", "--max-slices"}, {}, RunExport},
  };
  return commands;
}

}  // namespace kqv

int main(int argc, char **argv) {
  gen_init(argv[0], 0, 0);
  /* Output piped into a program that stops reading (head, less) ends kqv
   * quietly, as it ends other filters. */
  signal(SIGPIPE, SIG_DFL);
  if (argc < 2) {
    gen_errorexit(1, "No command given; see kqv --help.");
  }
  if (kqv::IsHelp(argv[1])) {
    kqv::PrintProgramHelp();
    return 0;
  }
  const kqv::Command *command = kqv::FindCommand(argv[1]);
  if (command == nullptr) {
    gen_errorexit(1, "Unknown command \"%s\"; see kqv --help.", argv[1]);
  }
  for (int i = 2; i < argc; i++) {
    if (kqv::IsHelp(argv[i])) {
      fputs(command->help, stdout);
      return 0;
    }
  }
  command->run(kqv::ParseOptions(*command, argc, argv));
  return 0;
}
