/*
 * kqv_state.cpp - kqv state (every object at a moment, from the library's
 * state query) and kqv objects (the objects a range used, from the object
 * usage queries).
 */
#include <algorithm>
#include <cinttypes>
#include <utility>

#include "adt_hash.h"
#include "indgen.h"
#include "kq_state.h"
#include "kqv.h"

namespace kqv {

namespace {

using Key = std::pair<uint16_t, uint32_t>;  // (type, id)

/* The keys of state in rising order. */
std::vector<Key> KeysOf(kq_State *state) {
  std::vector<Key> keys;
  HT_ForEach(
      state->table,
      [](void *key, void *, void *out) {
        const auto *object = static_cast<const kq_StateObject *>(key);
        static_cast<std::vector<Key> *>(out)->emplace_back(object->type, object->id);
        return 1;
      },
      &keys);
  std::sort(keys.begin(), keys.end());
  return keys;
}

/* A field of an object, read through the library's description of it. */
template <typename T>
bool Field(kq_DB *db, kq_State *state, const Key &key, int32_t field, T *value) {
  uint8_t known = 0;
  return kq_GetValueIfIsKnown(db, state, key.first, key.second, field, &known, value,
                              sizeof *value, 0) &&
         known;
}

}  // namespace

void RunState(const Options &options) {
  if (!options.Has("--at")) {
    gen_errorexit(1, "kqv state needs --at T; see kqv state --help.");
  }
  const Database database(options.database);
  kq_DB *db = database.db();
  const uint64_t at = ParseTime(options.values.at("--at"), database.ticksPerSecond(), "--at");
  kq_State *state = nullptr;
  kq_GetStateAndIterFromTime(db, at, nullptr, &state);
  if (state == nullptr) {
    gen_errorexit(1, "Can't read the state of database \"%s\".", database.name().c_str());
  }
  if (!options.json) {
    printf("%-6s %-10s  %-31s %-20s %s\n", "Type", "Id", "Name", "Status", "Priority");
  }
  for (const Key &key : KeysOf(state)) {
    uint16_t status = 0;
    uint32_t priority = 0;
    const bool hasStatus = Field(db, state, key, 0, &status);
    const bool hasPriority = Field(db, state, key, 1, &priority);
    const std::string name = ObjectName(db, state, key.first, key.second);
    const std::string type = TypeName(db, key.first);
    const std::string statusName = hasStatus ? StatusName(db, status) : "";
    if (options.json) {
      printf("{\"type\":%u,\"type_name\":%s,\"id\":%" PRIu32 ",\"name\":%s,\"status\":%s,"
             "\"status_value\":%s,\"priority\":%s}\n",
             key.first, JsonString(type).c_str(), key.second,
             name.empty() ? "null" : JsonString(name).c_str(),
             hasStatus ? JsonString(statusName).c_str() : "null",
             hasStatus ? std::to_string(status).c_str() : "null",
             hasPriority ? std::to_string(priority).c_str() : "null");
    } else {
      printf("%-6s 0x%08" PRIx32 "  %-31s %-20s %s\n", type.c_str(), key.second,
             name.empty() ? "-" : name.c_str(), hasStatus ? statusName.c_str() : "-",
             hasPriority ? std::to_string(priority).c_str() : "-");
    }
  }
  kq_DeleteState(state);
}

void RunObjects(const Options &options) {
  const Database database(options.database);
  kq_DB *db = database.db();
  Range range = RangeOf(options, database);
  if (!range.bounded) range.to = database.end();  // the queries compare times as the index does
  uint16_t *types = nullptr;
  uint32_t typeCount = 0;
  kq_GetObjectTypesInTimeRange(db, &types, &typeCount, range.from, range.to);
  for (uint32_t t = 0; t < typeCount; t++) {
    uint32_t *ids = nullptr;
    uint32_t idCount = 0;
    kq_GetObjectIdsInTimeRange(db, &ids, &idCount, types[t], range.from, range.to);
    const std::string type = TypeName(db, types[t]);
    for (uint32_t i = 0; i < idCount; i++) {
      if (options.json) {
        printf("{\"type\":%u,\"type_name\":%s,\"id\":%" PRIu32 "}\n", types[t],
               JsonString(type).c_str(), ids[i]);
      } else {
        printf("%-6s 0x%08" PRIx32 "\n", type.c_str(), ids[i]);
      }
    }
    gen_free(ids);
  }
  gen_free(types);
}

}  // namespace kqv
