// Scripts of the database model written through the library's writer, and
// the read side's answers in the model's terms.  For the tests that link libkqv.
#ifndef RAVELOG_TEST_SUPPORT_DATABASE_SCRIPT_H
#define RAVELOG_TEST_SUPPORT_DATABASE_SCRIPT_H

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

#include "database_model.h"
#include "kq_io.h"
#include "kq_state.h"
#include "kq_tracker.h"
#include "temp_dir.h"

namespace testsupport {

constexpr uint64_t kFarFuture = ~uint64_t{0} >> 1;  // behind every event

// Called behind each event's changes, its bytes in the stream, its tag not patched.
inline std::function<void(kq_DB *)> halfWritten;
inline const Event *writing = nullptr;

// The tracker of a script: records the changes of the event being added.
inline int RecordScriptedChanges(kq_DB *db, HT_PT current, HT_PT used, kq_Event *) {
  for (const Change &c : writing != nullptr ? writing->changes : std::vector<Change>{}) {
    const auto n = static_cast<uint16_t>(c.bytes.size());
    if (c.kind == Change::kNew) kq_SaveStateChangeNew(db, current, used, c.type, c.id, n, c.bytes.data());
    if (c.kind == Change::kMod) kq_SaveStateChangeMod(db, current, c.type, c.id, c.offset, uint8_t(n), c.bytes.data());
    if (c.kind == Change::kDel) kq_SaveStateChangeDel(db, current, c.type, c.id);
  }
  if (halfWritten) halfWritten(db);
  return 1;
}

// Adds one event of a script to db; 1, or 0 when the writer refuses it.
inline int AddEvent(kq_DB *db, const Event &e, uint64_t time) {
  writing = &e;
  std::vector<char> exact(e.payload.begin(), e.payload.end());  // a read beyond the payload is caught
  const int added = kq_AddEventFromRawBytes(db, uint32_t(time >> 32), uint32_t(time), uint32_t{e.type} << 16 | e.subtype,
                                            exact.empty() ? nullptr : exact.data(), uint32_t(exact.size()));
  writing = nullptr;
  return added;
}

// Writes a script one event at a time, so that a test can look between two;
// its tracker records the script's changes unless another is given.
class ScriptWriter {
 public:
  ScriptWriter(const std::string &base, const Script &script, const DatabaseHeader &h = {},
               kq_SaveStateFunc tracker = RecordScriptedChanges)
      : script_(script), db_(kq_OpenForCreation(base.c_str(), h.ticksPerSecond, h.config.c_str(), h.bigEndian, tracker)) {}
  ~ScriptWriter() { Close(); }
  ScriptWriter(const ScriptWriter &) = delete;
  bool ok() const { return db_ != nullptr; }
  size_t added() const { return added_; }
  bool Add(size_t count = 1) {  // the next `count` events; false on the first refusal
    for (; count > 0 && added_ < script_.size(); count--, added_++)
      if (!AddEvent(db_, script_[added_], script_[added_].time)) return false;
    return true;
  }
  bool AddAll() { return Add(script_.size()); }
  void Close() { kq_Close(std::exchange(db_, nullptr)); }

