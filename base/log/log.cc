#include "base/log/log.h"

#include <pthread.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <limits>
#include <utility>

#include "base/process/forked_child.h"
#include "base/thread/thread_info.h"

namespace zo_base {
namespace {

std::atomic<CustomLogGetter> custom_log_getter{nullptr};

std::string_view LevelText(std::int32_t level) {
  constexpr std::string_view kTexts[] = {"LV_KER", "LV_ASS", "LV_ERR", "LV_WAR",
                                         "LV_INT", "LV_APP", "LV_PRO"};
  return level >= 0 && level <= kLogProtocol ? kTexts[level] : std::string_view();
}

static_assert(sizeof(std::time_t) == 8, "define _TIME_BITS=64: records have times after 2038");

constexpr std::size_t kTimeLength = sizeof "MM-DD hh:mm:ss.mmm" - 1;
constexpr std::size_t kSecondLength = kTimeLength - sizeof ".mmm" + 1;
using TimeText = std::array<char, kTimeLength>;

// Taking a second apart asks for the time zone, so each thread keeps the text of its last one.
struct SecondText {
  std::time_t second = -1;
  char text[kSecondLength + 1] = {};
};
thread_local SecondText last_second;

TimeText TimeTextNow() {
  timeval now{};
  gettimeofday(&now, nullptr);
  if (now.tv_sec != last_second.second) {
    std::tm local{};
    localtime_r(&now.tv_sec, &local);
    std::strftime(last_second.text, sizeof last_second.text, "%m-%d %H:%M:%S", &local);
    last_second.second = now.tv_sec;
  }
  TimeText text;
  std::copy_n(last_second.text, kSecondLength, text.begin());
  const auto milliseconds = static_cast<int>(now.tv_usec / 1000);
  text[kSecondLength] = '.';
  text[kSecondLength + 1] = static_cast<char>('0' + milliseconds / 100);
  text[kSecondLength + 2] = static_cast<char>('0' + milliseconds / 10 % 10);
  text[kSecondLength + 3] = static_cast<char>('0' + milliseconds % 10);
  return text;
}

template <class T>
LogStream& AppendDigits(LogStream& stream, T value) {
  std::array<char, std::numeric_limits<T>::digits10 + 2> digits;
  const char* const end = std::to_chars(digits.begin(), digits.end(), value).ptr;
  return stream << std::string_view(digits.data(), end);
}

std::string_view CurrentThreadName() {
  const ThreadInfo* info = GetCurrentThreadInfo();
  return info != nullptr && !info->name.empty() ? std::string_view(info->name) : "unknown";
}

}  // namespace

std::string LogLocation::ToText(bool with_function) const {
  if (*function == '\0' || line < 0) return {};
  std::string text;
  if (with_function) text.append(function).append("@");
  text.append(file, std::strcspn(file, "."));
  return text.append(":").append(std::to_string(line));
}

std::string LogTimeNow() {
  const TimeText now = TimeTextNow();
  return std::string(now.data(), now.size());
}

void LogStream::Open() noexcept {
  constexpr std::size_t kUsualLength = 256;
  open_ = true;
  try {
    text_.reserve(kUsualLength);
  } catch (const std::exception&) {  // No memory.
  }
}

LogStream& LogStream::operator<<(std::string_view text) noexcept {
  if (!open_) return *this;
  try {
    text_ += text;
  } catch (const std::exception&) {  // Too long, or no memory.
  }
  return *this;
}

LogStream& LogStream::operator<<(const std::string& text) noexcept {
  return *this << std::string_view(text);
}

LogStream& LogStream::operator<<(const char* text) noexcept {
  return text == nullptr ? *this : *this << std::string_view(text);
}

LogStream& LogStream::AppendSigned(std::int64_t value) noexcept {
  return AppendDigits(*this, value);
}

LogStream& LogStream::AppendUnsigned(std::uint64_t value) noexcept {
  return AppendDigits(*this, value);
}

QLogHelper::QLogHelper(std::int32_t level, const LogLocation& location,
                       std::shared_ptr<ITQlogWriter> writer) noexcept
    : location_(location), level_(level), writer_(std::move(writer)) {
  if (writer_ == nullptr) return;
  stream_.Open();
  AppendPrefix();
  if (!stream_.text_.empty()) stream_ << ' ';
}

QLogHelper::~QLogHelper() {
  if (pending_) Commit();
}

void QLogHelper::AppendPrefix() {
  if (writer_->PrintTime()) {
    const TimeText now = TimeTextNow();
    stream_ << std::string_view(now.data(), now.size()) << ' ';
  }
  if (writer_->PrintProcessThread()) {
    stream_ << ProcessId() << '-' << static_cast<std::uint64_t>(pthread_self()) << ' ';
  }
  if (writer_->PrintLevel()) stream_ << '[' << LevelText(level_) << ']';
  if (const auto ident = writer_->GetIdent(); !ident.empty()) stream_ << '[' << ident << ']';
  if (writer_->PrintThreadName()) stream_ << '[' << CurrentThreadName() << ']';
}

void QLogHelper::Commit() {
  pending_ = false;
  if (writer_ == nullptr) return;
  if (level_ <= writer_->LocationLevel()) {
    stream_ << "\n @[location] " << location_.ToText() << '\n';
  }
  stream_ << '\n';
  const std::string text = std::exchange(stream_.text_, {});
  if (writer_->PrintToConsole()) std::fwrite(text.data(), 1, text.size(), stdout);
  writer_->Write(level_, text);
}

void SetCustomLogGetter(CustomLogGetter getter) { custom_log_getter = getter; }

std::shared_ptr<ITQlogWriter> GetLogWriter() {
  if (InForkedChild()) return nullptr;
  if (const CustomLogGetter getter = custom_log_getter) {
    if (auto custom = getter()) return custom;
  }
  return TQLogImpl<TarvelObject>::GetHeldInstance();
}

std::shared_ptr<ITQlogWriter> GetLogWriterFor(std::int32_t level) {
  auto writer = GetLogWriter();
  return writer != nullptr && writer->Takes(level) ? writer : nullptr;
}

template <class Tag>
TQLogHelper<Tag>::TQLogHelper(std::int32_t level, const char* file, std::int32_t line,
                              const char* function) noexcept
    : QLogHelper(level, {file, line, function}, GetLogWriterFor(level)) {}

template class TQLogHelper<TarvelObject>;

}  // namespace zo_base
