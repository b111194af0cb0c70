// Test-side reader of .kqs and .kqi files; see database_walk.h.
#include "database_walk.h"

#include <fcntl.h>
#include <unistd.h>

namespace testsupport {

namespace {

constexpr uint32_t kFirst = 20;

// Big-endian reads with a bounds check; a failed read sets `cut`.
class Cursor {
 public:
  Cursor(const std::string &bytes, uint32_t at) : bytes_(bytes), at_(at) {}
  uint32_t at() const { return at_; }
  bool cut() const { return cut_; }
  bool Has(uint64_t n) const { return !cut_ && at_ + n <= bytes_.size(); }
  uint64_t Number(int n) {
    if (!Has(n)) {
      cut_ = true;
      return 0;
    }
    uint64_t value = 0;
    for (int i = 0; i < n; i++) value = value << 8 | static_cast<unsigned char>(bytes_[at_++]);
    return value;
  }
  std::string Raw(uint64_t n) {
    if (!Has(n)) {
      cut_ = true;
      return "";
    }
    std::string out = bytes_.substr(at_, n);
    at_ += static_cast<uint32_t>(n);
    return out;
  }

 private:
  const std::string &bytes_;
  uint32_t at_;
  bool cut_ = false;
};

std::string Where(const char *what, uint32_t position) {
  return std::string(what) + " at position " + std::to_string(position);
}

// Passes the change records of one event and its tag 3; false when they
// are cut short or a tag is unknown.
bool SkipChanges(Cursor &c, std::string *error) {
  for (;;) {
    const uint32_t start = c.at();
    const uint64_t tag = c.Number(1);
    if (c.cut()) break;
    if (tag == 3) return true;
    c.Number(2);  // type
    c.Number(4);  // id
    if (tag == 0) {
      c.Raw(c.Number(2));
    } else if (tag == 1) {
      c.Number(2);  // offset
      c.Raw(c.Number(1));
    } else if (tag != 2) {
      *error = Where("unknown change tag", start);
      return false;
    }
    if (c.cut()) break;
  }
  *error = Where("changes cut short", c.at());
  return false;
}

}  // namespace

size_t StreamWalk::EventCount() const {
  size_t n = 0;
  for (const WalkedBlock &block : blocks) n += block.events.size();
  return n;
}

StreamWalk WalkStream(const std::string &file, bool requireEndAtLastByte, uint32_t eventsPerBlock) {
  StreamWalk walk;
  if (file.size() <= kFirst) {
    walk.error = "no byte behind the header";
    return walk;
  }
  Cursor c(file, kFirst);
  for (;;) {
    const uint32_t position = c.at();
    const uint64_t tag = c.Number(1);
    if (c.cut()) {
      walk.error = Where("no end tag", position);
      return walk;
    }
    if (tag == 0) {
      walk.endTag = position;
      if (requireEndAtLastByte && position + 1 != file.size()) {
        walk.error = Where("bytes behind the end tag", position);
        return walk;
      }
      walk.ok = true;
      return walk;
    }
    if (tag == 3) {
      if (!walk.blocks.empty() && walk.blocks.back().events.size() != eventsPerBlock) {
        walk.error = Where("block opened before the last one was full", position);
        return walk;
      }
      WalkedBlock block;
      block.position = position;
      const uint64_t used = c.Number(4);
      for (uint64_t i = 0; i < used && !c.cut(); i++) {
        const auto type = static_cast<uint16_t>(c.Number(2));
        block.used.emplace_back(type, static_cast<uint32_t>(c.Number(4)));
      }
      const uint32_t savePosition = c.at();
      if (c.Number(1) != 2) {
        walk.error = Where("no state save behind the object list", savePosition);
        return walk;
      }
      const uint64_t saved = c.Number(4);
      for (uint64_t i = 0; i < saved && !c.cut(); i++) {
        SnapshotObject object;
        object.key.first = static_cast<uint16_t>(c.Number(2));
        object.key.second = static_cast<uint32_t>(c.Number(4));
        object.value = c.Raw(c.Number(4));
        block.snapshot.push_back(object);
      }
      const uint32_t eventPosition = c.at();
      if (c.Number(1) != 1) {
        walk.error = Where("no event behind the state save", eventPosition);
        return walk;
      }
      walk.blocks.push_back(block);
    } else if (tag != 1) {
      walk.error = Where("unknown packet tag", position);
      return walk;
    } else if (walk.blocks.empty() || walk.blocks.back().events.size() >= eventsPerBlock) {
      walk.error = Where("event outside a block with room", position);
      return walk;
    }
    WalkedEvent event;
    event.position = position;
    event.time = c.Number(8);
    const uint64_t length = c.Number(4);
    event.type = static_cast<uint16_t>(c.Number(2));
    event.subtype = static_cast<uint16_t>(c.Number(2));
    event.payloadPosition = c.at();
    event.payload = c.Raw(length);
    const uint32_t changesStart = c.at();
    if (c.cut() || !SkipChanges(c, &walk.error)) {
      if (walk.error.empty()) walk.error = Where("event cut short", position);
      return walk;
    }
    event.changes = file.substr(changesStart, c.at() - 1 - changesStart);
    walk.blocks.back().events.push_back(event);
  }
}

std::string MaskPayloads(const std::string &file, const StreamWalk &walk) {
  std::string masked = file;
  for (const WalkedBlock &block : walk.blocks) {
    for (const WalkedEvent &event : block.events) {
      masked.replace(event.payloadPosition, event.payload.size(), event.payload.size(), '*');
    }
  }
  return masked;
}

IndexWalk WalkIndex(const std::string &file, bool requireEndAtLastByte) {
  IndexWalk walk;
  if (file.size() <= kFirst) {
    walk.error = "no byte behind the header";
    return walk;
  }
  Cursor c(file, kFirst);
  for (;;) {
    const uint32_t position = c.at();
    const uint64_t tag = c.Number(1);
    if (c.cut()) {
      walk.error = Where("no end tag", position);
      return walk;
    }
    if (tag == 0) {
      walk.endTag = position;
      if (requireEndAtLastByte && position + 1 != file.size()) {
        walk.error = Where("bytes behind the end tag", position);
        return walk;
      }
      walk.ok = true;
      return walk;
    }
    if (tag != 1) {
      walk.error = Where("unknown entry tag", position);
      return walk;
    }
    IndexEntry entry;
    entry.time = c.Number(8);
    entry.position = static_cast<uint32_t>(c.Number(4));
    if (c.cut()) {
      walk.error = Where("entry cut short", position);
      return walk;
    }
    walk.entries.push_back(entry);
  }
}

std::string ReadWithSyscalls(const std::string &name) {
  std::string bytes;
  const int fd = open(name.c_str(), O_RDONLY);
  if (fd < 0) return bytes;
  char buffer[65536];
  for (;;) {
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n <= 0) break;
    bytes.append(buffer, static_cast<size_t>(n));
  }
  close(fd);
  return bytes;
}

}  // namespace testsupport
