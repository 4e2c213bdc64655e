#pragma once

#include <charconv>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/log/file_log_writer.h"
#include "base/log/log_writer.h"

namespace zo_base {

// The place of a log statement.
struct LogLocation {
  std::string_view file;      // Base name of the source file, without its ending.
  std::int32_t line = -1;     // -1 when unknown.
  std::string_view function;  // Of a closure, "operator()".

  // "file:line", or with `with_function` "function@file:line"; empty when unknown.
  std::string ToText(bool with_function = false) const;
};

// "environment_manager" of "tarvel/environment/environment_manager.cc".
constexpr std::string_view BaseNameOfSource(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash != std::string_view::npos) path.remove_prefix(slash + 1);
  return path.substr(0, path.find('.'));
}

// The text of a record under construction. Without a writer nothing is kept.
class LogStream {
 public:
  LogStream& operator<<(std::string_view text) {
    if (open_) text_ += text;
    return *this;
  }
  LogStream& operator<<(const char* text) { return *this << std::string_view(text ? text : ""); }
  LogStream& operator<<(char c) { return *this << std::string_view(&c, 1); }
  LogStream& operator<<(bool value) { return *this << (value ? '1' : '0'); }
  template <class T, class = std::enable_if_t<std::is_arithmetic_v<T> || std::is_enum_v<T>>>
  LogStream& operator<<(T value) {
    if constexpr (std::is_enum_v<T>) {
      return *this << static_cast<std::underlying_type_t<T>>(value);
    } else {
      char digits[32];
      const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
      return *this << std::string_view(digits, static_cast<std::size_t>(end - digits));
    }
  }

 private:
  friend class QLogHelper;

  bool open_ = false;
  std::string text_;
};

// One record: built on the stack of the thread that logs, committed to its writer at the end of its
// scope. It owns a share of the writer until then, since another thread may exit.
class QLogHelper {
 public:
  QLogHelper(std::int32_t level, const LogLocation& location, std::shared_ptr<ITQlogWriter> writer);
  ~QLogHelper() {
    if (pending_) Commit();
  }
  QLogHelper(const QLogHelper&) = delete;
  QLogHelper& operator=(const QLogHelper&) = delete;

  LogStream& stream() { return stream_; }
  void Commit();

 private:
  void AppendPrefix();

  const LogLocation location_;
  const std::int32_t level_;
  const std::shared_ptr<ITQlogWriter> writer_;  // Null: the record is dropped.
  LogStream stream_;
  bool pending_ = true;
};

// The wall clock as a record shows it: "MM-DD hh:mm:ss.mmm", local time.
std::string LogTimeNow();

// How this layer finds the client's writer, which a higher one keeps. The getter returns null
// without one. Set while the library is loaded.
using CustomLogGetter = std::shared_ptr<ITQlogWriter> (*)();
void SetCustomLogGetter(CustomLogGetter getter);

// The client's writer, else the file writer; null while no environment is up.
std::shared_ptr<ITQlogWriter> GetLogWriter();
// The same, and null as well where a record of this level would be dropped.
std::shared_ptr<ITQlogWriter> GetLogWriterFor(std::int32_t level);

// A record of the system.
template <class Tag>
class TQLogHelper final : public QLogHelper {
 public:
  TQLogHelper(std::int32_t level, const LogLocation& location)
      : QLogHelper(level, location, GetLogWriterFor(level)) {}
};

}  // namespace zo_base

// The log statement: ZO_LOG << "[tag] text " << value;
#define ZO_LOG ZO_LOG_AT(::zo_base::kLogApp)
#define ZO_LOG_AT(level)                                                  \
  ::zo_base::TQLogHelper<::zo_base::TarvelObject>(                        \
      level, {::zo_base::BaseNameOfSource(__FILE__), __LINE__, __func__}) \
      .stream()
