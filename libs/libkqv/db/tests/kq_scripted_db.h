// Test vocabulary for the read side: databases written through the real
// writer from a script of events, each event with the state changes its
// tracker records, and a model that replays the script by the rules of the
// three kinds of change (New of an existing object, Mod that doesn't fit,
// Del of nothing: no effect).  The model shares no code with the library,
// so a query's answer can be held against a replay of the whole script.
//
//   Script script = GenerateScript(seed, 3000);
//   ASSERT_TRUE(WriteScript(dir.file("db"), script));
//   kq_DB *db = kq_OpenForUse(dir.file("db").c_str());
//   EXPECT_EQ(StateOf(state), ModelBefore(script, 42));
//
// Header only: included by the read side's tests, which link libkqv.
#ifndef RAVELOG_LIBKQV_TESTS_KQ_SCRIPTED_DB_H
#define RAVELOG_LIBKQV_TESTS_KQ_SCRIPTED_DB_H

#include <unistd.h>

#include <cstdint>
#include <functional>
#include <map>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kq_io.h"
#include "kq_state.h"
#include "kq_tracker.h"

namespace scripted {

// A directory for tests that rewrite files thousands of times: memory-backed
// when the host has /dev/shm, so no disk is involved; else the default.
inline std::string FastTempParent() {
  return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "";
}

using ObjectKey = std::pair<uint16_t, uint32_t>;  // (type, id)
using Model = std::map<ObjectKey, std::string>;   // object -> value bytes

struct Change {
  uint8_t kind = 0;  // 0 New, 1 Mod, 2 Del
  uint16_t type = 0;
  uint32_t id = 0;
  uint16_t offset = 0;  // Mod
  std::string bytes;    // New: the value; Mod: the new bytes
  bool operator==(const Change &o) const {
    return kind == o.kind && type == o.type && id == o.id && offset == o.offset &&
           bytes == o.bytes;
  }
};

struct Event {
  uint64_t time = 0;
  uint16_t type = 0;
  uint16_t subtype = 0;
  std::string payload;
  std::vector<Change> changes;
};

using Script = std::vector<Event>;

inline Change New(uint16_t type, uint32_t id, std::string value) {
  return Change{0, type, id, 0, std::move(value)};
}
inline Change Mod(uint16_t type, uint32_t id, uint16_t offset, std::string bytes) {
  return Change{1, type, id, offset, std::move(bytes)};
}
inline Change Del(uint16_t type, uint32_t id) { return Change{2, type, id, 0, {}}; }

// ---- Writing ---------------------------------------------------------------

// The script of the database being written, and the next event's index.
inline const Script *g_writing = nullptr;
inline size_t g_next = 0;
// Called by the tracker behind each event's changes, with the writing
// handle, while the event is half written: its bytes are in the stream, its
// tag not yet patched.
inline std::function<void(kq_DB *)> g_halfWritten;

// The tracker: records the scripted changes of the event being added.
inline int RecordScriptedChanges(kq_DB *db, HT_PT current, HT_PT used, kq_Event *) {
  if (g_writing == nullptr || g_next >= g_writing->size()) return 1;
  for (const Change &c : (*g_writing)[g_next].changes) {
    switch (c.kind) {
      case 0:
        kq_SaveStateChangeNew(db, current, used, c.type, c.id,
                              static_cast<uint16_t>(c.bytes.size()), c.bytes.data());
        break;
      case 1:
        kq_SaveStateChangeMod(db, current, c.type, c.id, c.offset,
                              static_cast<uint8_t>(c.bytes.size()), c.bytes.data());
        break;
      default:
        kq_SaveStateChangeDel(db, current, c.type, c.id);
        break;
    }
  }
  g_next++;
  if (g_halfWritten) g_halfWritten(db);
  return 1;
}

// Writer of a script, one event at a time, so that tests can look at the
// files between two additions.
class ScriptWriter {
 public:
  ScriptWriter(const std::string &base, const Script &script, uint8_t bigEndian = 1,
               const char *config = "ThreadX")
      : script_(script) {
    db_ = kq_OpenForCreation(base.c_str(), 1000000, config, bigEndian, RecordScriptedChanges);
  }
  ~ScriptWriter() { Close(); }
  ScriptWriter(const ScriptWriter &) = delete;
  ScriptWriter &operator=(const ScriptWriter &) = delete;

