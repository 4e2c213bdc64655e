#include "tools/terminal/messages.h"

#include <cerrno>
#include <cstdio>
#include <sstream>

#include "base/text/strings.h"
#include "tools/terminal/standard_output.h"

namespace tarvel_terminal {

namespace {

constexpr int kUsageError = 2;

}  // namespace

std::string Printable(const std::string& text) { return zo_base::Printable(text, text.size()); }

void WriteError(const std::string& message) {
  std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, Printable(message).c_str());
}

int EndParsing(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream help, errors;
  const bool is_help = app.exit(error, help, errors) == 0;
  WriteOutput(help.str());
  for (const std::string& line : zo_base::Split(errors.str(), "\n")) {
    std::fprintf(stderr, "%s\n", Printable(line).c_str());
  }
  return is_help ? 0 : kUsageError;
}

}  // namespace tarvel_terminal
