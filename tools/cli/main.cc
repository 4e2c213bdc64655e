// The command-line client `tarvel`. See docs/cli.md.
#include <tarvel/version.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "base/process/clock.h"
#include "tools/cli/argument_checks.h"
#include "tools/cli/client_arguments.h"
#include "tools/cli/command_name.h"
#include "tools/cli/commands.h"
#include "tools/inspect/moments.h"
#include "tools/terminal/file_name.h"
#include "tools/terminal/messages.h"
#include "tools/terminal/standard_output.h"

namespace tarvel_cli {
namespace {

constexpr int kMostRequests = 1'000'000;

// The values of the command line. The chosen command sets `run_command`.
struct Arguments {
  RunOptions run;
  std::vector<std::string> network_changes;
  std::vector<std::string> token_changes;
  LinksOptions links;
  ResolveOptions resolve;
  InspectOptions inspect;
  std::string since;
  std::function<int()> run_command;
};

void AddForce(CLI::App& command, bool& force) {
  command.add_flag("--force", force, "Ask for a fresh answer even with a valid cached one");
}

void AddRun(CLI::App& app, Arguments& arguments) {
  RunOptions& run = arguments.run;
  CLI::App& command = *app.add_subcommand("run", "Start a client and print what happens");
  AddLBSOptions(command, run.client);
  AddCommonOptions(command, run.client);
  AddSeconds(command, "--wait", run.wait_seconds, "Seconds to wait for the first update to end");
  command.add_option("--take", run.take, "Link addresses to take after an answer; 0 for all")
      ->check(CLI::Range(0, 1'000));
  command.add_flag("--follow", run.follow, "Continue until Ctrl-C");
  AddSeconds(command, "--every", run.every_seconds,
             "With --follow: seconds between two link addresses");
  AddForce(command, run.force);
  command.add_flag("--explain", run.explain, "End with a verdict about this run")
      ->excludes("--show-log");
  AddList(command, "--network-change", arguments.network_changes,
          "SECONDS:FAMILY. The network changes so long after the start; FAMILY is any, 4 or 6")
      ->check(CheckNetworkChange);
  AddList(command, "--token-change", arguments.token_changes,
          "SECONDS:KEY. The application key changes so long after the start")
      ->check(CheckTokenChange);
  command.callback([&arguments] {
    arguments.run.network_changes = ReadTimedValues(arguments.network_changes);
    arguments.run.token_changes = ReadTimedValues(arguments.token_changes);
    arguments.run_command = [&arguments] { return Run(arguments.run); };
  });
}

void AddLinks(CLI::App& app, Arguments& arguments) {
  LinksOptions& links = arguments.links;
  CLI::App& command = *app.add_subcommand("links", "Print the link addresses");
  AddLBSOptions(command, links.client);
  AddCommonOptions(command, links.client);
  AddSeconds(command, "--wait", links.wait_seconds, "Seconds to wait for an answer");
  AddForce(command, links.force);
  command.callback(
      [&arguments] { arguments.run_command = [&arguments] { return Links(arguments.links); }; });
}

void AddResolve(CLI::App& app, Arguments& arguments) {
  ResolveOptions& resolve = arguments.resolve;
  CLI::App& command = *app.add_subcommand("resolve", "Resolve names over HTTPDNS");
  command.add_option("hosts", resolve.hosts, "Host names")->required()->check(CheckHost);
  AddCommonOptions(command, resolve.client);
  AddSeconds(command, "--wait", resolve.wait_seconds, "Seconds to wait for all answers");
  command.callback([&arguments] {
    arguments.run_command = [&arguments] { return Resolve(arguments.resolve); };
  });
}

// Returns the moment that the argument `since` means.
std::int64_t ReadSince(const std::string& since) {
  const auto now = zo_base::WallClockMilliseconds();
  const auto moment = tarvel_inspect::ReadMoment(since, now).value_or(now);
  if (moment > now) {
    tarvel_terminal::WriteError("--since is in the future, so no request is shown");
  }
  return moment;
}

void AddInspect(CLI::App& app, Arguments& arguments) {
  InspectOptions& inspect = arguments.inspect;
  CLI::App& command =
      *app.add_subcommand("inspect", "Explain what a client has left in its directory");
  command.add_option("directory", inspect.directory, "Data directory of a client")
      ->required()
      ->check(CLI::ExistingDirectory);
  command.add_flag("--json", inspect.json, "Print one JSON document; docs/inspect.md has its form");
  command
      .add_option("--html", inspect.html,
                  "Write one page with a timeline of each request to this file")
      ->check(tarvel_terminal::CheckFileName);
  command.add_option("--log-dir", inspect.log_dir, "Directory of the log, when it is another")
      ->check(CLI::ExistingDirectory);
  command.add_option("--last", inspect.filter.last, "Show the last N requests only")
      ->check(CLI::Range(0, kMostRequests));
  command
      .add_option("--since", arguments.since,
                  "Show requests since then only: 15m, 2h, 3d, \"16:09\", \"11-24 16:09\"")
      ->check(CheckMoment);
  command.callback([&arguments] {
    if (!arguments.since.empty()) arguments.inspect.filter.since = ReadSince(arguments.since);
    arguments.run_command = [&arguments] { return Inspect(arguments.inspect); };
  });
}

// Returns the exit status.
int Main(int argc, char** argv) {
  CLI::App app("Command-line client for experiments with your own servers.", "tarvel");
  app.require_subcommand(1);
  app.set_version_flag("--version", "tarvel " TARVEL_VERSION_STRING, "Print the version and exit");
  app.set_help_all_flag("--help-all", "Print the help of all subcommands and exit");
  app.footer(
      "Exit codes: 0 done, 1 failed, 2 wrong usage, 3 no fresh answer of an LBS server,\n"
      "4 a host has no address, 130 ended by Ctrl-C, 128 + n ended by signal n.");
  Arguments arguments;
  AddRun(app, arguments);
  AddLinks(app, arguments);
  AddResolve(app, arguments);
  AddInspect(app, arguments);

  if (argc > 1) CheckCommand(app, argv[1]);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return tarvel_terminal::EndParsing(app, error);
  }
  return arguments.run_command();
}

int MainWithoutThrowing(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const UsageError& error) {
    tarvel_terminal::WriteError(error.what());
    return kUsageError;
  } catch (const std::exception& error) {
    tarvel_terminal::WriteError(error.what());
    return kFailed;
  }
}

}  // namespace
}  // namespace tarvel_cli

int main(int argc, char** argv) {
  tarvel_terminal::ReserveStandardDescriptors();
  return tarvel_terminal::StatusWithOutput(tarvel_cli::MainWithoutThrowing(argc, argv));
}
