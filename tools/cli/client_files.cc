#include "tools/cli/client_files.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "base/file/whole_file.h"
#include "base/json/json11.h"
#include "network/http/trust_settings.h"
#include "tarvel/environment/configuration/environment_config.h"
#include "tarvel/http_agent/http_dns/httpdns_server_list.h"

namespace tarvel_cli {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestUserFile = 16 << 20;  // A device may be endless.

// Returns the beginning of a file that the user has named. Follows links. Empty when it can't be
// read.
std::string ReadUserFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text(kLongestUserFile, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(file.gcount()));
  return text;
}

void TrustOnly(const std::string& pem_file) {
  // It is read again for each connection, which a pipe doesn't survive.
  if (!fs::is_regular_file(pem_file)) {
    throw std::runtime_error("--trust: " + pem_file + " is no regular file");
  }
  if (ReadUserFile(pem_file).find("-----BEGIN CERTIFICATE-----") == std::string::npos) {
    throw std::runtime_error("--trust: no certificate in " + pem_file);
  }
  WQBASE::network::TrustAuthoritiesOf(pem_file);
}

// Throws when nothing can be written to the directory, which is made if needed.
void PrepareDirectory(const char* option, const std::string& directory) {
  std::error_code error;
  fs::create_directories(directory, error);
  if (error || access(directory.c_str(), W_OK | X_OK) != 0) {
    throw std::runtime_error(std::string(option) + ": nothing can be written to " + directory);
  }
}

}  // namespace

// An object of strings, of which the lists are JSON themselves.
std::string ReadServersFile(const std::string& path) {
  using zo_base::json11::Json;
  std::string text = ReadUserFile(path);
  std::string error;
  const auto file = Json::parse(text, error);
  const auto servers = Json::parse(file["ipv4"].string_value(), error);
  if (file["host"].string_value().empty() || zo_tarvel::ReadServers(servers, false).empty()) {
    throw CLI::ValidationError("--httpdns-cache",
                               path + " names no HTTPDNS service with \"host\" and \"ipv4\"");
  }
  return text;
}

DataDirectory::DataDirectory(ClientOptions& options) {
  if (!options.log_dir.empty()) PrepareDirectory("--log-dir", options.log_dir);
  if (options.data.empty()) {
    std::string name = fs::temp_directory_path() / "tarvel-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("can't make a directory " + name);
    options.data = own_ = name;
    return;
  }
  PrepareDirectory("--data", options.data);
}

DataDirectory::~DataDirectory() {
  std::error_code ignored;
  if (!own_.empty()) fs::remove_all(own_, ignored);
}

void PrepareHttpDNS(const ClientOptions& options) {
  if (!options.trust_store.empty()) TrustOnly(options.trust_store);
  if (options.httpdns_servers.empty()) return;
  const auto config = std::make_shared<zo_tarvel::_EnvironmentConfig>();
  config->Load(EnvironmentSettings(options));
  const fs::path directory = config->appdata_path() + "http_dns/";
  fs::create_directories(directory);
  const fs::path file = directory / "http_server_cache.data";
  if (!zo_base::ReplaceWholeFile(file, options.httpdns_servers)) {
    throw std::runtime_error("can't write " + file.string());
  }
}

}  // namespace tarvel_cli
