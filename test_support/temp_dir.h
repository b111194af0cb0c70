// A fresh directory for one test under the system's temporary directory (or
// `parent`), removed with all in it when the object goes; whole-file helpers.
#ifndef RAVELOG_TEST_SUPPORT_TEMP_DIR_H
#define RAVELOG_TEST_SUPPORT_TEMP_DIR_H

#include <string>

namespace testsupport {

class TempDir {
 public:
  explicit TempDir(const std::string &parent = "");
  ~TempDir();
  TempDir(const TempDir &) = delete;
  const std::string &path() const { return path_; }
  std::string file(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::string MemoryTempParent();  // /dev/shm when the host has it (no disk), else the default
std::string ReadFileBytes(const std::string &name);  // empty when it can't be read
bool WriteFileBytes(const std::string &name, const std::string &bytes);  // false on failure
bool FileExists(const std::string &name);

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_TEMP_DIR_H
