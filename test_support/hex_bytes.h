// Literal bytes for tests as hexadecimal text: "7F 54 4F 56" or "00000014";
// blanks and '|' separate, quoted text ("thread") stands for its own bytes.
// A malformed string throws std::invalid_argument, so a typo fails loudly.
#ifndef RAVELOG_TEST_SUPPORT_HEX_BYTES_H
#define RAVELOG_TEST_SUPPORT_HEX_BYTES_H

#include <string>

namespace testsupport {

std::string HexBytes(const std::string &text);
std::string ToHex(const std::string &bytes);  // upper-case pairs separated by blanks

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_HEX_BYTES_H
