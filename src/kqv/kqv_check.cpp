/*
 * kqv_check.cpp - kqv check: the library's structure check of a database
 * (kq_check.h), each problem on a line of its own, then a summary; exit
 * status 1 when there was a problem.
 */
#include <cinttypes>
#include <cstdlib>

#include "kq_check.h"
#include "kqv.h"

namespace kqv {

namespace {

struct Report {
  const Database *database;
  bool json;
};

void PrintProblem(void *context, const char *problem) {
  const auto *report = static_cast<const Report *>(context);
  if (report->json) {
    printf("{\"problem\":%s}\n", JsonString(problem).c_str());
  } else {
    printf("%s: %s\n", report->database->name().c_str(), problem);
  }
}

}  // namespace

void RunCheck(const Options &options) {
  const Database database(options.database);
  Report report{&database, options.json};
  kq_CheckSummary summary{};
  const uint32_t problems = kq_CheckDatabase(database.db(), PrintProblem, &report, &summary);
  if (options.json) {
    printf("{\"events\":%" PRIu64 ",\"blocks\":%" PRIu32 ",\"entries\":%" PRIu32
           ",\"problems\":%" PRIu32 "}\n",
           summary.events, summary.blocks, summary.entries, problems);
  } else {
    printf("%s: %" PRIu64 " events in %" PRIu32 " blocks, %" PRIu32 " index entries: ",
           database.name().c_str(), summary.events, summary.blocks, summary.entries);
    if (problems == 0) {
      printf("no problems\n");
    } else {
      printf("%" PRIu32 " problem%s\n", problems, problems == 1 ? "" : "s");
    }
  }
  fflush(stdout);
  if (problems != 0) exit(1);
}

}  // namespace kqv
