// The tests' model of an event database; see database_model.h.
#include "database_model.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "temp_dir.h"

namespace testsupport {

namespace {

std::string Record(const Change &c) {
  std::string out = U(c.kind, 1) + U(c.type, 2) + U(c.id, 4);
  if (c.kind == Change::kNew) out += U(c.bytes.size(), 2) + c.bytes;
  if (c.kind == Change::kMod) out += U(c.offset, 2) + U(c.bytes.size(), 1) + c.bytes;
  return out;
}
std::string Name31(const std::string &name) { return (name + std::string(31, '\0')).substr(0, 31); }

}  // namespace

Change New(uint16_t type, uint32_t id, std::string value) { return {Change::kNew, type, 0, id, std::move(value)}; }
Change Mod(uint16_t type, uint32_t id, uint16_t offset, std::string bytes) { return {Change::kMod, type, offset, id, std::move(bytes)}; }
Change Del(uint16_t type, uint32_t id) { return {Change::kDel, type, 0, id, {}}; }

std::ostream &operator<<(std::ostream &os, const Event &e) {
  os << "#" << e.number << " t=" << e.time << " " << e.type << ":" << e.subtype << " payload " << ToHex(e.payload) << " changes";
  for (const Change &c : e.changes) os << " [" << ToHex(Record(c)) << "]";
  return os;
}

void Apply(State &state, const Change &c) {
  const auto it = state.find({c.type, c.id});
  if (c.kind == Change::kNew && it == state.end()) state[{c.type, c.id}] = c.bytes;
  if (c.kind == Change::kMod && it != state.end() && c.offset + c.bytes.size() <= it->second.size())
    it->second.replace(c.offset, c.bytes.size(), c.bytes);
  if (c.kind == Change::kDel && it != state.end()) state.erase(it);
}

State Replay(const Script &script, size_t count) {
  State state;
  for (size_t i = 0; i < count && i < script.size(); i++)
    for (const Change &c : script[i].changes) Apply(state, c);
  return state;
}

size_t FirstAtOrAfter(const Script &script, uint64_t t) {
  size_t i = 0;
  while (i < script.size() && script[i].time < t) i++;
  return i;
}

uint64_t RandomTime(Random &random, const Script &script) {
  const uint64_t first = script.front().time, last = script.back().time;
  const uint32_t roll = random.Below(6);
  if (roll < 2) return roll == 0 ? first - random.Below(3) : last + random.Below(3);
  if (roll == 2) return first + random.Below(static_cast<uint32_t>(last - first + 1));
  return script[random.Below(static_cast<uint32_t>(script.size()))].time + random.Below(3) - 1;
}

Script Listed(const Script &script, size_t first, size_t last) {
  Script out;
  for (size_t i = first; i < last && i < script.size(); i++) out.push_back(script[i]), out.back().number = uint32_t(i + 1);
  return out;
}

Script GenerateScript(Random &random, size_t count) {
  Script script;
  uint64_t time = 1000 + random.Below(50);
  for (size_t i = 0, run = 0; i < count; i++) {
    const uint32_t step = random.Below(100);
    if (run > 0)
      run--;
    else if (step < 2)  // a run of equal times, often across a block boundary
      run = 20 + random.Below(200);
    else if (step < 4 || step >= 29)  // a jump, or a step
      time += step < 4 ? 100000 + random.Below(1000000) : 1 + random.Below(40);
    Event e(time, static_cast<uint16_t>(1 + random.Below(7)), static_cast<uint16_t>(random.Below(40)));
    const uint32_t owner = 0x100 + random.Below(16);
    e.payload = random.Below(20) == 0 ? std::string(random.Below(4), 'x') : U(owner, 4);  // or too short to name one
    for (uint32_t k = e.payload.size() == 4 ? random.Below(24) : 0; k > 0; k--) e.payload += static_cast<char>(random.Next());
    if (e.type == 6) e.changes.push_back(New(0, owner, TaskValue(i % 8, {}, "task")));
    for (uint32_t k = random.Below(4); k > 0; k--) {
      const uint32_t what = random.Below(12), kind = random.Below(10);
      const uint16_t type = what < 6 ? 0 : (what < 10 ? 3 : 9);
      const uint32_t id = type == 0 ? 0x100 + random.Below(16) : random.Below(type == 3 ? 8 : 5);
      const std::string value = type == 0 ? TaskValue(i % 8, i) : std::string(type == 3 ? 8 : 0, char(i));
      const auto offset = static_cast<uint16_t>(random.Below(type == 0 ? 80 : 10));
      e.changes.push_back(kind < 4 ? New(type, id, value)
                          : kind < 8 ? Mod(type, id, offset, std::string(1 + random.Below(6), char(random.Next())))
                                     : Del(type, id));
    }
    script.push_back(std::move(e));
  }
  return script;
}

Script CountingScript(size_t count, uint64_t first, uint64_t step) {
  Script script;
  for (uint32_t k = 0; k < count; k++)
    script.emplace_back(first + step * k, 4, k % 7, U(k + 1, 4), std::vector{New(0, k + 1, U(k + 1, 4))});
  return script;
}

std::string HexBytes(const std::string &text) {
  std::string bytes, digits;
  for (size_t i = 0; i <= text.size(); i++) {
    const char c = i < text.size() ? text[i] : ' ';
    if (isxdigit(static_cast<unsigned char>(c))) {
      digits += c;
      continue;
    }
    if (digits.size() % 2 != 0) throw std::invalid_argument("odd number of hex digits in " + text);
    for (size_t k = 0; k < digits.size(); k += 2) bytes += static_cast<char>(std::stoi(digits.substr(k, 2), nullptr, 16));
    digits.clear();
    const size_t close = c == '"' ? text.find('"', i + 1) : i;
    if (close == std::string::npos || (c != '"' && !isspace(static_cast<unsigned char>(c)) && c != '|'))
      throw std::invalid_argument("bad hex text " + text);
    if (c == '"') bytes += text.substr(i + 1, close - i - 1), i = close;
  }
  return bytes;
}

std::string ToHex(const std::string &bytes) {
  std::string text;
  const char *digits = "0123456789ABCDEF";
  for (unsigned char byte : bytes) text += (text.empty() ? "" : " ") + std::string{digits[byte >> 4], digits[byte & 15]};
  return text;
}

std::string U(uint64_t value, int bytes) {
  std::string out;
  for (int i = bytes - 1; i >= 0; i--) out += static_cast<char>(value >> (8 * i));
  return out;
}

std::string Word(uint32_t value, bool bigEndian) {
  const std::string big = U(value, 4);
  return bigEndian ? big : std::string(big.rbegin(), big.rend());
}

uint32_t WordAt(const std::string &bytes, size_t at, bool bigEndian) {
  const std::string word = bytes.substr(at, 4);
  uint32_t value = 0;
  for (int i = 0; i < 4; i++) value = value << 8 | static_cast<unsigned char>(word[bigEndian ? i : 3 - i]);
  return value;
}

std::string GFileHeader(int fileType) { return HexBytes("7F544F56 00000001") + U(uint32_t(fileType), 4) + HexBytes("00000000 04000000"); }

std::string TaskValue(std::optional<uint16_t> status, std::optional<uint32_t> priority, std::optional<std::string> name,
                      std::optional<std::string> secondName) {
  return U(status.value_or(0), 2) + U(status.has_value(), 1) + U(0, 1) + U(priority.value_or(0xFFFFFFFF), 4) +
         U(priority.has_value(), 1) + Name31(name.value_or("")) + U(name.has_value(), 1) + Name31(secondName.value_or("")) +
         U(secondName.has_value(), 1) + U(0, 3);
}

DatabaseFiles Render(const Script &script, const DatabaseHeader &h) {
  DatabaseFiles f{GFileHeader(6) + U(3, 1) + U(h.ticksPerSecond, 4) + U(h.config.size(), 4) + h.config + U(h.bigEndian, 1) + U(100, 4),
                  GFileHeader(4), GFileHeader(5)};
  State current;
  Table currentTable, usedTable;
  for (size_t i = 0; i < script.size(); i++) {
    const Event &e = script[i];
    if (i % 100 == 0) {  // the block's object list, one block late, and snapshot
      f.kqi += U(1, 1) + U(e.time, 8) + U(f.kqs.size(), 4);
      f.kqs += U(3, 1) + U(usedTable.Walk().size(), 4);
      for (const ObjectKey &key : usedTable.Walk()) f.kqs += U(key.first, 2) + U(key.second, 4);
      f.kqs += U(2, 1) + U(current.size(), 4);
      for (const ObjectKey &key : currentTable.Walk())
        f.kqs += U(key.first, 2) + U(key.second, 4) + U(current[key].size(), 4) + current[key];
      usedTable = currentTable.Clone();
    }
    f.kqs += U(1, 1) + U(e.time, 8) + U(e.payload.size(), 4) + U(e.type, 2) + U(e.subtype, 2) + e.payload;
    for (const Change &c : e.changes) {
      const ObjectKey key{c.type, c.id};
      if (c.kind == Change::kNew && !current.count(key)) currentTable.Insert(key), usedTable.Erase(key), usedTable.Insert(key);
      if (c.kind == Change::kDel && current.count(key)) currentTable.Erase(key);
      Apply(current, c);
      f.kqs += Record(c);
    }
    f.kqs += U(3, 1);
  }
  f.kqs += U(0, 1);
  f.kqi += U(0, 1);
  return f;
}

DatabaseFiles ReadDatabase(const std::string &base) {
  return {ReadFileBytes(base + ".kqv"), ReadFileBytes(base + ".kqs"), ReadFileBytes(base + ".kqi")};
}

::testing::AssertionResult SameFiles(const DatabaseFiles &got, const DatabaseFiles &want) {
  if (got == want) return ::testing::AssertionSuccess();
  const std::string &g = got.kqs, &w = want.kqs;
  const auto at = static_cast<size_t>(std::mismatch(g.begin(), g.end(), w.begin(), w.end()).first - g.begin());
  return ::testing::AssertionFailure() << "\n.kqv " << ToHex(got.kqv) << "\n want " << ToHex(want.kqv) << "\n.kqi "
                                       << ToHex(got.kqi) << "\n want " << ToHex(want.kqi) << "\n.kqs of " << got.kqs.size()
                                       << " bytes, want " << want.kqs.size() << ", first differs at " << at << ":\n  got  "
                                       << ToHex(got.kqs.substr(at, 24)) << "\n  want " << ToHex(want.kqs.substr(at, 24));
}

// ---- ThreadX ------------------------------------------------------------------


void ThreadXLog::Record(Event &e, const Change &c) {
  if (c.kind == Change::kNew) table_.Insert({c.type, c.id});
  Apply(threads_, c);
  e.changes.push_back(c);
}

void ThreadXLog::Add(uint64_t time, uint16_t type, uint16_t subtype, const std::string &payload) {
  Event e(time, type, subtype, payload);
  if ((type == 1 || type == 3 || type == 5 || type == 6) && payload.size() >= 4) Track(e);
  script_.push_back(std::move(e));
}

void ThreadXLog::Track(Event &e) {
  const uint32_t id = WordAt(e.payload, 0, big_);
  const bool known = threads_.count({0, id}) != 0;
  auto status = [&](uint32_t who) { return threads_.at({0, who}).substr(0, 2); };
  if (e.type == 1 || e.type == 3) {  // a switch sweeps the running threads to ready, in table order
    if (!known) Record(e, New(0, id, TaskValue(3)));
    if (e.type == 3 && known && status(id) != U(3, 2)) Record(e, Mod(0, id, 0, U(3, 2)));
    for (const ObjectKey &key : e.type == 1 ? table_.Walk() : std::vector<ObjectKey>{})
      if (status(key.second) == U(3, 2) && (known || key.second != id)) Record(e, Mod(0, key.second, 0, U(0, 2)));
    if (e.type == 1 && known) Record(e, Mod(0, id, 0, U(3, 2)));
    return;
  }
  // Types 5 and 6: status, priority from a second word, for 6 the name from offset 8 on.
  const uint16_t remapped = e.type == 6 ? e.subtype : e.subtype == 3 ? 11 : e.subtype == 10 ? 3 : e.subtype;
  const std::optional<uint32_t> priority = e.payload.size() >= 8 ? std::optional(WordAt(e.payload, 4, big_)) : std::nullopt;
  const size_t nameAt = std::min<size_t>(8, e.payload.size());
  const std::optional<std::string> name = e.type == 6 ? std::optional(Name31(e.payload.substr(nameAt))) : std::nullopt;
  if (!known) return Record(e, New(0, id, TaskValue(remapped, priority, name)));
  const std::string value = threads_.at({0, id});
  if (status(id) != U(remapped, 2)) Record(e, Mod(0, id, 0, U(remapped, 2)));
  if (priority && value.substr(4, 4) != U(*priority, 4)) Record(e, Mod(0, id, 4, U(*priority, 4)));
  if (priority && value[8] == 0) Record(e, Mod(0, id, 8, U(1, 1)));
  const size_t length = name ? std::min<size_t>(name->find('\0'), 31) : 0;  // only the name's characters compare
  if (name && name->compare(0, length, value, 9, length) != 0) Record(e, Mod(0, id, 9, name->substr(0, std::min<size_t>(length + 1, 31))));
  if (name && value[40] == 0) Record(e, Mod(0, id, 40, U(1, 1)));
}

}  // namespace testsupport
