/*
 * kq_check.cpp - the structure check of kq_check.h.  It reads .kqs and .kqi
 * through windows of their own (kq_io_stream.h) and holds everything it
 * finds against the rules of kq_io_format.h, with a replay of its own: a map
 * of objects that the events' changes are applied to by the rules of the
 * three kinds of change (a New of an existing object, a Mod that doesn't fit
 * and a Del of nothing change nothing).  It shares the packet parsers with
 * the cursor and nothing else with the read side, so a fault of the queries
 * doesn't hide itself here.
 */
#include "kq_check.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kq_io_format.h"
#include "kq_io_read.h"
#include "kq_io_stream.h"

namespace {

using kqio::Be16;
using kqio::Be32;
using kqio::Be64;

using Key = std::pair<uint16_t, uint32_t>;  // (type, id)
using Objects = std::map<Key, std::string>;

std::string KeyText(const Key &key) {
  char text[40];
  snprintf(text, sizeof text, "%u/0x%" PRIx32, key.first, key.second);
  return text;
}

class Checker {
 public:
  Checker(kq_DB *db, kq_CheckReport report, void *context)
      : db_(db), report_(report), context_(context) {}

  uint32_t Run(kq_CheckSummary *summary) {
    if (db_->eventsPerBlock == 0) Problem(".kqv", 0, "events per block is 0");
    if (!stream_.Open(db_->streamName)) {
      Problem(".kqs", 0, "can't be opened");
    } else {
      streamDamaged_ = !WalkStream();
    }
    if (!index_.Open(db_->indexName)) {
      Problem(".kqi", 0, "can't be opened");
    } else {
      WalkIndex();
    }
    if (problems_ > KQ_CHECK_MAX_REPORTS && report_ != nullptr) {
      const std::string more = std::to_string(problems_ - KQ_CHECK_MAX_REPORTS) +
                               " more problems not shown";
      report_(context_, more.c_str());
    }
    if (summary != nullptr) {
      summary->events = events_;
      summary->blocks = static_cast<uint32_t>(blocks_.size());
      summary->entries = entries_;
    }
    return problems_;
  }

 private:
  struct Block {
    uint64_t position = 0;   // of its OBJUSED tag
    uint64_t firstTime = 0;  // of its first event
    uint64_t events = 0;
  };

  void Problem(const char *file, uint64_t position, const std::string &text) {
    problems_++;
    if (report_ == nullptr || problems_ > KQ_CHECK_MAX_REPORTS) return;
    const std::string line =
        std::string(file) + " position " + std::to_string(position) + ": " + text;
    report_(context_, line.c_str());
  }

  /* Parses the packet whose tag stands at pos (kq_io_stream.h); false,
   * after the problem, when the file ends inside it or it is damaged. */
  template <typename ParseFn>
  bool Packet(kqio::FileWindow &file, const char *name, uint64_t pos, ParseFn parse,
              const uint8_t **at, size_t *size) {
    std::string why;
    if (kqio::ParsePacketAt(file, pos, parse, at, size, &why)) return true;
    Problem(name, pos, why);
    return false;
  }

  /* ---- The stream ---- */

  /* False when damage stopped the walk before the end tag. */
  bool WalkStream() {
    uint64_t pos = KQ_FIRST_POSITION;
    bool needEvent = false;  // a block was opened and has no event yet
    uint32_t count = 0;
    kqio::EventPacket event;
    auto objUsed = [&count](const uint8_t *p, size_t n) { return kqio::ParseObjUsed(p, n, &count); };
    auto stateSave = [&count](const uint8_t *p, size_t n) { return kqio::ParseStateSave(p, n, &count); };
    auto eventPacket = [&event](const uint8_t *p, size_t n) { return kqio::ParseEvent(p, n, &event); };
    for (;;) {
      size_t avail = 0;
      const uint8_t *bytes = stream_.At(pos, &avail);
      if (bytes == nullptr) {
        Problem(".kqs", pos, "the stream ends without its end tag");
        return false;
      }
      const uint8_t *at = nullptr;
      size_t size = 0;
      switch (bytes[0]) {
        case KQ_TAG_END:
          if (needEvent) Problem(".kqs", pos, "block " + BlockName() + " ends before its first event");
          return true;
        case KQ_TAG_OBJUSED:
          if (!Packet(stream_, ".kqs", pos, objUsed, &at, &size)) return false;
          OpenBlock(pos, at, count, needEvent);
          needEvent = true;
          break;
        case KQ_TAG_STATE_SAVE:
          if (!Packet(stream_, ".kqs", pos, stateSave, &at, &size)) return false;
          CheckSnapshot(pos, at, count);
          break;
        case KQ_TAG_EVENT: {
          if (!Packet(stream_, ".kqs", pos, eventPacket, &at, &size)) return false;
          CheckEvent(pos, at, event);
          needEvent = false;
          break;
        }
        default:
          Problem(".kqs", pos, "unknown packet tag " + std::to_string(bytes[0]));
          return false;
      }
      pos += size;
    }
  }

