/*
 * kqv_html.cpp - the html export: one self-contained page (the template
 * timeline.html, compiled in) with the recording's data embedded as JSON in
 * a <script id="kqv-data" type="application/json"> element.  The page needs
 * no network and no other file.
 *
 * The data, times in ticks counted from the range's start ("from"):
 *
 *   format          1
 *   database, config, ticksPerSecond, from, to
 *   statuses        [{name, class}], class "running", "ready", "waiting" or
 *                   "unknown"; stretches refer to them by index
 *   threads         [{id, name, runningTicks, share}] in the order the walk
 *                   met them (the page sorts its list by id); stretches and
 *                   markers refer to them by index
 *   slices          {count, mergedBelow, data}: data is base64 of records of
 *                   unsigned LEB128 numbers, each record
 *                     thread, status + 1 (0 for a merged run), start (ticks
 *                     behind the start of the thread's previous record, the
 *                     first behind `from`), duration
 *                   and for a merged run two more: the stretches it merges
 *                   and the ticks it ran.  Records of one thread come in
 *                   time order and never overlap.
 *   markers         {count, dropped, names, data}: base64 of records
 *                     kind (0 interrupt, 1 service call, 2 user event),
 *                     track (thread index; 4294967295 for interrupts),
 *                     time (ticks behind the previous marker, the first
 *                     behind `from`), name index, word count, the words
 *   overview        {columns, data}: for each thread in order, `columns`
 *                   bytes, the class holding most of each column's time
 *                   (0 running, 1 ready, 2 waiting, 3 unknown, 255 none),
 *                   the columns dividing [from, to) evenly: what the page
 *                   draws at its first zoom
 *
 * Bounds: with more than maxSlices stretches a second pass merges the
 * stretches shorter than `mergedBelow` (a power of two, chosen so that what
 * remains fits) into runs, and with more than maxSlices markers it keeps an
 * even sample of them (`dropped` tells how many are left out); so the
 * page's size doesn't grow with the recording beyond that.
 */
#include <algorithm>
#include <array>
#include <cinttypes>
#include <map>
#include <unordered_map>
#include <vector>

#include "indgen.h"
#include "kq_byteorder.h"
#include "kq_io.h"
#include "kq_state.h"
#include "kqv_export.h"

namespace kqv {

/* The page (generated from timeline.html at build time). */
extern const char *const kTimelineTemplate;

namespace {

constexpr uint16_t kInterrupt = 2;
constexpr uint16_t kKernelCall = 3;
constexpr uint16_t kUserEvent = 4;
constexpr uint32_t kColumns = 1600;
/* The track of interrupts in a marker record: no thread index. */
constexpr uint64_t kInterruptTrack = 0xFFFFFFFFu;
constexpr const char *kDataMark = "/*KQV-DATA*/";

enum Class : uint8_t { kRunning = 0, kReady = 1, kWaiting = 2, kUnknown = 3, kNone = 255 };
const char *const kClassNames[] = {"running", "ready", "waiting", "unknown"};

void PutNumber(std::string *out, uint64_t value) {
  while (value >= 0x80) {
    *out += static_cast<char>((value & 0x7F) | 0x80);
    value >>= 7;
  }
  *out += static_cast<char>(value);
}

/* Writes bytes to out in base64, a piece at a time. */
void PutBase64(Output *out, const std::string &bytes) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string piece;
  size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const uint32_t n = static_cast<uint8_t>(bytes[i]) << 16 | static_cast<uint8_t>(bytes[i + 1]) << 8 |
                       static_cast<uint8_t>(bytes[i + 2]);
    for (int shift : {18, 12, 6, 0}) piece += kAlphabet[(n >> shift) & 63];
    if (piece.size() >= 65536) {
      out->Text(piece);
      piece.clear();
    }
  }
  if (i < bytes.size()) {
    const bool two = i + 1 < bytes.size();
    const uint32_t n = static_cast<uint8_t>(bytes[i]) << 16 |
                       (two ? static_cast<uint8_t>(bytes[i + 1]) << 8 : 0);
    piece += kAlphabet[(n >> 18) & 63];
    piece += kAlphabet[(n >> 12) & 63];
    piece += two ? kAlphabet[(n >> 6) & 63] : '=';
    piece += '=';
  }
  out->Text(piece);
}