  bool ok() const { return db_ != nullptr; }
  size_t added() const { return added_; }
  // Adds the next `count` events of the script; false on a failure.
  bool Add(size_t count = 1) {
    for (size_t i = 0; i < count && added_ < script_.size(); i++) {
      const Event &e = script_[added_];
      g_writing = &script_;
      g_next = added_;
      const int ok = kq_AddEventFromRawBytes(
          db_, static_cast<uint32_t>(e.time >> 32), static_cast<uint32_t>(e.time),
          (static_cast<uint32_t>(e.type) << 16) | e.subtype,
          e.payload.empty() ? nullptr : e.payload.data(), static_cast<uint32_t>(e.payload.size()));
      g_writing = nullptr;
      if (!ok) return false;
      added_++;
    }
    return true;
  }
  bool AddAll() { return Add(script_.size() - added_); }
  void Close() {
    kq_Close(db_);
    db_ = nullptr;
  }

 private:
  const Script &script_;
  kq_DB *db_ = nullptr;
  size_t added_ = 0;
};

inline bool WriteScript(const std::string &base, const Script &script, uint8_t bigEndian = 1) {
  ScriptWriter writer(base, script, bigEndian);
  return writer.ok() && writer.AddAll();
}

// ---- The model ------------------------------------------------------------------

inline void Apply(Model &model, const Change &c) {
  const ObjectKey key{c.type, c.id};
  auto it = model.find(key);
  switch (c.kind) {
    case 0:
      if (it == model.end()) model[key] = c.bytes;
      break;
    case 1:
      if (it != model.end() && c.offset + c.bytes.size() <= it->second.size()) {
        it->second.replace(c.offset, c.bytes.size(), c.bytes);
      }
      break;
    default:
      if (it != model.end()) model.erase(it);
      break;
  }
}

// The objects after the first `count` events of the script.
inline Model ModelBefore(const Script &script, size_t count) {
  Model model;
  for (size_t i = 0; i < count && i < script.size(); i++) {
    for (const Change &c : script[i].changes) Apply(model, c);
  }
  return model;
}

// ModelBefore for many counts of one script: a copy of the model every
// `every` events, replayed from the nearest one.
class ModelCache {
 public:
  explicit ModelCache(const Script &script, size_t every = 64) : script_(script), every_(every) {
    Model model;
    for (size_t i = 0; i <= script.size(); i++) {
      if (i % every == 0) checkpoints_.push_back(model);
      if (i < script.size()) {
        for (const Change &c : script[i].changes) Apply(model, c);
      }
    }
  }
  Model Before(size_t count) const {
    if (count > script_.size()) count = script_.size();
    const size_t k = count / every_;
    Model model = checkpoints_[k];
    for (size_t i = k * every_; i < count; i++) {
      for (const Change &c : script_[i].changes) Apply(model, c);
    }
    return model;
  }

