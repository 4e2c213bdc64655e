#pragma once

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
  const char* file = "";      // Base name of the source file.
  std::int32_t line = -1;     // -1 when unknown.
  const char* function = "";  // Of a closure, "operator()".

  // "file:line" without the file's ending, or with `with_function` "function@file:line"; empty when
  // unknown.
  std::string ToText(bool with_function = false) const;
};

// "environment_manager.cc" of "tarvel/environment/environment_manager.cc".
consteval const char* BaseNameOfSource(const char* path) {
  const char* name = path;
  for (; *path != '\0'; ++path) {
    if (*path == '/') name = path + 1;
  }
  return name;
}

// The text of a record under construction. Without a writer nothing is kept, nor what finds no
// memory: a log statement never fails. Nothing is inline, so a statement costs a call per piece.
class LogStream {
 public:
  LogStream& operator<<(std::string_view text) noexcept;
  LogStream& operator<<(const std::string& text) noexcept;
  LogStream& operator<<(const char* text) noexcept;  // Null for an empty text.
  template <class T, class = std::enable_if_t<std::is_integral_v<T> || std::is_enum_v<T>>>
  LogStream& operator<<(T value) noexcept {
    if constexpr (std::is_same_v<T, char>) return *this << std::string_view(&value, 1);
    if constexpr (std::is_unsigned_v<T>) return AppendUnsigned(value);
    return AppendSigned(static_cast<std::int64_t>(value));
  }

 private:
  friend class QLogHelper;

  void Open() noexcept;
  LogStream& AppendSigned(std::int64_t value) noexcept;
  LogStream& AppendUnsigned(std::uint64_t value) noexcept;

  bool open_ = false;
  std::string text_;
};

// One record: built on the stack of the thread that logs, committed to its writer at the end of its
// scope. It owns a share of the writer until then, since another thread may exit.
class QLogHelper {
 public:
  QLogHelper(std::int32_t level, const LogLocation& location,
             std::shared_ptr<ITQlogWriter> writer) noexcept;
  ~QLogHelper();
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
  TQLogHelper(std::int32_t level, const char* file, std::int32_t line,
              const char* function) noexcept;
};

extern template class TQLogHelper<TarvelObject>;

}  // namespace zo_base

// The log statement: ZO_LOG << "[tag] text " << value;
#define ZO_LOG ZO_LOG_AT(::zo_base::kLogApp)
#define ZO_LOG_AT(level)                                                                        \
  ::zo_base::TQLogHelper<::zo_base::TarvelObject>(level, ::zo_base::BaseNameOfSource(__FILE__), \
                                                  __LINE__, __func__)                           \
      .stream()
