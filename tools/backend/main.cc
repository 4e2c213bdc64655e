// `tarvel-backend`: LBS and HTTPDNS servers with faults, for experiments. See docs/backend.md.
#include <tarvel/version.h>

#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/text/numbers.h"
#include "tools/backend/answers_file.h"
#include "tools/backend/backend.h"
#include "tools/backend/certificate.h"
#include "tools/backend/client_socket.h"
#include "tools/backend/lab_command.h"
#include "tools/terminal/file_name.h"
#include "tools/terminal/messages.h"
#include "tools/terminal/standard_output.h"

namespace tarvel_backend {
namespace {

using tarvel_terminal::EndParsing;
using tarvel_terminal::StatusWithOutput;
using tarvel_terminal::WriteError;
using tarvel_terminal::WriteOutput;

constexpr int kUsageError = 2;
constexpr int kHighestPort = 65'535;

struct Options {
  std::string answers;
  std::vector<std::string> plain;
  std::vector<std::string> tls;
  std::vector<std::string> names{"localhost"};
  std::string certificate_file;
};

// Reads "127.0.0.1:8080" or "[::1]:8080".
std::optional<Endpoint> ReadAuthority(const std::string& text) {
  const auto colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0) return std::nullopt;
  const bool has_brackets = text.front() == '[' && text[colon - 1] == ']';
  const std::string address = has_brackets ? text.substr(1, colon - 2) : text.substr(0, colon);
  const int port = zo_base::ReadNumber(std::string_view(text).substr(colon + 1), -1);
  const bool is_plain = address.find_first_of("[]") == std::string::npos &&
                        (has_brackets || address.find(':') == std::string::npos);
  if (address.empty() || !is_plain || port < 0 || port > kHighestPort) return std::nullopt;
  return Endpoint{address, port};
}

// Returns the error message for a wrong value; empty for a good one.
std::string CheckAuthority(const std::string& text) {
  return ReadAuthority(text) ? "" : "expected ADDRESS:PORT, not " + text;
}

std::string CheckName(const std::string& name) {
  const bool is_good = !name.empty() && tarvel_terminal::Printable(name) == name;
  return is_good ? "" : "expected a name or an address, not " + name;
}

// Blocks the signals that Serve waits for, in the threads created later too.
sigset_t BlockSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGUSR1, SIGUSR2}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  signal(SIGPIPE, SIG_IGN);
  return signals;
}

void PrintRequest(const EndedRequest& request) {
  WriteOutput(ToClockText(std::chrono::system_clock::now()) + ' ' + ToText(request) + '\n');
}

Certificates MakeCertificates(const Options& options) {
  if (options.tls.empty()) return {};
  Certificates certificates{MakeCertificate(options.names), MakeCertificate({"wrong.invalid"})};
  if (!options.certificate_file.empty()) {
    WriteCertificate(certificates.right, options.certificate_file);
  }
  return certificates;
}

// Returns at a stop signal, or when nobody can learn the ports.
void Serve(const Options& options) {
  const sigset_t signals = BlockSignals();
  ReadAnswers(options.answers);  // Throws when the file is unusable.
  const Certificates certificates = MakeCertificates(options);
  const BackendOwner owner{[&] { return ReadAnswers(options.answers); }, PrintRequest};
  std::vector<std::unique_ptr<Backend>> backends;
  std::string urls;
  const auto listen = [&](const std::string& authority, const Certificates* shown) {
    const auto at = ReadAuthority(authority).value();
    backends.push_back(std::make_unique<Backend>(owner, shown, at.address, at.port));
    urls += "listening on " + backends.back()->url() + '\n';
  };
  for (const std::string& authority : options.plain) listen(authority, nullptr);
  for (const std::string& authority : options.tls) listen(authority, &certificates);
  if (!WriteOutput(urls)) return;

  for (int signal = 0; sigwait(&signals, &signal) == 0 && signal != SIGINT && signal != SIGTERM;) {
    for (const auto& backend : backends) backend->SetSilence(signal == SIGUSR1);
    WriteOutput(signal == SIGUSR1 ? "drops all packets\n" : "hears packets again\n");
  }
  // Pending once more: threads that wait for the reader of standard output stop waiting.
  kill(getpid(), SIGTERM);
}

// Takes "--" and what follows it, the program of a lab, off the command line.
std::vector<std::string> TakeProgram(int& argc, char** argv) {
  char** const end = argv + argc;
  char** const begin = std::find(argv, end, std::string_view("--"));
  if (begin == end) return {};
  argc = static_cast<int>(begin - argv);
  return {begin + 1, end};
}

void AddOptions(CLI::App& app, Options& options) {
  app.add_option("answers", options.answers, "JSON file of answers and faults");
  app.add_option("--listen", options.plain,
                 "ADDRESS:PORT to serve HTTP on; port 0 for a free one. May be repeated")
      ->allow_extra_args(false)
      ->check(CheckAuthority);
  CLI::Option* const tls = app.add_option("--tls-listen", options.tls, "The same for HTTPS")
                               ->allow_extra_args(false)
                               ->check(CheckAuthority);
  app.add_option("--name", options.names, "Name or address in the certificate. May be repeated")
      ->allow_extra_args(false)
      ->check(CheckName)
      ->capture_default_str();
  app.add_option("--write-certificate", options.certificate_file,
                 "File to write the certificate to (PEM), for the trust store of clients")
      ->check(tarvel_terminal::CheckFileName)
      ->needs(tls);
}

// Returns an empty string for options with which Serve has something to do.
std::string WhatIsMissing(const Options& options, const std::vector<std::string>& program) {
  if (options.answers.empty() || !program.empty())
    return "give an answers file, or lab and a program";
  if (!options.plain.empty() || !options.tls.empty()) return {};
  return "nothing to listen on: give --listen or --tls-listen";
}

// Returns the exit status.
int Main(int argc, char** argv) {
  const std::vector<std::string> program = TakeProgram(argc, argv);
  Options options;
  CLI::App app(
      "LBS and HTTPDNS servers for experiments. The answers file is read for each request.\n"
      "docs/backend.md has its format. Paths: /lbs/conf.jsp, /httpdns/v2/s, "
      "/httpdns/v2/d.\n"
      "SIGUSR1: drop all incoming packets; SIGUSR2: receive them again.\n"
      "SIGINT, SIGTERM: end.",
      "tarvel-backend");
  app.set_version_flag("--version", "tarvel-backend " TARVEL_VERSION_STRING,
                       "Print the version and exit");
  AddOptions(app, options);
  LabCommand lab(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return StatusWithOutput(EndParsing(app, error));
  }
  if (lab.is_chosen()) return lab.Run(program);
  if (const std::string missing = WhatIsMissing(options, program); !missing.empty()) {
    WriteError(missing);
    return kUsageError;
  }
  Serve(options);
  return StatusWithOutput(0);
}

}  // namespace
}  // namespace tarvel_backend

int main(int argc, char** argv) {
  tarvel_terminal::ReserveStandardDescriptors();
  try {
    return tarvel_backend::Main(argc, argv);
  } catch (const std::exception& error) {
    tarvel_terminal::WriteError(error.what());
    return 1;
  }
}
