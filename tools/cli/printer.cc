#include "tools/cli/printer.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "base/text/utf8.h"

namespace tarvel_cli {

namespace {

// A server's string could send control sequences to the terminal.
std::string WithoutControls(std::string text) {
  std::replace_if(
      text.begin(), text.end(),
      [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }, '?');
  return text;
}

// JSON must be UTF-8, but a server's string may hold any bytes.
std::string Utf8Line(std::string line) {
  if (zo_base::IsUtf8(line)) return line;
  std::replace_if(
      line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) > '\x7f'; }, '?');
  return line;
}

}  // namespace

void Printer::Print(const std::string& event, const std::string& text,
                    zo_base::json11::Json::object fields) {
  const std::chrono::duration<double> since = Clock::now() - start_;
  const std::lock_guard lock(mutex_);
  if (json_) {
    fields["event"] = event;
    fields["seconds"] = since.count();
    std::printf("%s\n", Utf8Line(zo_base::json11::Json(std::move(fields)).dump()).c_str());
  } else {
    std::printf("%8.3f s  %-10s %s\n", since.count(), event.c_str(), WithoutControls(text).c_str());
  }
  std::fflush(stdout);
}

}  // namespace tarvel_cli
