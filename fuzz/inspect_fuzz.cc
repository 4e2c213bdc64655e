// A client's log and companion with any bytes. Everything that is read from them can be printed,
// and the document is UTF-8.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "tools/inspect/report.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace fs = std::filesystem;
  static const fs::path directory =
      fs::temp_directory_path() / ("tarvel-fuzz-inspect-" + std::to_string(getpid()));
  fs::create_directories(directory);
  // The first byte says where the rest goes: the companion has a count that inputs seldom hit.
  std::string content(reinterpret_cast<const char*>(data), size);
  const bool in_companion = !content.empty() && (content[0] & 1) != 0;
  content.erase(0, 1);
  const char* const name = in_companion ? "tarvel_comp.log.kvr_mmap" : "tarvel_comp.log";
  std::ofstream(directory / name, std::ios::binary) << content;
  const auto report = tarvel_inspect::Inspect(directory.string(), "", {}, 1'800'000'000'000);
  tarvel_inspect::ToText(report);
  tarvel_inspect::ToJson({report}).dump();  // Throws for what is no UTF-8.
  fs::remove_all(directory);
  return 0;
}