/* The page's data, gathered in one walk; Plan sets what the walk keeps. */
class Timeline : public Stretches {
 public:
  struct Plan {
    uint64_t mergeBelow = 0;  // stretches shorter than this are merged
    uint64_t markerStep = 1;  // every markerStep-th marker is kept
    uint64_t limit = UINT64_MAX;  // a first pass stops gathering beyond this
  };

  Timeline(const Database &database, const Range &range, Plan plan)
      : Stretches(database, range), plan_(plan) {}

  void Walk() {
    ShowProgress("exporting");
    Stretches::Run();
    for (auto &[id, run] : runs_) Flush(id);
  }

  uint64_t stretches() const { return stretches_; }
  uint64_t markers() const { return markersSeen_; }
  /* Stretches of at least 2^k ticks, for each k. */
  const std::array<uint64_t, 65> &atLeast() const { return atLeast_; }

  void Write(Output *out);

 private:
  struct MergedRun {  // a merged run being gathered
    uint64_t start = 0, end = 0, count = 0, running = 0;
  };
  struct ThreadData {
    uint64_t lastStart = 0;  // of its previous record, behind `from`
    uint64_t runningTicks = 0;
    std::vector<std::array<uint64_t, kWaiting + 2>> columns;  // ticks per class
  };

  uint32_t StatusIndex(const TaskStatus &status) {
    const uint32_t key = status.known ? status.value : 0x10000u;
    const auto found = statusIndex_.find(key);
    if (found != statusIndex_.end()) return found->second;
    const uint32_t index = static_cast<uint32_t>(statuses_.size());
    statuses_.push_back({StatusText(database_.db(), status), ClassOf(status)});
    statusIndex_.emplace(key, index);
    return index;
  }

  Class ClassOf(const TaskStatus &status) const {
    if (!status.known) return kUnknown;
    if (kq_IsPrimaryValue(database_.db(), KQ_TYPE_TASK, 0, &status.value)) return kRunning;
    return status.value == 0 ? kReady : kWaiting;
  }

  uint32_t ThreadIndex(uint32_t id) {
    const auto found = threadIndex_.find(id);
    if (found != threadIndex_.end()) return found->second;
    const auto index = static_cast<uint32_t>(threadIds_.size());
    threadIds_.push_back(id);
    threads_.emplace_back();
    threadIndex_.emplace(id, index);
    return index;
  }

  void Stretch(uint32_t id, const TaskStatus &status, uint64_t start, uint64_t end) override {
    const uint64_t length = end - start;
    stretches_++;
    for (int k = 0; k < 65 && (k == 64 || length >= (uint64_t{1} << k)); k++) {
      if (k < 64) atLeast_[k]++;
    }
    if (!Gathering()) return;
    const uint32_t thread = ThreadIndex(id);
    const uint32_t statusIndex = StatusIndex(status);
    const Class kind = statuses_[statusIndex].second;
    AddToColumns(thread, kind, start, end);
    if (kind == kRunning) threads_[thread].runningTicks += length;
    if (length < plan_.mergeBelow) {
      MergedRun &run = runs_[id];
      if (run.count == 0) run.start = start;
      run.end = end;
      run.count++;
      if (kind == kRunning) run.running += length;
      return;
    }
    Flush(id);
    Record(thread, statusIndex + 1, start, length);
  }

  void Flush(uint32_t id) {
    MergedRun &run = runs_[id];
    if (run.count == 0) return;
    Record(ThreadIndex(id), 0, run.start, run.end - run.start);
    PutNumber(&slices_, run.count);
    PutNumber(&slices_, run.running);
    run = MergedRun{};
  }

  void Record(uint32_t thread, uint32_t status, uint64_t start, uint64_t length) {
    ThreadData &data = threads_[thread];
    const uint64_t since = start - range().from;
    PutNumber(&slices_, thread);
    PutNumber(&slices_, status);
    PutNumber(&slices_, since - data.lastStart);
    PutNumber(&slices_, length);
    data.lastStart = since;
    records_++;
  }

