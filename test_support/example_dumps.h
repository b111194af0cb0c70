// The sample corefiles shipped in examples/: logs of a small ThreadX system,
// of version 2 and 1, each in both byte orders with the same contents.
// make_examples writes them; a test compares the committed files with them.
#ifndef RAVELOG_TEST_SUPPORT_EXAMPLE_DUMPS_H
#define RAVELOG_TEST_SUPPORT_EXAMPLE_DUMPS_H

#include <string>
#include <utility>
#include <vector>

namespace testsupport {

std::vector<std::pair<std::string, std::string>> ExampleDumps();  // file name, bytes

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_EXAMPLE_DUMPS_H
