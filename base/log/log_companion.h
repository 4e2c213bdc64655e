#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace zo_base {

// Results of opening a log.
enum LogOpenResult : std::int32_t {
  kLogReady = 0,
  kLogNoCompanion = 1,      // The companion can't be opened.
  kLogNotMapped = 2,        // It can't be mapped, or the buffer isn't ready.
  kLogDamaged = 3,          // What it held was damaged and is cleared; the buffer is ready.
  kLogPagesNotLocked = -1,  // Locking the pages failed.
};

// Takes log text. Returns whether its source may drop it.
using LogSink = std::function<bool(const std::string& text)>;

// Format of a companion file, in the machine's own byte order:
//   0  int32  `used`, the number of text bytes that follow
//   4  text   as the records were appended
//   ...       zeros up to the end of the file
inline constexpr std::int32_t kCompanionHeaderSize = sizeof(std::int32_t);
// A smaller companion holds no record; a larger one was never written by this library.
inline constexpr std::uint32_t kSmallestCompanion = 16;
inline constexpr std::uint32_t kLargestCompanion = 64 * 1024 * 1024;

// An open companion.
struct Companion {
  std::int32_t result = kLogNoCompanion;  // The rest counts with kLogReady only.
  int fd = -1;            // Owned by the receiver. -1: another process has the file.
  std::int32_t size = 0;  // The length to map.
};

// Opens the companion at `path` for this process alone, or finds that another has it. The text of a
// companion of another length than `size` is sent to `sink` and the file is replaced; one that
// can't be removed is used as it is.
[[nodiscard]] Companion OpenCompanion(const std::string& path, std::int32_t size,
                                      const LogSink& sink);

// Recovered text between the lines that mark it in the log.
std::string WithLoadBanners(std::string_view text);

}  // namespace zo_base
