// The sample corefiles shipped in examples/: realistic logs of a small
// ThreadX system, of version 2 and of version 1, each in both byte orders
// with the same contents.
// make_examples writes them; a test rebuilds them and compares them with the
// committed files byte for byte, so they can't drift from this generator.
#ifndef RAVELOG_TEST_SUPPORT_EXAMPLE_DUMPS_H
#define RAVELOG_TEST_SUPPORT_EXAMPLE_DUMPS_H

#include <string>
#include <utility>
#include <vector>

namespace testsupport {

// File name (without directory) and bytes of every sample dump.
std::vector<std::pair<std::string, std::string>> ExampleDumps();

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_EXAMPLE_DUMPS_H
