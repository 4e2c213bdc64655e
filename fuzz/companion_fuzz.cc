// A companion file with any length, count and bytes. The buffer always ends up ready and empty, has
// the wanted length, and sends no more text than the file held.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "base/log/log_file_buffer.h"

namespace {

constexpr std::uint32_t kSize = 4096;

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

const std::string& CompanionPath() {
  static const std::string path =
      std::filesystem::temp_directory_path() / ("tarvel-fuzz-" + std::to_string(getpid()));
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The first byte says whether the file has the wanted length, where most inputs would not.
  std::string content(reinterpret_cast<const char*>(data), size);
  if (!content.empty() && (content[0] & 1) != 0) content.resize(kSize + 1);
  content.erase(0, 1);
  std::ofstream(CompanionPath(), std::ios::binary) << content;

  std::string sunk;
  zo_base::LogFileBuffer buffer([&](const std::string& text) {
    sunk += text;
    return true;
  });
  const std::int32_t result = buffer.Init(CompanionPath(), kSize);
  Require(result == zo_base::kLogReady || result == zo_base::kLogDamaged, "Init");
  Require(buffer.ready(), "ready");
  Require(sunk.size() <= content.size() + zo_base::WithLoadBanners("").size(), "recovered text");
  Require(std::filesystem::file_size(CompanionPath()) == kSize, "length");
  sunk.clear();
  buffer.Append("record");
  buffer.Close();
  Require(sunk == "record", "record");
  std::filesystem::remove(CompanionPath());
  return 0;
}