 private:
  const Script &script_;
  size_t every_;
  std::vector<Model> checkpoints_;
};

// Index of the first event whose time is not below t (script.size() if none).
inline size_t FirstAtOrAfter(const Script &script, uint64_t t) {
  size_t i = 0;
  while (i < script.size() && script[i].time < t) i++;
  return i;
}

// ---- Reading back -----------------------------------------------------------------

inline Model StateOf(const kq_State *state) {
  Model model;
  if (state == nullptr) return model;
  for (HTIter_PT it = HT_Begin(state->table); it != HT_End(state->table); HTIter_Inc(&it)) {
    void *key = nullptr;
    HTIter_GetValue(it, &key, nullptr);
    const auto *o = static_cast<const kq_StateObject *>(key);
    model[{o->type, o->id}] =
        std::string(reinterpret_cast<const char *>(o->value), o->value ? o->length : 0);
  }
  return model;
}

inline std::set<ObjectKey> KeysOf(HT_PT table) {
  std::set<ObjectKey> keys;
  for (HTIter_PT it = HT_Begin(table); it != HT_End(table); HTIter_Inc(&it)) {
    void *key = nullptr;
    HTIter_GetValue(it, &key, nullptr);
    const auto *o = static_cast<const kq_StateObject *>(key);
    keys.insert({o->type, o->id});
  }
  return keys;
}

// One listed event as the read side gave it.
struct Listed {
  uint32_t number = 0;
  uint64_t time = 0;
  uint16_t type = 0;
  uint16_t subtype = 0;
  std::string payload;
  std::vector<Change> changes;
  bool operator==(const Listed &o) const {
    return number == o.number && time == o.time && type == o.type && subtype == o.subtype &&
           payload == o.payload && changes == o.changes;
  }
};

inline std::ostream &operator<<(std::ostream &os, const Listed &e) {
  return os << "#" << e.number << " t=" << e.time << " type=" << e.type << "." << e.subtype
            << " payload=" << e.payload.size() << "B changes=" << e.changes.size();
}

inline Change ChangeOf(const StateChange &c) {
  Change out;
  out.kind = c.kind;
  out.type = c.type;
  out.id = c.id;
  const char *bytes = reinterpret_cast<const char *>(c.bytes);
  if (c.kind == 0) out.bytes.assign(bytes ? bytes : "", bytes ? c.offsetOrLength : 0);
  if (c.kind == 1) {
    out.offset = c.offsetOrLength;
    out.bytes.assign(bytes ? bytes : "", bytes ? c.modLength : 0);
  }
  return out;
}

// The events of a list, and List_Delete of it.
inline std::vector<Listed> TakeList(List_PT list) {
  std::vector<Listed> out;
  if (list == nullptr) return out;
  for (ListIter_PT it = List_Begin(list, 0); it != List_End(list, 1); ListIter_Next(&it, 1)) {
    void *value = nullptr;
    ListIter_GetValue(it, &value);
    const auto *e = static_cast<const kq_Event *>(value);
    Listed l;
    l.number = e->eventNumber;
    l.time = e->time;
    l.type = e->type;
    l.subtype = e->subtype;
    l.payload.assign(reinterpret_cast<const char *>(e->data), e->data ? e->length : 0);
    for (ListIter_PT c = List_Begin(e->changes, 0); c != List_End(e->changes, 1);
         ListIter_Next(&c, 1)) {
      void *change = nullptr;
      ListIter_GetValue(c, &change);
      l.changes.push_back(ChangeOf(*static_cast<const StateChange *>(change)));
    }
    out.push_back(std::move(l));
  }
  List_Delete(list);
  return out;
}

// Events first..last-1 of the script as a list would show them (numbers
// counted from 1).
inline std::vector<Listed> Expected(const Script &script, size_t first, size_t last) {
  std::vector<Listed> out;
  for (size_t i = first; i < last && i < script.size(); i++) {
    const Event &e = script[i];
    out.push_back(Listed{static_cast<uint32_t>(i + 1), e.time, e.type, e.subtype, e.payload,
                         e.changes});
  }
  return out;
}

// ---- Generated scripts ------------------------------------------------------------------

// Object types of generated scripts: the Task (76-byte values), a type with
// 8-byte values and one with empty values.
constexpr uint16_t kTask = 0;
constexpr uint16_t kQueue = 3;
constexpr uint16_t kFlag = 9;

inline std::string TaskValue(uint32_t seed) {
  std::string v(76, '\0');
  v[0] = 0;
  v[1] = static_cast<char>(seed % 8);
  v[2] = 1;
  for (int i = 4; i < 8; i++) v[i] = static_cast<char>(0xFF);
  for (int i = 9; i < 20; i++) v[i] = static_cast<char>('a' + (seed + i) % 26);
  return v;
}

// `count` events of every type (1..7), in times that never fall, with runs
// of equal times (some longer than a block), payloads whose first four bytes
// name a task (some shorter than four bytes), and changes of three object
// types: News (also of objects that exist), Mods (also ones that don't fit
// or miss), Dels (also of nothing); type 6 events are thread records that
// create a task.
inline Script GenerateScript(uint32_t seed, size_t count) {
  std::mt19937 rng(seed);
  auto below = [&rng](uint32_t n) { return static_cast<uint32_t>(rng() % n); };
  Script script;
  uint64_t time = 1000 + below(50);
  size_t run = 0;
  for (size_t i = 0; i < count; i++) {
    if (run > 0) {
      run--;
    } else {
      const uint32_t step = below(100);
      if (step < 25) {
        // same time
      } else if (step < 27) {
        run = 20 + below(200);  // a run of equal times, often across a block boundary
      } else if (step < 29) {
        time += 100000 + below(1000000);
      } else {
        time += 1 + below(40);
      }
    }
    Event e;
    e.time = time;
    e.type = static_cast<uint16_t>(1 + below(7));
    e.subtype = static_cast<uint16_t>(below(40));
    const uint32_t owner = 0x100 + below(48);
    const uint32_t shape = below(20);
    if (shape == 0) {
      e.payload = std::string(below(4), 'x');  // too short to name an owner
    } else {
      e.payload = {static_cast<char>(owner >> 24), static_cast<char>(owner >> 16),
                   static_cast<char>(owner >> 8), static_cast<char>(owner)};
      const uint32_t extra = below(24);
      for (uint32_t k = 0; k < extra; k++) e.payload.push_back(static_cast<char>(rng()));
    }
    if (e.type == 6) e.changes.push_back(New(kTask, owner, TaskValue(owner + static_cast<uint32_t>(i))));
    const uint32_t changes = below(4);
    for (uint32_t k = 0; k < changes; k++) {
      const uint32_t what = below(12);
      const uint16_t type = what < 6 ? kTask : (what < 10 ? kQueue : kFlag);
      const uint32_t id = type == kTask ? 0x100 + below(48) : below(30);
      const uint32_t kind = below(10);
      if (kind < 4) {
        std::string value = type == kTask    ? TaskValue(static_cast<uint32_t>(i))
                            : type == kQueue ? std::string(8, static_cast<char>(i))
                                             : std::string();
        e.changes.push_back(New(type, id, value));
      } else if (kind < 8) {
        const uint16_t offset = static_cast<uint16_t>(below(type == kTask ? 80 : 10));
        e.changes.push_back(Mod(type, id, offset, std::string(1 + below(6), static_cast<char>(rng()))));
      } else {
        e.changes.push_back(Del(type, id));
      }
    }
    script.push_back(std::move(e));
  }
  return script;
}

// A script of `count` events at times `firstTime`, `firstTime` + step, ...,
// event k creating object (kTask, k + 1) with a 4-byte value; no other change.
inline Script CountingScript(size_t count, uint64_t firstTime = 10, uint64_t step = 10) {
  Script script;
  for (size_t k = 0; k < count; k++) {
    Event e;
    e.time = firstTime + step * k;
    e.type = 4;
    e.subtype = static_cast<uint16_t>(k % 7);
    const auto id = static_cast<uint32_t>(k + 1);
    e.payload = {static_cast<char>(id >> 24), static_cast<char>(id >> 16),
                 static_cast<char>(id >> 8), static_cast<char>(id)};
    e.changes.push_back(New(kTask, id, e.payload));
    script.push_back(std::move(e));
  }
  return script;
}

}  // namespace scripted

#endif  // RAVELOG_LIBKQV_TESTS_KQ_SCRIPTED_DB_H
