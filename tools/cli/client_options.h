#pragma once

#include <tarvel/tarvel.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace tarvel_cli {

// What the commands have in common, as it was typed.
struct ClientOptions {
  std::string lbs;
  std::vector<std::string> backups;
  std::string token;
  std::string business = "tarvel-cli";
  std::string family = "any";  // Or "4", or "6".
  bool https_only = false;
  std::vector<std::string> links;
  std::string default_link;
  int timeout_ms = 7'000;     // Of one URL.
  int next_after_ms = 2'000;  // Until the next URL is tried beside a slow one.
  bool no_httpdns = false;
  std::string httpdns_cache;  // File of servers to use; empty for the library's own.
  std::string trust_store;    // PEM file; empty for the system's.
  std::string data;           // Directory; empty for one that goes at the end.
  std::string log_dir;
  bool json = false;
};

zo_net::AddressFamily FamilyOf(const ClientOptions& options);

// The command line isn't right.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Records for the library. Throw UsageError when a text is too long for its field, or when there
// are too many.
zo_tarvel::_ZOTarvelEnvironmentSettings EnvironmentSettings(const ClientOptions& options);
zo_tarvel::_ZOTarvelLBSSettings LBSSettings(const ClientOptions& options);

}  // namespace tarvel_cli
