#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace test_support {

// A new directory. The process that made it removes it at the end of the scope.
class TempDirectory {
 public:
  TempDirectory() {
    std::string name = std::filesystem::temp_directory_path() / "tarvel-test-XXXXXX";
    path_ = mkdtemp(name.data());
  }
  ~TempDirectory() {
    std::error_code ignored;
    if (getpid() == owner_) std::filesystem::remove_all(path_, ignored);
  }
  TempDirectory(const TempDirectory&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  const pid_t owner_ = getpid();
  std::string path_;
};

// Returns the whole content; empty when there is no such file.
inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

inline void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

}  // namespace test_support