  /* Adds the stretch's ticks to the columns it covers.  The range's end is
   * only known after the walk for an open range: columns are then laid over
   * the database's extent. */
  void AddToColumns(uint32_t thread, Class kind, uint64_t start, uint64_t end) {
    auto &columns = threads_[thread].columns;
    if (columns.empty()) columns.resize(kColumns, {0, 0, 0, 0});
    const uint64_t from = range().from;
    const uint64_t span = std::max<uint64_t>(ColumnsEnd() - from, 1);
    auto column = [&](uint64_t t) {
      return static_cast<uint32_t>(std::min<unsigned __int128>(
          static_cast<unsigned __int128>(t - from) * kColumns / span, kColumns - 1));
    };
    for (uint32_t c = column(start); c <= column(end > start ? end - 1 : start); c++) {
      const uint64_t c0 = from + static_cast<uint64_t>(static_cast<unsigned __int128>(c) * span / kColumns);
      const uint64_t c1 = from + static_cast<uint64_t>(static_cast<unsigned __int128>(c + 1) * span / kColumns);
      const uint64_t overlap = std::min(end, c1) - std::max(start, c0);
      if (std::min(end, c1) > std::max(start, c0)) columns[c][kind] += overlap;
    }
  }

  uint64_t ColumnsEnd() const {
    return range().bounded ? range().to : std::max(database_.end(), range().from + 1);
  }

  void Event(const kq_CursorEvent &event) override {
    if (event.type != kInterrupt && event.type != kKernelCall && event.type != kUserEvent) return;
    if (event.type != kInterrupt && !event.hasOwner) return;
    const uint64_t seen = markersSeen_++;
    if (!Gathering() || seen % plan_.markerStep != 0) return;
    const uint32_t kind = event.type == kInterrupt ? 0 : event.type == kKernelCall ? 1 : 2;
    const uint32_t key = static_cast<uint32_t>(event.type) << 16 | event.subtype;
    auto name = markerNameIndex_.find(key);
    if (name == markerNameIndex_.end()) {
      name = markerNameIndex_.emplace(key, static_cast<uint32_t>(markerNames_.size())).first;
      markerNames_.push_back(MarkerName(event.type, event.subtype));
    }
    PutNumber(&markers_, kind);
    PutNumber(&markers_, event.type == kInterrupt ? kInterruptTrack : ThreadIndex(event.ownerId));
    PutNumber(&markers_, event.time - range().from - lastMarker_);
    lastMarker_ = event.time - range().from;
    PutNumber(&markers_, name->second);
    const uint32_t words = std::min<uint32_t>(event.length / 4, 5);
    PutNumber(&markers_, words);
    for (uint32_t w = 0; w < words; w++) {
      PutNumber(&markers_, kq_ConvertToHostOrder4(kq_IsBigEndian(database_.db()) != 0 ? 1 : 0,
                                                  event.payload + 4 * w));
    }
    markersKept_++;
  }

  /* Whether what the walk meets is still gathered: a first pass over a
   * recording too large for the page only counts, once it knows that. */
  bool Gathering() {
    if (!gathering_) return false;
    if (stretches_ <= plan_.limit && markersSeen_ <= plan_.limit) return true;
    gathering_ = false;
    std::string().swap(slices_);
    std::string().swap(markers_);
    threads_.clear();
    return false;
  }

  std::string MarkerName(uint16_t type, uint16_t subtype) const {
    if (type == kUserEvent) return "user event " + std::to_string(subtype);
    if (type == kInterrupt) return "interrupt " + std::to_string(subtype);
    return EventName(database_.db(), type, subtype);
  }

  Plan plan_;
  bool gathering_ = true;
  uint64_t stretches_ = 0, records_ = 0;
  std::array<uint64_t, 65> atLeast_{};
  std::vector<std::pair<std::string, Class>> statuses_;
  std::unordered_map<uint32_t, uint32_t> statusIndex_;
  std::vector<uint32_t> threadIds_;
  std::vector<ThreadData> threads_;
  std::unordered_map<uint32_t, uint32_t> threadIndex_;
  std::unordered_map<uint32_t, MergedRun> runs_;
  std::string slices_;
  uint64_t markersSeen_ = 0, markersKept_ = 0, lastMarker_ = 0;
  std::vector<std::string> markerNames_;
  std::unordered_map<uint32_t, uint32_t> markerNameIndex_;
  std::string markers_;
};

