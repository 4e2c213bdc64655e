#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/thread/library_call.h"

namespace zo_base {

// Severities from 0; the lower, the more severe.
inline constexpr std::int32_t kLogWarning = 3;
inline constexpr std::int32_t kLogApp = 5;       // What all statements use but for two dumps.
inline constexpr std::int32_t kLogProtocol = 6;  // Dumps of answers; a log file leaves them out.

// Takes whole log records, and says which prefix each has.
//
// Threads: any, several at once.
class ITQlogWriter {
 public:
  virtual ~ITQlogWriter() = default;
  virtual std::string_view GetIdent() const = 0;  // Bracketed behind the level; empty for none.
  virtual bool PrintToConsole() const { return false; }
  virtual bool PrintTime() const { return true; }
  virtual bool PrintProcessThread() const { return true; }
  virtual bool PrintLevel() const { return true; }
  virtual bool PrintThreadName() const { return true; }
  // Records up to this level also name their place in the source.
  virtual std::int32_t LocationLevel() const { return kLogWarning; }
  // Whether a record of this level would be kept. If not, none is built.
  virtual bool Takes(std::int32_t) const { return true; }
  // `text` ends with a line feed.
  virtual void Write(std::int32_t level, const std::string& text) = 0;
};

// Passes each record to the client's function, whatever its level, on the thread that logs. For
// calls of the library from that function see LibraryCall.
class TarvelCustomLog final : public ITQlogWriter {
 public:
  using Function = void (*)(const char* line);

  explicit TarvelCustomLog(Function function) : function_(function) {}

  std::string_view GetIdent() const override { return "ZO_TARVEL"; }
  void Write(std::int32_t, const std::string& text) override {
    if (function_ == nullptr || text.empty()) return;
    const LibraryCall call;  // For a statement outside of any other.
    const LogFunctionCall in_function;
    function_(text.c_str());
  }

 private:
  const Function function_;
};

}  // namespace zo_base
