#include "tools/cli/client_arguments.h"

#include "tools/cli/argument_checks.h"
#include "tools/cli/client_files.h"

namespace tarvel_cli {

CLI::Option* AddList(CLI::App& command, const std::string& name, std::vector<std::string>& values,
                     const std::string& text) {
  return command.add_option(name, values, text + ". May be repeated")->allow_extra_args(false);
}

void AddSeconds(CLI::App& command, const std::string& name, double& seconds,
                const std::string& text) {
  command.add_option(name, seconds, text + ", 0 to 3600")
      ->check(CheckSeconds)
      ->capture_default_str();
}

void AddCommonOptions(CLI::App& command, ClientOptions& options) {
  command.add_option("--family", options.family, "Addresses to use: any, 4 or 6")
      ->check(CLI::IsMember({"any", "4", "6"}))
      ->capture_default_str();
  command.add_flag("--https-only", options.https_only, "Use https URLs only");
  // Read once: a pipe has its contents only once.
  const auto read_servers = [&options](const std::string& path) {
    options.httpdns_servers = ReadServersFile(path);
  };
  command
      .add_option_function<std::string>(
          "--httpdns-cache", read_servers,
          "File of HTTPDNS servers to use; docs/cli.md has its format")
      ->check(CLI::ExistingFile);
  command
      .add_option("--trust", options.trust_store,
                  "File of certificates to trust (PEM) instead of the system's")
      ->check(CLI::ExistingFile);
  command
      .add_option("--business", options.business,
                  "Name of the business; each business has its own files")
      ->check(CheckText)
      ->capture_default_str();
  command.add_option("--timeout", options.timeout_ms, "Time-out of one URL, 1000 to 30000 ms")
      ->check(CLI::Range(1'000, 30'000))
      ->capture_default_str();
  command
      .add_option("--next-after", options.next_after_ms,
                  "ms after which the next URL starts in parallel to a slow one, from 200")
      ->check(CLI::Range(200, 30'000))
      ->capture_default_str();
  command
      .add_option(
          "--data", options.data,
          "Directory for the caches and the log. Default: a temporary directory, removed on exit")
      ->check(CheckDirectory);
  command
      .add_option("--log-dir", options.log_dir, "Directory for the log. Default: with the caches")
      ->check(CheckDirectory);
  command
      .add_option("--client-version", options.client_version,
                  "Version of the client for the servers")
      ->check(CheckText)
      ->capture_default_str();
  command.add_flag("--json", options.json, "Print one JSON object per line");
}

void AddLBSOptions(CLI::App& command, ClientOptions& options) {
  command.add_option("--lbs", options.lbs, "URL of the LBS server")->required()->check(CheckUrl);
  AddList(command, "--backup", options.backups, "Backup LBS URL")->check(CheckUrl);
  command.add_option("--token", options.token, "Application key")->required()->check(CheckText);
  AddList(command, "--link", options.links, "Link address HOST:PORT for the time before an answer")
      ->check(CheckLink);
  command
      .add_option("--default-link", options.default_link, "Link address HOST:PORT to fall back to")
      ->check(CheckLink);
  command.add_option("--default-link-ipv6", options.default_link_ipv6, "The same for IPv6")
      ->check(CheckLinkForIPv6);
  command.add_option("--lbs-host", options.lbs_host, "Host name behind LBS URLs on IP addresses")
      ->check(CheckHost);
  command.add_option("--sdk-version", options.sdk_version, "Version number of the SDK");
  command.add_option("--protocol-version", options.protocol_version,
                     "Version number of the protocol");
  command.add_option("--client-type", options.client_type,
                     "The servers' number of the client type");
  command.add_option("--account", options.account_id, "Id of the account, sent with each update")
      ->check(CheckText);
  command.add_flag("--prefer-ip", options.prefer_ip_addresses, "Start with URLs on IP addresses");
  command.add_flag("--only-with-network", options.only_with_network,
                   "Send nothing while the system says that there is no network");
  command.add_flag("--show-log", options.show_log,
                   "Print the library's log instead of writing it to a file");
  command.add_flag("--no-httpdns", options.no_httpdns, "Don't resolve names over HTTPDNS");
}

}  // namespace tarvel_cli
