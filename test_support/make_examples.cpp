// make_examples DIR: writes the sample corefiles of simulated_dump.h into DIR
// (examples/ of the source tree is where they are committed).
#include <cstdio>
#include <string>

#include "simulated_dump.h"
#include "temp_dir.h"

int main(int argc, char **argv) {
  for (const auto &[name, bytes] : testsupport::ExampleDumps()) {
    const std::string path = std::string(argc == 2 ? argv[1] : ".") + "/" + name;
    if (argc != 2 || !testsupport::WriteFileBytes(path, bytes)) {
      fprintf(stderr, argc == 2 ? "make_examples: can't write %s\n" : "usage: make_examples DIR\n", path.c_str());
      return 1;
    }
    printf("%s: %zu bytes\n", path.c_str(), bytes.size());
  }
  return 0;
}