void Timeline::Write(Output *out) {
  const std::map<uint32_t, std::string> names = ThreadNames(database_, range());
  const uint64_t span = range().to > range().from ? range().to - range().from : 0;
  const std::string page = kTimelineTemplate;
  const size_t mark = page.find(kDataMark);
  if (mark == std::string::npos) gen_errorexit(1, "The timeline page has no place for its data.");
  out->Text(page.substr(0, mark));
  out->Text("{\"format\":1,\"database\":" + JsonString(database_.name()) +
            ",\"config\":" + JsonString(kq_GetNameOfConfigFile(database_.db())) +
            ",\"ticksPerSecond\":" + std::to_string(database_.ticksPerSecond()) +
            ",\"from\":" + std::to_string(range().from) + ",\"to\":" + std::to_string(range().to) +
            ",\"statuses\":[");
  for (size_t i = 0; i < statuses_.size(); i++) {
    out->Text((i ? "," : "") + std::string("{\"name\":") + JsonString(statuses_[i].first) +
              ",\"class\":\"" + kClassNames[statuses_[i].second] + "\"}");
  }
  out->Text("],\"threads\":[");
  for (size_t r = 0; r < threadIds_.size(); r++) {
    const uint32_t id = threadIds_[r];
    const auto name = names.find(id);
    const uint64_t running = threads_[r].runningTicks;
    char share[32];
    snprintf(share, sizeof share, "%.6f", span != 0 ? static_cast<double>(running) / span : 0.0);
    out->Text((r ? "," : "") + std::string("{\"id\":") + std::to_string(id) +
              ",\"name\":" + JsonString(name != names.end() ? name->second : "") +
              ",\"runningTicks\":" + std::to_string(running) + ",\"share\":" + share + "}");
  }
  out->Text("],\"slices\":{\"count\":" + std::to_string(records_) +
            ",\"mergedBelow\":" + std::to_string(plan_.mergeBelow) + ",\"data\":\"");
  PutBase64(out, slices_);
  out->Text("\"},\"markers\":{\"count\":" + std::to_string(markersKept_) + ",\"dropped\":" +
            std::to_string(markersSeen_ - markersKept_) + ",\"names\":[");
  for (size_t i = 0; i < markerNames_.size(); i++) out->Text((i ? "," : "") + JsonString(markerNames_[i]));
  out->Text("],\"data\":\"");
  PutBase64(out, markers_);
  std::string overview;
  for (const ThreadData &thread : threads_) {
    const auto &columns = thread.columns;
    for (uint32_t c = 0; c < kColumns; c++) {
      uint8_t best = kNone;
      uint64_t most = 0;
      for (uint8_t k = 0; !columns.empty() && k < 4; k++) {
        if (columns[c][k] > most) most = columns[c][k], best = k;
      }
      overview += static_cast<char>(best);
    }
  }
  out->Text("\"},\"overview\":{\"columns\":" + std::to_string(kColumns) + ",\"data\":\"");
  PutBase64(out, overview);
  out->Text("\"}}");
  out->Text(page.substr(mark + strlen(kDataMark)));
  out->Commit();
}

}  // namespace

void WriteHtml(const Database &database, const Range &range, uint64_t maxSlices, Output *out) {
  Timeline::Plan plan;
  plan.limit = maxSlices;
  Timeline first(database, range, plan);
  first.Walk();
  if (first.stretches() <= maxSlices && first.markers() <= maxSlices) {
    first.Write(out);
    return;
  }
  /* Too many: merge the stretches shorter than the smallest power of two
   * that leaves at most maxSlices records (each long stretch may separate
   * two runs), and keep an even sample of the markers. */
  Timeline::Plan second;
  if (first.stretches() > maxSlices) {
    int k = 0;
    while (k < 63 && 2 * first.atLeast()[k] + 64 > maxSlices) k++;
    second.mergeBelow = uint64_t{1} << k;
  }
  if (first.markers() > maxSlices && maxSlices != 0) {
    second.markerStep = (first.markers() + maxSlices - 1) / maxSlices;
  }
  Timeline planned(database, range, second);
  planned.Walk();
  planned.Write(out);
}

}  // namespace kqv
