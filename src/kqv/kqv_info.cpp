/*
 * kqv_info.cpp - kqv info: what a database is and how much it holds.
 */
#include <cinttypes>

#include "adt_hash.h"
#include "kq_state.h"
#include "kqv.h"

namespace kqv {

namespace {

/* Tasks in the state after the last event. */
uint32_t ThreadsAtEnd(const Database &database) {
  kq_State *state = nullptr;
  kq_GetStateAndIterFromTime(database.db(), database.end(), nullptr, &state);
  uint32_t threads = 0;
  if (state != nullptr) {
    HT_ForEach(
        state->table,
        [](void *key, void *, void *count) {
          if (static_cast<const kq_StateObject *>(key)->type == KQ_TYPE_TASK) {
            ++*static_cast<uint32_t *>(count);
          }
          return 1;
        },
        &threads);
  }
  kq_DeleteState(state);
  return threads;
}

}  // namespace

void RunInfo(const Options &options) {
  const Database database(options.database);
  kq_DB *db = database.db();
  const uint64_t perSecond = database.ticksPerSecond();
  const uint32_t perBlock = kq_GetEventsPerBlock(db);
  const uint64_t blocks = perBlock == 0 ? 0 : (database.events() + perBlock - 1) / perBlock;
  const uint32_t threads = ThreadsAtEnd(database);
  const char *config = kq_GetNameOfConfigFile(db);
  const bool big = kq_IsBigEndian(db) != 0;
  if (options.json) {
    printf("{\"database\":%s,\"config\":%s,\"format_version\":%" PRIu32
           ",\"byte_order\":\"%s\",\"ticks_per_second\":%" PRIu64 ",\"start\":%" PRIu64
           ",\"end\":%" PRIu64 ",\"events\":%" PRIu64 ",\"blocks\":%" PRIu64 ",\"threads\":%" PRIu32
           "}\n",
           JsonString(database.name()).c_str(), JsonString(config).c_str(),
           kq_GetFormatVersion(db), big ? "big" : "little", perSecond, database.start(),
           database.end(), database.events(), blocks, threads);
    return;
  }
  printf("Database:          %s\n", database.name().c_str());
  printf("Configuration:     %s\n", config);
  printf("Format version:    %" PRIu32 "\n", kq_GetFormatVersion(db));
  printf("Byte order:        %s\n", big ? "big-endian" : "little-endian");
  printf("Ticks per second:  %" PRIu64 "\n", perSecond);
  printf("Time extent:       %" PRIu64 " .. %" PRIu64 " ticks (%s .. %s s)\n", database.start(),
         database.end(), Seconds(database.start(), perSecond).c_str(),
         Seconds(database.end(), perSecond).c_str());
  printf("Events:            %" PRIu64 "\n", database.events());
  printf("Blocks:            %" PRIu64 "\n", blocks);
  printf("Threads at end:    %" PRIu32 "\n", threads);
}

}  // namespace kqv
