// Temporary directories and whole-file helpers for tests; see temp_dir.h.
#include "temp_dir.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace testsupport {

TempDir::TempDir(const std::string &parent) {
  path_ = ((parent.empty() ? std::filesystem::temp_directory_path() : std::filesystem::path(parent)) / "ravelog-test-XXXXXX").string();
  if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::permissions(path_, std::filesystem::perms::owner_all, std::filesystem::perm_options::add, ignored);
  std::filesystem::remove_all(path_, ignored);
}

std::string MemoryTempParent() { return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : ""; }

std::string ReadFileBytes(const std::string &name) {
  std::ifstream in(name, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool WriteFileBytes(const std::string &name, const std::string &bytes) {
  std::ofstream out(name, std::ios::binary | std::ios::trunc);
  return static_cast<bool>(out.write(bytes.data(), static_cast<std::streamsize>(bytes.size())));
}

bool FileExists(const std::string &name) {
  std::error_code ignored;
  return std::filesystem::exists(name, ignored);
}

}  // namespace testsupport