  std::string BlockName() const { return std::to_string(blocks_.empty() ? 0 : blocks_.size() - 1); }

  /* An OBJUSED packet at pos: it opens a new block, and lists what the
   * block before it used. */
  void OpenBlock(uint64_t pos, const uint8_t *packet, uint32_t count, bool needEvent) {
    const uint32_t perBlock = db_->eventsPerBlock;
    if (needEvent) {
      Problem(".kqs", pos, "block " + BlockName() + " ends before its first event");
    } else if (!blocks_.empty() && perBlock != 0 && blocks_.back().events != perBlock) {
      Problem(".kqs", pos, "block " + BlockName() + " holds " + std::to_string(blocks_.back().events) +
                               " events, not " + std::to_string(perBlock));
    } else if (blocks_.empty() && pos != KQ_FIRST_POSITION) {
      Problem(".kqs", pos, "the stream doesn't start with a block");
    }
    std::set<Key> listed;
    const uint8_t *at = packet + 1 + 4;
    for (uint32_t i = 0; i < count; i++, at += 6) {
      const Key key{Be16(at), Be32(at + 2)};
      if (!listed.insert(key).second) Problem(".kqs", pos, "object " + KeyText(key) + " listed twice as used");
    }
    const size_t block = blocks_.size();
    if (listed != used_) {
      Problem(".kqs", pos, block == 0 ? std::string("block 0 lists used objects")
                                      : "the used objects listed by block " + std::to_string(block) +
                                            " are not those block " + std::to_string(block - 1) +
                                            " used");
    }
    blocks_.push_back(Block{pos, 0, 0});
    snapshotSeen_ = false;
    /* What this block uses: every object alive at its start, and each one
     * a New creates in it. */
    used_.clear();
    for (const auto &object : replay_) used_.insert(object.first);
  }

  void CheckSnapshot(uint64_t pos, const uint8_t *packet, uint32_t count) {
    if (blocks_.empty() || snapshotSeen_ || blocks_.back().events != 0) {
      Problem(".kqs", pos, "state save packet out of place");
    }
    snapshotSeen_ = true;
    Objects saved;
    const uint8_t *at = packet + 1 + 4;
    for (uint32_t i = 0; i < count; i++) {
      const Key key{Be16(at), Be32(at + 2)};
      const uint32_t length = Be32(at + 6);
      if (!saved.emplace(key, std::string(reinterpret_cast<const char *>(at + 10), length)).second) {
        Problem(".kqs", pos, "object " + KeyText(key) + " saved twice");
      }
      at += 10 + length;
    }
    if (saved == replay_) return;
    std::string first;
    for (const auto &object : replay_) {
      const auto found = saved.find(object.first);
      if (found == saved.end() || found->second != object.second) {
        first = KeyText(object.first);
        break;
      }
    }
    if (first.empty()) {
      for (const auto &object : saved) {
        if (replay_.count(object.first) == 0) {
          first = KeyText(object.first);
          break;
        }
      }
    }
    Problem(".kqs", pos, "the snapshot of block " + BlockName() +
                             " differs from the state replayed from the events (object " + first + ")");
  }

  void CheckEvent(uint64_t pos, const uint8_t *packet, const kqio::EventPacket &event) {
    if (blocks_.empty() || !snapshotSeen_) {
      Problem(".kqs", pos, "event outside a block");
      if (blocks_.empty()) blocks_.push_back(Block{pos, event.time, 0});
    }
    Block &block = blocks_.back();
    if (db_->eventsPerBlock != 0 && block.events == db_->eventsPerBlock) {
      Problem(".kqs", pos, "block " + BlockName() + " holds more than " +
                               std::to_string(db_->eventsPerBlock) + " events");
    }
    if (block.events == 0) block.firstTime = event.time;
    if (events_ != 0 && event.time < lastTime_) {
      Problem(".kqs", pos, "time falls from " + std::to_string(lastTime_) + " to " +
                               std::to_string(event.time));
    }
    lastTime_ = event.time;
    block.events++;
    events_++;
    Replay(packet + 1 + event.changesOffset, event.numChanges);
  }

