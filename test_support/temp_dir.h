// A fresh directory for one test under the system's temporary directory (or
// `parent`), removed with all in it when the object goes; whole-file helpers.
#ifndef RAVELOG_TEST_SUPPORT_TEMP_DIR_H
#define RAVELOG_TEST_SUPPORT_TEMP_DIR_H

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace testsupport {

class TempDir {
 public:
  explicit TempDir(const std::string &parent = "") {
    path_ = ((parent.empty() ? std::filesystem::temp_directory_path() : std::filesystem::path(parent)) / "ravelog-test-XXXXXX").string();
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, std::filesystem::perm_options::add, ignored);
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir &) = delete;
  const std::string &path() const { return path_; }
  std::string file(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// /dev/shm when the host has it (no disk), else the default.
inline std::string MemoryTempParent() { return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : ""; }

inline std::string ReadFileBytes(const std::string &name) {  // empty when it can't be read
  std::ifstream in(name, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline bool WriteFileBytes(const std::string &name, const std::string &bytes) {  // false on failure
  std::ofstream out(name, std::ios::binary | std::ios::trunc);
  return static_cast<bool>(out.write(bytes.data(), static_cast<std::streamsize>(bytes.size())));
}

inline bool FileExists(const std::string &name) {
  std::error_code ignored;
  return std::filesystem::exists(name, ignored);
}

}  // namespace testsupport

#endif  // RAVELOG_TEST_SUPPORT_TEMP_DIR_H
