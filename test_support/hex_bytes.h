// Literal bytes for tests, written as hexadecimal text: "7F 54 4F 56",
// "00000014" and "01 0000000000000005" all work.  Blanks, line ends, '|'
// and '_' are separators and ignored; quoted text ('"thread"') stands for
// its own bytes.  A malformed string throws std::invalid_argument, so a typo
// in a test fails loudly rather than pinning the wrong bytes.
#ifndef RAVELOG_TEST_SUPPORT_HEX_BYTES_H
#define RAVELOG_TEST_SUPPORT_HEX_BYTES_H

#include <string>

namespace testsupport {

std::string HexBytes(const std::string &text);

// The bytes as upper-case hexadecimal pairs separated by blanks, for
// failure messages.
std::string ToHex(const std::string &bytes);

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_HEX_BYTES_H
