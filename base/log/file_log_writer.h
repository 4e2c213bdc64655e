#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/log/log_file.h"
#include "base/log/log_writer.h"
#include "base/process/singleton.h"

namespace zo_base {

// Writes records to a log file. Before Open and after Close they are dropped.
template <class Tag>
class TQLogImplBase : public ITQlogWriter {
 public:
  std::string_view GetIdent() const override { return {}; }

  bool Takes(std::int32_t level) const override {
    return level <= level_.load(std::memory_order_relaxed) && log_file_.IsReady();
  }
  void Write(std::int32_t level, const std::string& text) override {
    if (level <= level_.load(std::memory_order_relaxed)) log_file_.Write(text);
  }

  // Makes the directory of `path`. See LogFile::Open.
  virtual std::int32_t Open(const std::string& path, std::uint32_t max_file_size,
                            std::uint32_t buffer_size) {
    MakeDirectoryOf(path);
    return log_file_.Open(path, max_file_size, buffer_size);
  }
  virtual std::string GetPath() const { return log_file_.path(); }
  virtual void Flush() { log_file_.Flush(); }
  virtual void Close() { log_file_.Close(); }

  // Records above this level are dropped.
  void SetLevel(std::int32_t level) { level_.store(level, std::memory_order_relaxed); }

 private:
  std::atomic<std::int32_t> level_{kLogApp};  // Relaxed: no other data depends on it.
  LogFile log_file_;
};

// The one file writer of the library. It lives while an environment is up.
template <class Tag>
class TQLogImpl final : public TQLogImplBase<Tag>, public Singleton<TQLogImpl<Tag>, Tag, true> {};

}  // namespace zo_base
