// Tests of event names: the names of the event types and their fallback,
// and the kernel call table's shape in both forms - which subtypes have a
// row, that rows are distinct, that a long row is the short row behind the
// prefix, and the two fallbacks, the short one with its odd spelling.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "kq_io.h"

namespace {

kq_Event Event(uint16_t type, uint16_t subtype) {
  kq_Event event{};
  event.type = type;
  event.subtype = subtype;
  return event;
}

std::string Long(uint16_t type, uint16_t subtype = 0) {
  const kq_Event event = Event(type, subtype);
  const char *name = kq_GetNameOfEvent(nullptr, &event);
  return name != nullptr ? name : "(null)";
}

std::string Short(uint16_t type, uint16_t subtype = 0) {
  const kq_Event event = Event(type, subtype);
  const char *name = kq_GetSimpleNameOfEvent(nullptr, &event);
  return name != nullptr ? name : "(null)";
}

const std::string kPrefix = "Kernel Call: ";

TEST(EventNames, EventTypesHaveALongAndAShortName) {
  struct Row {
    uint16_t type;
    const char *longName;
    const char *shortName;
  } rows[] = {
      {1, "TaskChange", "TaskChange"},      {2, "Interrupt", "Interrupt"},
      {4, "User Event", "UserEvent"},       {5, "Status Change", "StatusChange"},
      {6, "Refresh", "Refresh"},            {7, "Timer", "Timer"},
      {0, "UNKNOWN EVENT", "UNKNOWNEVENT"}, {8, "UNKNOWN EVENT", "UNKNOWNEVENT"},
      {9, "UNKNOWN EVENT", "UNKNOWNEVENT"}, {0xFFFF, "UNKNOWN EVENT", "UNKNOWNEVENT"},
  };
  for (const Row &row : rows) {
    EXPECT_EQ(Long(row.type, 44), row.longName) << row.type;  // only type 3 reads the subtype
    EXPECT_EQ(Short(row.type, 132), row.shortName) << row.type;
  }
}

TEST(EventNames, KernelCallsOutsideTheTableFallBackInBothForms) {
  for (uint16_t subtype : {46, 47, 100, 131, 133, 0xFFFF}) {
    EXPECT_EQ(Long(3, subtype), "UNKNOWN KERNEL CALL") << subtype;
    EXPECT_EQ(Short(3, subtype), "UNKOWNKERNCALL") << subtype;
  }
}

TEST(EventNames, TheClockCallsFortyFourAndFortyFiveHaveOnlyALongRow) {
  for (uint16_t subtype : {44, 45}) {
    const std::string name = Long(3, subtype);
    EXPECT_EQ(name.substr(0, kPrefix.size()), kPrefix) << subtype;
    EXPECT_GT(name.size(), kPrefix.size()) << subtype;
    EXPECT_EQ(Short(3, subtype), "UNKOWNKERNCALL") << subtype;
  }
  EXPECT_NE(Long(3, 44), Long(3, 45));
}

TEST(EventNames, LongRowsAreTheDistinctShortRowsBehindThePrefix) {
  std::set<std::string> longRows;
  std::set<std::string> shortRows;
  auto check = [&](uint16_t subtype) {
    const std::string shortName = Short(3, subtype);
    EXPECT_NE(shortName, "UNKOWNKERNCALL") << subtype;
    EXPECT_FALSE(shortName.empty()) << subtype;
    EXPECT_EQ(shortName.find(' '), std::string::npos) << subtype << ": " << shortName;
    EXPECT_EQ(Long(3, subtype), kPrefix + shortName) << subtype;
    shortRows.insert(shortName);
  };
  for (uint16_t subtype = 0; subtype <= 43; subtype++) check(subtype);
  check(132);
  for (uint16_t subtype = 0; subtype <= 45; subtype++) longRows.insert(Long(3, subtype));
  longRows.insert(Long(3, 132));
  EXPECT_EQ(shortRows.size(), 45u);  // every row its own service
  EXPECT_EQ(longRows.size(), 47u);
  EXPECT_EQ(longRows.count("UNKNOWN KERNEL CALL"), 0u);
}

TEST(EventNames, ANullEventGetsTheEventFallback) {
  EXPECT_STREQ(kq_GetNameOfEvent(nullptr, nullptr), "UNKNOWN EVENT");
  EXPECT_STREQ(kq_GetSimpleNameOfEvent(nullptr, nullptr), "UNKNOWNEVENT");
}

}  // namespace
