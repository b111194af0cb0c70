// Tests of the second kernel's tracker: for each event the changes it must
// record, written out by hand and held against the files after every
// addition, in both byte orders.
#include <gtest/gtest.h>

#include "database_script.h"

using namespace testsupport;

namespace {

bool big = true;  // the byte order of the payloads below
std::string W(uint32_t v) { return Word(v, big); }
std::string Refresh(uint32_t id, uint32_t priority, const std::string &name, const char *second = nullptr) {
  return W(id) + W(priority) + TaskValue({}, {}, name).substr(9, 31) + (second ? TaskValue({}, {}, second).substr(9, 31) : "");
}
Change M(uint32_t id, uint16_t offset, const std::string &hex) { return Mod(0, id, offset, HexBytes(hex)); }
Change Name(uint32_t id, uint16_t offset, const std::string &text) { return Mod(0, id, offset, text.size() < 31 ? text + '\0' : text); }
Change Task(uint32_t id, std::optional<uint16_t> status, std::optional<uint32_t> priority = {}, std::optional<std::string> name = {},
            std::optional<std::string> second = {}) {
  return New(0, id, TaskValue(status, priority, name, second));
}
::testing::AssertionResult Tracks(const Script &expected) {
  TempDir dir;
  return TracksAsScripted(dir.file("db"), kq_SaveStateChange_Vorhaven, expected, {1000, "vorhaven", big});
}

TEST(VorhavenTracker, TaskChangesRunATaskAndReadyOnlyItsGroupInEitherByteOrder) {
  for (const bool order : {true, false}) {
    big = order;
    EXPECT_TRUE(Tracks({{0, 3, 0, W(0x401), {Task(0x401, 3)}}, {0, 3, 0, W(0x402), {Task(0x402, 3)}},
                        {0, 1, 0, W(0x801), {Task(0x801, 3), M(0x401, 0, "0000")}},  // group 1 is 0x401's, not 0x402's
                        {0, 1, 0, W(0x801), {M(0x801, 0, "0000"), M(0x801, 0, "0003")}},  // to the running task again
                        {0, 2, 0, W(0x5), {Task(0x5, {})}},
                        {0, 1, 0, W(0x5), {M(0x5, 0, "0003"), M(0x5, 2, "01")}},
                        {0, 3, 12, W(0xC05), {Task(0xC05, 3)}},  // a kernel call runs its task and touches no other
                        {0, 5, 1, W(0xC05), {M(0xC05, 0, "0001")}}, {0, 3, 12, W(0xC05)},
                        {0, 6, 3, Refresh(0x7, 0x01020304, "le", "two"), {Task(0x7, 3, 0x01020304, "le", "two")}},
                        {0, 5, 3, W(0x7) + W(0x0A0B0C0D), {M(0x7, 4, "0A0B0C0D")}}}))
        << (big ? "big" : "little") << "-endian";
  }
  big = true;
}

TEST(VorhavenTracker, OtherTypesEnsureTheirTaskAndStatusChangesCompareBeforeTheyWrite) {
  Script script;
  uint32_t id = 0x100;
  for (uint16_t type : {2, 4, 7, 0, 8, 9, 10, 0xFFFF})
    script.push_back({0, type, 3, W(id), {Task(id, {})}}), script.push_back({0, type, 3, W(id++)});
  script.push_back({0, 5, 2, W(0x20) + W(9), {Task(0x20, 2, 9)}});  // a status change compares before it writes
  script.push_back({0, 5, 7, W(0x20) + W(9), {M(0x20, 0, "0007")}});
  script.push_back({0, 5, 0, W(0x100), {M(0x100, 2, "01")}});  // reads 0 already: the flag only
  EXPECT_TRUE(Tracks(script));
}

TEST(VorhavenTracker, TheGroupStatusChangeSetsTenOnItsGroupUnreadAndCreatesNothing) {
  // Table order: 0x401 (bucket 4), 0x400 (13), 0x001 (20), 0x800 (26).
  const Event groupZero = {0, 5, 8, "", {M(0x400, 0, "000A"), M(0x800, 0, "000A")}};
  EXPECT_TRUE(Tracks({{0, 3, 0, W(0x400), {Task(0x400, 3)}}, {0, 5, 1, W(0x800), {Task(0x800, 1)}},
                      {0, 3, 0, W(0x401), {Task(0x401, 3)}}, {0, 2, 0, W(0x001), {Task(0x001, {})}},
                      groupZero, groupZero,  // no id: group 0, set again without comparing
                      {0, 5, 8, HexBytes("040100"), groupZero.changes},
                      {0, 5, 8, W(0x7401), {M(0x401, 0, "000A"), M(0x001, 0, "000A")}},  // the flag stays
                      {0, 5, 8, W(0x123)}}));
}

TEST(VorhavenTracker, RefreshesRecordOnlyTheFactsThatDiffer) {
  const std::string a(31, 'a'), b(31, 'b'), c(31, 'c'), d(31, 'd');
  EXPECT_TRUE(Tracks({{0, 6, 1, Refresh(0x30, 5, "main"), {Task(0x30, 1, 5, "main")}}, {0, 6, 1, Refresh(0x30, 5, "main")},
                      {0, 6, 2, Refresh(0x31, 6, "io", "cpu1"), {Task(0x31, 2, 6, "io", "cpu1")}},
                      {0, 6, 2, Refresh(0x31, 6, "io", "cpu1")}, {0, 6, 2, Refresh(0x31, 6, "io")},
                      // A changed name rewrites the second one too; a short refresh leaves it.
                      {0, 6, 2, Refresh(0x31, 6, "disk", "cpu1"), {Name(0x31, 9, "disk"), Name(0x31, 41, "cpu1")}},
                      {0, 6, 2, Refresh(0x31, 6, "disk", "cpu2"), {Name(0x31, 41, "cpu2")}},
                      {0, 6, 2, Refresh(0x31, 6, "net"), {Name(0x31, 9, "net")}},
                      {0, 6, 0, Refresh(0x33, 1, "abcd", "wxyz"), {Task(0x33, 0, 1, "abcd", "wxyz")}},
                      {0, 6, 0, Refresh(0x33, 1, "ab", "wx")},  // the beginning of the stored name counts as equal
                      {0, 6, 0, Refresh(0x33, 1, "abcde"), {Name(0x33, 9, "abcde")}},
                      {0, 2, 0, W(0x34), {Task(0x34, {})}},
                      {0, 6, 4, Refresh(0x34, 7, "late", "x"),
                       {M(0x34, 0, "0004"), M(0x34, 2, "01"), M(0x34, 4, "00000007"), M(0x34, 8, "01"), Name(0x34, 9, "late"),
                        M(0x34, 40, "01"), Name(0x34, 41, "x"), M(0x34, 72, "01")}},
                      {0, 6, 1, Refresh(0x35, 1, a, b.c_str()), {Task(0x35, 1, 1, a, b)}},  // names that fill their field
                      {0, 6, 1, Refresh(0x35, 1, c, d.c_str()), {Name(0x35, 9, c), Name(0x35, 41, d)}}}));
}

TEST(VorhavenTracker, EventsShorterThanTheirTypeNeedsLeaveOutWhatIsMissing) {
  Script script;
  for (uint16_t type : {0, 1, 2, 3, 4, 5, 6, 7, 9})
    for (size_t length = 0; length < 4; length++) script.push_back({0, type, 1, std::string(length, '\x11')});
  for (const Event &e : Script{{0, 5, 1, W(0x45) + "\x7F\x7F\x7F", {Task(0x45, 1)}},  // 7 bytes: no priority
                               {0, 6, 2, W(0x50), {Task(0x50, 2)}},
                               {0, 6, 2, W(0x51) + W(3), {Task(0x51, 2, 3)}},
                               {0, 6, 2, Refresh(0x52, 3, "nameless").substr(0, 38), {Task(0x52, 2, 3)}},  // a cut name is none
                               {0, 6, 2, Refresh(0x53, 3, "kept", "two"), {Task(0x53, 2, 3, "kept", "two")}},
                               {0, 6, 1, Refresh(0x53, 4, "other", "three").substr(0, 38), {M(0x53, 0, "0001"), M(0x53, 4, "00000004")}},
                               {0, 6, 1, (Refresh(0x53, 4, "kept", "changed") + '\0').substr(0, 69)},  // exactly 70 bytes carry
                               {0, 6, 1, Refresh(0x53, 4, "kept", "changed") + '\0'},                  // a second name
                               {0, 6, 1, (Refresh(0x53, 4, "kept") + '\0').substr(0, 40)}})
    script.push_back(e);
  EXPECT_TRUE(Tracks(script));
}

}  // namespace
