#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace tarvel_inspect {

// A file of a client as it was read, or why it could not be. A plain value.
struct ClientFile {
  std::optional<std::string> content;
  std::string problem;          // "it is no regular file". Empty with a content, or without a file.
  std::int64_t written_at = 0;  // Milliseconds since 1970; 0 when unknown.
};

// Whether there may be something: what can't be looked at counts too.
bool MayExist(const std::string& path);

// Reads a regular file of at most `longest` bytes. Takes no lock, follows no link, changes nothing.
// Leaves out the first `skipped` bytes, unless the file is shorter.
ClientFile ReadClientFile(const std::string& path, std::size_t longest, std::size_t skipped = 0);

}  // namespace tarvel_inspect
