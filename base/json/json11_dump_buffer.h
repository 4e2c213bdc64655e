#pragma once

#include <cstddef>
#include <cstring>
#include <string>

#include "base/json/json11.h"

namespace zo_base::json11 {

// Collects the pieces of a dump and appends them to a string in large runs. An append for each
// piece would cost more than the piece itself. Serves one thread, for one dump.
class DumpBuffer {
 public:
  // Both outlive this. Flush appends what is left at the end.
  DumpBuffer(const Json& whole, std::string& out) : whole_(whole), out_(out) {}
  DumpBuffer(const DumpBuffer&) = delete;
  DumpBuffer& operator=(const DumpBuffer&) = delete;

  // Returns room for `size` bytes, at most kSize. Call Commit with the end of the written ones.
  char* Room(std::size_t size) {
    if (static_cast<std::size_t>(bytes_ + kSize - at_) < size) MakeRoom();
    return at_;
  }
  void Commit(char* end) { at_ = end; }

  template <std::size_t kLength>
  void Put(const char (&literal)[kLength]) {
    std::memcpy(Room(kLength - 1), literal, kLength - 1);
    at_ += kLength - 1;
  }

  void Flush();

 private:
  static constexpr std::size_t kSize = 4096;  // Nearly every text fits.

  void MakeRoom();

  const Json& whole_;
  std::string& out_;
  bool has_reserved_ = false;
  char* at_ = bytes_;
  char bytes_[kSize];
};

}  // namespace zo_base::json11
