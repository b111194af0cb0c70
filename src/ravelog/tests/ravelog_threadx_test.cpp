// Tests of the ThreadX tracker through real databases, the files held against
// the model after every event: records with their changes pinned by hand,
// the sweep in walk order while the table grows to 127 buckets, and
// databases written in turn or at the address of a closed one.
#include <gtest/gtest.h>

#include "database_script.h"
#include "ravelog.h"

using namespace testsupport;

namespace {

std::string W(uint32_t value) { return Word(value, true); }
std::string Record(uint32_t id, uint32_t priority, const std::string &name) {
  return W(id) + W(priority) + TaskValue({}, {}, name).substr(9, 31);
}
// The inputs with the changes the model's tracking gives them.
Script Modelled(const Script &inputs) { return ThreadXLog(true, inputs).script(); }
::testing::AssertionResult Tracks(const Script &expected) {
  TempDir dir;
  return TracksAsScripted(dir.file("db"), ThreadX_SaveStateChange, expected, {1000, "threadx", true});
}

TEST(ThreadXTracker, SwitchesSendTheRunningThreadsToReadyInTableOrder) {
  const Change running = Mod(0, 0x2222, 0, U(3, 2)), ready = Mod(0, 0x2222, 0, U(0, 2));
  const std::string name31 = "a_name_of_exactly_thirty_one_ch";
  const Script pinned = {{0, 6, 10, Record(0x1111, 5, "alpha"), {New(0, 0x1111, TaskValue(10, 5, "alpha"))}},
                         {0, 6, 10, Record(0x2222, 6, "beta"), {New(0, 0x2222, TaskValue(10, 6, "beta"))}},
                         {0, 1, 0, W(0x1111), {Mod(0, 0x1111, 0, U(3, 2))}},
                         {0, 1, 0, W(0x2222), {Mod(0, 0x1111, 0, U(0, 2)), running}},
                         {0, 1, 0, W(0x2222), {ready, running}},  // to the running one again
                         {0, 3, 0, W(0xA), {New(0, 0xA, TaskValue(3))}},
                         {0, 3, 0, W(0xB), {New(0, 0xB, TaskValue(3))}},  // a new one runs; table order: 0x2222, 0xB, 0xA
                         {0, 1, 0, W(0xC), {New(0, 0xC, TaskValue(3)), ready, Mod(0, 0xB, 0, U(0, 2)), Mod(0, 0xA, 0, U(0, 2))}},
                         // Payloads short of the words: no priority, names as far as they go, a prefix kept.
                         {0, 5, 4, W(0x2222), {Mod(0, 0x2222, 0, U(4, 2))}}, {0, 1, 0, "\x78\x56\x00"},
                         {0, 6, 10, W(0x5678), {New(0, 0x5678, TaskValue(10, {}, ""))}},
                         {0, 6, 10, W(0x5678) + W(20) + "wor",
                          {Mod(0, 0x5678, 4, U(20, 4)), Mod(0, 0x5678, 8, U(1, 1)), Mod(0, 0x5678, 9, "wor" + U(0, 1))}},
                         {0, 6, 10, W(0x5678) + W(20) + "wo"}, {0, 5, 3, W(0x5678) + "\1\2\3", {Mod(0, 0x5678, 0, U(11, 2))}},
                         {0, 6, 10, W(0x5678) + W(20) + name31 + "xyz", {Mod(0, 0x5678, 0, U(10, 2)), Mod(0, 0x5678, 9, name31)}}};
  EXPECT_EQ(Modelled(pinned), pinned);
  EXPECT_TRUE(Tracks(pinned));
}

TEST(ThreadXTracker, TheSweepFollowsTheWalkOrderAsTheTableGrows) {
  Script inputs;  // rounds of new threads, running sets and switches: 150 threads
  for (uint32_t round = 0, threads = 0; round < 6; round++) {
    for (int k = 0; k < 25; k++, threads++) inputs.push_back({0, 6, 10, Record(0x100 + threads * 0x1C0, 1, "t")});
    for (uint32_t k = round; k < threads; k += 7 + round) inputs.push_back({0, 3, 1, W(0x100 + k * 0x1C0)});
    inputs.push_back({0, 5, 10, W(0x100 + threads / 2 * 0x1C0) + W(1)});  // running by status
    inputs.push_back({0, 1, 0, W(0x100 + round * 11 % threads * 0x1C0)});
    inputs.push_back({0, 1, 0, W(0x100 + (round * 11 + 3) % threads * 0x1C0)});
  }
  EXPECT_TRUE(Tracks(Modelled(inputs)));
}

TEST(ThreadXTracker, RunningThreadsBelongToTheirOwnDatabase) {
  TempDir dir;
  const Script first = {{0, 6, 0, Record(0xA, 1, "a")}, {1, 6, 0, Record(0xB, 1, "b")}, {2, 1, 0, W(0xA)},
                        {3, 3, 0, W(0xB)}, {4, 1, 0, W(0xC)}};  // two run when C comes
  const Script second = {{0, 6, 0, Record(0xA, 1, "a")}, {1, 6, 0, Record(0xB, 1, "b")}, {2, 1, 0, W(0xB)}, {3, 1, 0, W(0xA)}};
  const DatabaseHeader header = {1000, "threadx", true};
  ScriptWriter a(dir.file("first"), first, header, ThreadX_SaveStateChange), b(dir.file("second"), second, header, ThreadX_SaveStateChange);
  for (size_t i = 0; i < first.size(); i++) ASSERT_TRUE(a.Add() && b.Add());  // in turn
  a.Close(), b.Close();
  EXPECT_TRUE(SameFiles(ReadDatabase(dir.file("first")), Render(Modelled(first), header)));
  EXPECT_TRUE(SameFiles(ReadDatabase(dir.file("second")), Render(Modelled(second), header)));
  for (int i = 0; i < 3; i++) EXPECT_TRUE(Tracks(Modelled({{0, 3, 0, W(0xD)}, {1, 1, 0, W(0xE)}})));  // nothing known from before
}

}  // namespace
