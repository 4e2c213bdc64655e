#pragma once

#include <string>
#include <vector>

namespace tarvel_backend {

// A file that this process and its children see at `path` instead of the system's.
struct ReplacedFile {
  std::string path;
  std::string contents;
};

// Moves this process into a network of its own, where only the loopback works, and replaces files
// that exist. Nothing changes outside. Children inherit both. A user other than root becomes root
// of a user namespace.
//
// Throws std::runtime_error, which tells the user what is missing. The process may have been
// changed in part then, so it should end. The process must have one thread.
void EnterPrivateNetwork(const std::vector<ReplacedFile>& files);

// Throws std::runtime_error with `sentence` and the reason that errno gives.
[[noreturn]] void ThrowSystemError(const std::string& sentence);

}  // namespace tarvel_backend
