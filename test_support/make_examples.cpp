// make_examples DIR: writes the sample corefiles of example_dumps.h into DIR
// (examples/ of the source tree is where they are committed).
#include <cstdio>
#include <string>

#include "example_dumps.h"
#include "temp_dir.h"

int main(int argc, char **argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s DIR\n", argc > 0 ? argv[0] : "make_examples");
    return 1;
  }
  for (const auto &[name, bytes] : testsupport::ExampleDumps()) {
    const std::string path = std::string(argv[1]) + "/" + name;
    if (!testsupport::WriteFileBytes(path, bytes)) {
      fprintf(stderr, "make_examples: can't write %s\n", path.c_str());
      return 1;
    }
    printf("%s: %zu bytes\n", path.c_str(), bytes.size());
  }
  return 0;
}
