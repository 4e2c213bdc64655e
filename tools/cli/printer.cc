#include "tools/cli/printer.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "base/text/strings.h"
#include "base/text/utf8.h"
#include "tools/terminal/messages.h"
#include "tools/terminal/standard_output.h"

namespace tarvel_cli {

namespace {

using zo_base::json11::Json;

// JSON must be UTF-8, but a server's string may hold any bytes.
std::string Utf8Line(std::string line) {
  if (zo_base::IsUtf8(line)) return line;
  std::replace_if(
      line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) > '\x7f'; }, '?');
  return line;
}

// Ends the waits of all threads when nobody reads any more.
void Write(const std::string& lines) {
  if (!tarvel_terminal::WriteOutput(lines)) kill(getpid(), SIGPIPE);
}

}  // namespace

void Printer::PrintLog(const std::string& record) {
  if (json_) return Print("log", "", {{"record", record}});
  for (const std::string& line : zo_base::Split(record, "\r\n")) Print("log", line, {});
}

void Printer::PrintBlock(const std::string& event, const std::string& lines, Json::object fields) {
  if (json_) return Print(event, "", std::move(fields));
  Write('\n' + lines + '\n');
}

void Printer::PrintExit() { Print("exit", "all threads have ended", {}); }

void Printer::Print(const std::string& event, const std::string& text, Json::object fields) {
  if (json_) {
    fields["event"] = event;
    fields["seconds"] = Seconds();
    return Write(Utf8Line(Json(std::move(fields)).dump()) + '\n');
  }
  // A server's string could send control sequences to the terminal.
  Write(zo_base::StringFormat("%8.3f s  %-10s ", Seconds(), event.c_str()) +
        tarvel_terminal::Printable(text) + '\n');
}

double Printer::Seconds() const {
  return std::chrono::duration<double>(Clock::now() - start_).count();
}

}  // namespace tarvel_cli
