#pragma once

#include <csignal>

namespace zo_base {

// While this exists, a write of this thread beyond the process's file size limit only fails, with
// EFBIG. The system also sends SIGXFSZ then, which would kill the client.
//
// Threads: created and destroyed by one thread. A signal that waited before stays.
class FileSizeSignalBlocked {
 public:
  FileSizeSignalBlocked();
  ~FileSizeSignalBlocked();
  FileSizeSignalBlocked(const FileSizeSignalBlocked&) = delete;
  FileSizeSignalBlocked& operator=(const FileSizeSignalBlocked&) = delete;

 private:
  sigset_t signal_;
  sigset_t blocked_before_;
  bool waited_before_ = false;
};

}  // namespace zo_base