 private:
  const Script &script_;
  kq_DB *db_;
  size_t added_ = 0;
};

// The objects of a table of kq_StateObject keys.
inline State StateOf(HT_PT table) {
  State state;
  for (HTIter_PT it = HT_Begin(table); table != nullptr && it != HT_End(table); HTIter_Inc(&it)) {
    void *key = nullptr;
    HTIter_GetValue(it, &key, nullptr);
    const auto *o = static_cast<const kq_StateObject *>(key);
    state[{o->type, o->id}] = o->value != nullptr ? std::string(reinterpret_cast<char *>(o->value), o->length) : "";
  }
  return state;
}
inline State TakeState(kq_State *state) {  // and kq_DeleteState of it
  const State taken = state != nullptr ? StateOf(state->table) : State{};
  kq_DeleteState(state);
  return taken;
}

// The events of a list (numbers, payloads, changes), and List_Delete of it.
inline Script TakeList(List_PT list) {
  Script out;
  for (ListIter_PT it = list ? List_Begin(list, 0) : nullptr; list != nullptr && it != List_End(list, 1); ListIter_Next(&it, 1)) {
    void *value = nullptr;
    ListIter_GetValue(it, &value);
    const auto *e = static_cast<const kq_Event *>(value);
    out.emplace_back(e->time, e->type, e->subtype, e->data ? std::string(reinterpret_cast<char *>(e->data), e->length) : "");
    out.back().number = e->eventNumber;
    for (ListIter_PT c = List_Begin(e->changes, 0); c != List_End(e->changes, 1); ListIter_Next(&c, 1)) {
      ListIter_GetValue(c, &value);
      const auto *sc = static_cast<const StateChange *>(value);
      const auto *bytes = reinterpret_cast<const char *>(sc->bytes);
      const size_t n = bytes == nullptr ? 0 : sc->kind == 0 ? sc->offsetOrLength : sc->modLength;
      out.back().changes.push_back({Change::Kind(sc->kind), sc->type, uint16_t(sc->kind == 1 ? sc->offsetOrLength : 0), sc->id,
                                    std::string(bytes ? bytes : "", n)});
    }
  }
  if (list != nullptr) List_Delete(list);
  return out;
}

// Adds the events of `expected` through `tracker` at times 0, 1, ..., each
// with the changes it must record, checking the files and table after each.
inline ::testing::AssertionResult TracksAsScripted(const std::string &base, kq_SaveStateFunc tracker,
                                                   const Script &expected, const DatabaseHeader &h) {
  kq_DB *db = kq_OpenForCreation(base.c_str(), h.ticksPerSecond, h.config.c_str(), h.bigEndian, tracker);
  ::testing::AssertionResult result = ::testing::AssertionSuccess();
  Script script;
  for (size_t i = 0; db != nullptr && i < expected.size() && result; i++) {
    const int added = AddEvent(db, expected[i], i);
    script.push_back(expected[i]);
    script.back().time = i;
    result = SameFiles(ReadDatabase(base), Render(script, h));
    if (result && (added != 1 || StateOf(kq_GetCurrentTable(db)) != Replay(script, i + 1)))
      result = ::testing::AssertionFailure() << "the tracker's answer or table differs";
    if (!result) result << "\nat event " << i << " (" << expected[i] << ")";
  }
  kq_Close(db);
  return db == nullptr ? ::testing::AssertionFailure() << "no database" : result;
}

// A database open for reading, and the read side's answers in the model's terms.
class ReadingTest : public ::testing::Test {
 protected:
  void TearDown() override { kq_Close(db_); }
  std::string Base() const { return dir_.file("db"); }
  void Write(const Script &script) {
    Write(Render(script_ = script));
    ASSERT_NE(Reopen(), nullptr);
  }
  void Write(const DatabaseFiles &f) {
    ASSERT_TRUE(WriteFileBytes(Base() + ".kqv", f.kqv) && WriteFileBytes(Base() + ".kqs", f.kqs) &&
                WriteFileBytes(Base() + ".kqi", f.kqi));
  }
  kq_DB *Reopen() {
    kq_Close(db_);
    return db_ = kq_OpenForUse(Base().c_str());
  }
  // The state at time t, and the iterator there in *at.
  State StateAt(uint64_t t, kq_EventIter *at = nullptr) {
    kq_EventIter *iter = nullptr;
    kq_State *state = nullptr;
    EXPECT_EQ(kq_GetStateAndIterFromTime(db_, t, &iter, &state), 1);
    if (at != nullptr && iter != nullptr) *at = *iter;
    kq_DeleteEventIter(iter);
    return TakeState(state);
  }
  Script Range(uint64_t start, uint64_t end, State *state = nullptr) {
    kq_State *s = nullptr;
    List_PT list = kq_GetEventListAndStateFromTimeRange(db_, start, end, &s);
    return Taken(list, s, state);
  }
  Script ByNumber(uint32_t number, int max, State *state = nullptr) {
    kq_State *s = nullptr;
    List_PT list = kq_GetNEventsAndStateFromEventNum(db_, number, max, &s);
    return Taken(list, s, state);
  }
  static Script Taken(List_PT list, kq_State *s, State *state) {
    const State taken = TakeState(s);
    if (state != nullptr) *state = taken;
    return TakeList(list);
  }
  TempDir dir_{MemoryTempParent()};
  Script script_;
  kq_DB *db_ = nullptr;
};

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_DATABASE_SCRIPT_H
