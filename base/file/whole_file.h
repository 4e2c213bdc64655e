#pragma once

#include <cstddef>
#include <string>

// Small files that are read and replaced as a whole.
namespace zo_base {

enum class FileRead {
  kDone,
  kTooLong,
  kFailed,  // Something may be there; another time it can perhaps be read.
};

// Reads a regular file into `text`. What else may stand there, such as a link, and a missing file
// read as an empty one.
FileRead ReadWholeFile(const std::string& path, std::size_t longest, std::string& text);

// Replaces the file by `text`. At any moment, also after a crash, the file has the old bytes or
// the new ones: the text goes to a sibling, is flushed to the disk, and takes the file's name. Any
// number of threads and processes of one machine may do so at once; the last one's text stays.
// Readable by this user only. False when something failed; then the old file stands.
bool ReplaceWholeFile(const std::string& path, const std::string& text);

// Removes siblings that ReplaceWholeFile has left behind in processes that were killed.
void RemoveLeftovers(const std::string& path);

}  // namespace zo_base
