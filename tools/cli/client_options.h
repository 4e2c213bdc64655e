#pragma once

#include <tarvel/client.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace tarvel_cli {

// The options that all commands share, as the user typed them.
struct ClientOptions {
  std::string lbs;
  std::vector<std::string> backups;
  std::string token;
  std::string business = "tarvel-cli";
  std::string family = "any";  // Or "4", or "6".
  bool https_only = false;
  std::vector<std::string> links;
  std::string default_link;
  std::string default_link_ipv6;
  std::string lbs_host;  // Name behind LBS URLs on IP addresses.
  std::string client_version = "1.0";
  int sdk_version = 0;
  int protocol_version = 0;
  int client_type = 0;
  std::string account_id;
  bool prefer_ip_addresses = false;
  bool only_with_network = false;  // Send nothing while the network looks unavailable.
  int timeout_ms = 7'000;          // Of one URL.
  int next_after_ms = 2'000;       // Until the next URL starts in parallel to a slow one.
  bool no_httpdns = false;
  std::string httpdns_servers;  // Contents of a file; empty for the library's defaults.
  std::string trust_store;      // PEM file; empty for the system's.
  std::string data;             // Directory; empty for a temporary one.
  std::string log_dir;
  bool show_log = false;  // Then there is no log file.
  bool json = false;
};

zo_net::AddressFamily FamilyOf(const ClientOptions& options);

// The command line is wrong.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

tarvel::Settings ClientSettings(const ClientOptions& options);
// For an environment without an LBS service. Throws UsageError when a string is too long for its
// field.
zo_tarvel::_ZOTarvelEnvironmentSettings EnvironmentSettings(const ClientOptions& options);

}  // namespace tarvel_cli
