// Table rows for functions that return text: a result as text ("<null>" for
// null, a number in digits; a char * result is new memory of the foundation
// and is freed), and Each, which calls a function on each row's arguments
// and compares the text of its result with the row's.
#ifndef RAVELOG_TEST_SUPPORT_RESULT_ROWS_H
#define RAVELOG_TEST_SUPPORT_RESULT_ROWS_H

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <tuple>
#include <utility>

#include "indgeninit.h"

namespace testsupport {

inline std::string Got(const char *s) { return s == nullptr ? "<null>" : s; }
inline std::string Got(char *s) {
  std::string text = Got(static_cast<const char *>(s));
  return gen_free(s), text;
}
inline std::string Got(int value) { return std::to_string(value); }

// Rows of (the arguments of fn, the text of its result).
template <typename R, typename... A>
void Each(R (*fn)(A...), std::initializer_list<std::pair<std::tuple<A...>, const char *>> rows) {
  for (size_t row = 0; row < rows.size(); row++)
    EXPECT_EQ(Got(std::apply(fn, rows.begin()[row].first)), rows.begin()[row].second) << "row " << row;
}

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_RESULT_ROWS_H
