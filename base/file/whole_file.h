#pragma once

#include <cstddef>
#include <string>

// Small files that are read and replaced as a whole.
namespace zo_base {

enum class FileRead {
  kDone,
  kTooLong,
  kFailed,  // A later attempt may succeed.
};

// Reads a regular file into `text`. A missing file, and anything else in its place such as a link,
// reads as an empty one.
[[nodiscard]] FileRead ReadWholeFile(const std::string& path, std::size_t longest,
                                     std::string& text);

// Replaces the file by `text`, readable by this user only. Returns false on a failure, which keeps
// the old file. At any moment, also after a crash, the file has the old bytes or the new ones: the
// text is written to a sibling and flushed to the disk, then the sibling is renamed. Any number of
// threads and processes of one machine may replace the file at once; the last one wins.
[[nodiscard]] bool ReplaceWholeFile(const std::string& path, const std::string& text);

// Removes the siblings that killed processes have left.
void RemoveLeftovers(const std::string& path);

}  // namespace zo_base