  void Replay(const uint8_t *at, uint32_t count) {
    for (uint32_t i = 0; i < count; i++) {
      const Key key{Be16(at + 1), Be32(at + 3)};
      switch (at[0]) {
        case KQ_CHANGE_NEW: {
          const uint16_t length = Be16(at + 7);
          if (replay_.emplace(key, std::string(reinterpret_cast<const char *>(at + 9), length)).second) {
            used_.insert(key);
          }
          at += 9 + length;
          break;
        }
        case KQ_CHANGE_MOD: {
          const uint16_t offset = Be16(at + 7);
          const uint8_t n = at[9];
          const auto found = replay_.find(key);
          if (found != replay_.end() && static_cast<size_t>(offset) + n <= found->second.size()) {
            found->second.replace(offset, n, reinterpret_cast<const char *>(at + 10), n);
          }
          at += 10 + n;
          break;
        }
        default:
          replay_.erase(key);
          at += 7;
          break;
      }
    }
  }

  /* ---- The index ---- */

  void WalkIndex() {
    uint64_t pos = KQ_FIRST_POSITION;
    for (;;) {
      size_t avail = 0;
      const uint8_t *bytes = index_.At(pos, &avail);
      if (bytes == nullptr) {
        Problem(".kqi", pos, "the index ends without its end tag");
        break;
      }
      if (bytes[0] == KQ_INDEX_TAG_END) break;
      if (bytes[0] != KQ_INDEX_TAG_ENTRY) {
        Problem(".kqi", pos, "unknown entry tag " + std::to_string(bytes[0]));
        break;
      }
      if (!index_.Extend(pos, KQ_INDEX_ENTRY_SIZE)) {
        Problem(".kqi", pos, "entry cut short by the end of the file");
        break;
      }
      bytes = index_.At(pos, &avail);
      CheckEntry(pos, Be64(bytes + 1), Be32(bytes + 9));
      entries_++;
      pos += KQ_INDEX_ENTRY_SIZE;
    }
    /* The index may lack the entry of the last block: the writer adds it
     * right after the block's first event, and may not be there yet. */
    if (entries_ + 1 < blocks_.size()) {
      Problem(".kqi", pos, "the index has " + std::to_string(entries_) +
                               (entries_ == 1 ? " entry" : " entries") + " for " +
                               std::to_string(blocks_.size()) + " blocks");
    }
  }

  void CheckEntry(uint64_t pos, uint64_t time, uint32_t position) {
    const std::string name = "entry " + std::to_string(entries_);
    if (entries_ >= blocks_.size()) {
      /* Behind damage in the stream the blocks are unknown, not missing. */
      if (!streamDamaged_) Problem(".kqi", pos, name + " has no block");
      return;
    }
    const Block &block = blocks_[entries_];
    if (position != block.position) {
      Problem(".kqi", pos, name + " points at .kqs position " + std::to_string(position) +
                               ", not at its block's opening " + std::to_string(block.position));
    }
    if (time != block.firstTime) {
      Problem(".kqi", pos, name + " has time " + std::to_string(time) + ", its block starts at " +
                               std::to_string(block.firstTime));
    }
  }

  kq_DB *db_;
  kq_CheckReport report_;
  void *context_;
  kqio::FileWindow stream_;
  kqio::FileWindow index_;
  uint32_t problems_ = 0;
  bool streamDamaged_ = false;
  std::vector<Block> blocks_;
  Objects replay_;          // the state after the events so far
  std::set<Key> used_;      // what the current block has used so far
  bool snapshotSeen_ = false;
  uint64_t events_ = 0;
  uint64_t lastTime_ = 0;
  uint32_t entries_ = 0;
};

}  // namespace

extern "C" uint32_t kq_CheckDatabase(kq_DB *db, kq_CheckReport report, void *context,
                                     kq_CheckSummary *summary) {
  if (!IsReadHandle(db) || db->streamName == nullptr || db->indexName == nullptr) {
    if (report != nullptr) report(context, "not a database open for reading");
    if (summary != nullptr) *summary = kq_CheckSummary{0, 0, 0};
    return 1;
  }
  return Checker(db, report, context).Run(summary);
}
