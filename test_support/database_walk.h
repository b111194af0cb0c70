// Reads the bytes of an event database's .kqs and .kqi files the way a
// reader in another process would, for tests of the writer: walks the
// packets from position 20 to the 0 tag that ends them and checks, on the
// way, that every length stays within the bytes there, that blocks open
// with an object list, a snapshot and an event, and that a block holds at
// most `eventsPerBlock` events.  Written from the file layout alone; it
// shares no code with the library.
#ifndef RAVELOG_TEST_SUPPORT_DATABASE_WALK_H
#define RAVELOG_TEST_SUPPORT_DATABASE_WALK_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace testsupport {

// (object type, object id)
using ObjectKey = std::pair<uint16_t, uint32_t>;

struct SnapshotObject {
  ObjectKey key;
  std::string value;
};

struct WalkedEvent {
  uint32_t position = 0;   // of its tag (1, or the block's 3 for a block's first)
  uint64_t time = 0;
  uint16_t type = 0;
  uint16_t subtype = 0;
  uint32_t payloadPosition = 0;
  std::string payload;
  std::string changes;     // the raw change records, without the final 3
};

struct WalkedBlock {
  uint32_t position = 0;                  // of the OBJUSED tag
  std::vector<ObjectKey> used;            // in file order
  std::vector<SnapshotObject> snapshot;   // in file order
  std::vector<WalkedEvent> events;
};

struct StreamWalk {
  bool ok = false;
  std::string error;          // what was wrong where, when !ok
  uint32_t endTag = 0;        // position of the 0 tag that ends the stream
  std::vector<WalkedBlock> blocks;
  size_t EventCount() const;
};

// Walks a whole .kqs file (header included).  With requireEndAtLastByte the
// 0 tag must be the file's last byte, as it is between two additions.
StreamWalk WalkStream(const std::string &file, bool requireEndAtLastByte = true,
                      uint32_t eventsPerBlock = 100);

// `file`, a whole .kqs file that `walk` walked, with every event's payload
// bytes replaced by '*': what the same log in either byte order should
// agree on.
std::string MaskPayloads(const std::string &file, const StreamWalk &walk);

struct IndexEntry {
  uint64_t time = 0;
  uint32_t position = 0;
};

struct IndexWalk {
  bool ok = false;
  std::string error;
  uint32_t endTag = 0;
  std::vector<IndexEntry> entries;
};

// Walks a whole .kqi file; with requireEndAtLastByte its 0 tag must be the
// last byte.
IndexWalk WalkIndex(const std::string &file, bool requireEndAtLastByte = true);

// The whole file as read(2) gives it, through a descriptor of its own.
std::string ReadWithSyscalls(const std::string &name);

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_DATABASE_WALK_H
