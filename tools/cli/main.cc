// The command-line client `tarvel`. See docs/cli.md.
#include <tarvel/version.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "base/process/clock.h"
#include "tools/cli/argument_checks.h"
#include "tools/cli/commands.h"
#include "tools/inspect/moments.h"

namespace tarvel_cli {
namespace {

// Each occurrence takes one value, so that the next argument can be a positional one.
CLI::Option* AddList(CLI::App& command, const std::string& name, std::vector<std::string>& values,
                     const std::string& text) {
  return command.add_option(name, values, text + ". May be repeated")->allow_extra_args(false);
}

void AddSeconds(CLI::App& command, const std::string& name, double& seconds,
                const std::string& text) {
  command.add_option(name, seconds, text)->check(CheckSeconds)->capture_default_str();
}

void AddCommonOptions(CLI::App& command, ClientOptions& options) {
  command.add_option("--family", options.family, "Addresses to use: any, 4 or 6")
      ->check(CLI::IsMember({"any", "4", "6"}))
      ->capture_default_str();
  command.add_flag("--https-only", options.https_only, "Use https URLs only");
  command
      .add_option("--httpdns-cache", options.httpdns_cache,
                  "File of HTTPDNS servers to use; docs/cli.md has its format")
      ->check(CLI::ExistingFile)
      ->check(CheckServersFile);
  command
      .add_option("--trust", options.trust_store,
                  "File of certificates to trust (PEM) instead of the system's")
      ->check(CLI::ExistingFile);
  command
      .add_option("--business", options.business,
                  "Name of the business; each business has its own files")
      ->capture_default_str();
  command.add_option("--timeout", options.timeout_ms, "Time-out of one URL, 1000 to 30000 ms")
      ->check(CLI::Range(1'000, 30'000))
      ->capture_default_str();
  command
      .add_option("--next-after", options.next_after_ms,
                  "ms after which the next URL starts in parallel to a slow one, from 200")
      ->check(CLI::Range(200, 30'000))
      ->capture_default_str();
  command.add_option(
      "--data", options.data,
      "Directory for the caches and the log. Default: a temporary directory, removed on exit");
  command.add_option("--log-dir", options.log_dir, "Directory for the log");
  command
      .add_option("--client-version", options.client_version,
                  "Version of the client for the servers")
      ->capture_default_str();
  command.add_flag("--json", options.json, "Print one JSON object per line");
}

void AddLBSOptions(CLI::App& command, ClientOptions& options) {
  command.add_option("--lbs", options.lbs, "URL of the LBS server")->required()->check(CheckUrl);
  AddList(command, "--backup", options.backups, "Backup LBS URL")->check(CheckUrl);
  command.add_option("--token", options.token, "Application key")->required()->check(CheckToken);
  AddList(command, "--link", options.links, "Link address HOST:PORT for the time before an answer")
      ->check(CheckLink);
  command
      .add_option("--default-link", options.default_link, "Link address HOST:PORT to fall back to")
      ->check(CheckLink);
  command.add_option("--default-link-ipv6", options.default_link_ipv6, "The same for IPv6")
      ->check(CheckLink);
  command.add_option("--lbs-host", options.lbs_host, "Host name behind LBS URLs on IP addresses")
      ->check(CheckHost);
  command.add_option("--sdk-version", options.sdk_version, "Version number of the SDK");
  command.add_option("--protocol-version", options.protocol_version,
                     "Version number of the protocol");
  command.add_option("--client-type", options.client_type,
                     "The servers' number of the client type");
  command.add_option("--account", options.account_id, "Id of the account, sent with each update");
  command.add_flag("--prefer-ip", options.prefer_ip_addresses, "Start with URLs on IP addresses");
  command.add_flag("--only-with-network", options.only_with_network,
                   "Send nothing while the system says that there is no network");
  command.add_flag("--show-log", options.show_log,
                   "Print the library's log instead of writing it to a file");
  command.add_flag("--no-httpdns", options.no_httpdns, "Don't resolve names over HTTPDNS");
}

// Returns the exit status.
int Main(int argc, char** argv) {
  CLI::App app("Command-line client for experiments with your own servers.", "tarvel");
  app.require_subcommand(1);
  app.set_version_flag("--version", "tarvel " TARVEL_VERSION_STRING, "Print the version and exit");
  app.set_help_all_flag("--help-all", "Print the help of all subcommands and exit");
  app.footer(
      "Exit codes: 0 done, 1 failed, 2 wrong usage, 3 no fresh answer of an LBS server,\n"
      "4 a host has no address.");

  RunOptions run;
  CLI::App* const run_command = app.add_subcommand("run", "Start a client and print what happens");
  AddLBSOptions(*run_command, run.client);
  AddCommonOptions(*run_command, run.client);
  AddSeconds(*run_command, "--wait", run.wait_seconds,
             "Seconds to wait for the first update to end");
  run_command->add_option("--take", run.take, "Link addresses to take after an answer; 0 for all")
      ->check(CLI::Range(0, 1'000));
  run_command->add_flag("--follow", run.follow, "Continue until Ctrl-C");
  AddSeconds(*run_command, "--every", run.every_seconds,
             "With --follow: seconds between two link addresses");
  run_command->add_flag("--force", run.force,
                        "Ask for a fresh answer even with a valid cached one");
  run_command->add_flag("--explain", run.explain, "End with a verdict about this run")
      ->excludes("--show-log");
  std::vector<std::string> network_changes, token_changes;
  AddList(*run_command, "--network-change", network_changes,
          "SECONDS:FAMILY. The network changes so long after the start; FAMILY is any, 4 or 6")
      ->check(CheckTimedValue);
  AddList(*run_command, "--token-change", token_changes,
          "SECONDS:KEY. The application key changes so long after the start")
      ->check(CheckTimedValue);

  LinksOptions links;
  CLI::App* const links_command = app.add_subcommand("links", "Print the link addresses");
  AddLBSOptions(*links_command, links.client);
  AddCommonOptions(*links_command, links.client);
  AddSeconds(*links_command, "--wait", links.wait_seconds, "Seconds to wait for an answer");
  links_command->add_flag("--force", links.force,
                          "Ask for a fresh answer even with a valid cached one");

  ResolveOptions resolve;
  CLI::App* const resolve_command = app.add_subcommand("resolve", "Resolve names over HTTPDNS");
  resolve_command->add_option("hosts", resolve.hosts, "Host names")->required()->check(CheckHost);
  AddCommonOptions(*resolve_command, resolve.client);
  AddSeconds(*resolve_command, "--wait", resolve.wait_seconds, "Seconds to wait for all answers");

  InspectOptions inspect;
  CLI::App* const inspect_command =
      app.add_subcommand("inspect", "Explain what a client has left in its directory");
  inspect_command->add_option("directory", inspect.directory, "Data directory of a client")
      ->required()
      ->check(CLI::ExistingDirectory);
  inspect_command->add_flag("--json", inspect.json,
                            "Print one JSON document; docs/inspect.md has its form");
  inspect_command->add_option("--html", inspect.html,
                              "Write one page with a timeline of each request to this file");
  inspect_command
      ->add_option("--log-dir", inspect.log_dir, "Directory of the log, when it is another")
      ->check(CLI::ExistingDirectory);
  inspect_command->add_option("--last", inspect.filter.last, "Show the last N requests only");
  std::string since;
  inspect_command
      ->add_option("--since", since,
                   "Show requests since then only: 15m, 2h, 3d, \"16:09\", \"11-24 16:09\"")
      ->check(CheckMoment);

  if (argc > 1) CheckCommand(app, argv[1]);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kUsageError;
  }
  run.network_changes = ReadTimedValues(network_changes);
  run.token_changes = ReadTimedValues(token_changes);
  if (!since.empty())
    inspect.filter.since = tarvel_inspect::ReadMoment(since, zo_base::WallClockMilliseconds());
  if (run_command->parsed()) return Run(std::move(run));
  if (links_command->parsed()) return Links(std::move(links));
  if (inspect_command->parsed()) return Inspect(inspect);
  return Resolve(std::move(resolve));
}

}  // namespace
}  // namespace tarvel_cli

int main(int argc, char** argv) {
  try {
    const int code = tarvel_cli::Main(argc, argv);
    const bool is_printed = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    const bool was_interrupted = code > 128;
    return is_printed || was_interrupted ? code : tarvel_cli::kFailed;
  } catch (const tarvel_cli::UsageError& error) {
    std::fprintf(stderr, "tarvel: %s\n", error.what());
    return tarvel_cli::kUsageError;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tarvel: %s\n", error.what());
    return tarvel_cli::kFailed;
  }
}
