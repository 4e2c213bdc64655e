#include "tools/cli/printer.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "base/text/strings.h"
#include "base/text/utf8.h"

namespace tarvel_cli {

namespace {

// JSON must be UTF-8, but a server's string may hold any bytes.
std::string Utf8Line(std::string line) {
  if (zo_base::IsUtf8(line)) return line;
  std::replace_if(
      line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) > '\x7f'; }, '?');
  return line;
}

}  // namespace

void Printer::PrintLog(const std::string& record) {
  if (json_) return Print("log", "", {{"record", record}});
  for (const std::string& line : zo_base::Split(record, "\r\n")) Print("log", line, {});
}

void Printer::Print(const std::string& event, const std::string& text,
                    zo_base::json11::Json::object fields) {
  const std::chrono::duration<double> since = Clock::now() - start_;
  const std::lock_guard lock(mutex_);
  if (json_) {
    fields["event"] = event;
    fields["seconds"] = since.count();
    std::printf("%s\n", Utf8Line(zo_base::json11::Json(std::move(fields)).dump()).c_str());
  } else {
    // A server's string could send control sequences to the terminal.
    std::printf("%8.3f s  %-10s %s\n", since.count(), event.c_str(),
                zo_base::Printable(text, text.size()).c_str());
  }
  // Nobody reads any more. The system tells this thread only, and no thread takes the signal.
  if (std::fflush(stdout) != 0) kill(getpid(), SIGPIPE);
}

}  // namespace tarvel_cli
