// A fresh directory under the system's temporary directory (or under
// `parent` when one is given) for one test, removed with everything in it
// when the object goes.
#ifndef RAVELOG_TEST_SUPPORT_TEMP_DIR_H
#define RAVELOG_TEST_SUPPORT_TEMP_DIR_H

#include <string>

namespace testsupport {

class TempDir {
 public:
  explicit TempDir(const std::string &parent = "");
  ~TempDir();
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;

  const std::string &path() const { return path_; }
  // path() + "/" + name
  std::string file(const std::string &name) const;

 private:
  std::string path_;
};

// Whole contents of a file as bytes; empty when it can't be read.
std::string ReadFileBytes(const std::string &name);
// Writes bytes as the whole file; returns false on failure.
bool WriteFileBytes(const std::string &name, const std::string &bytes);
// Whether a file of that name exists.
bool FileExists(const std::string &name);

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_TEMP_DIR_H
