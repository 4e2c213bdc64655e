#include "tools/cli/client_files.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "base/file/whole_file.h"
#include "network/http/trust_settings.h"
#include "tarvel/environment/configuration/environment_config.h"

namespace tarvel_cli {

namespace {

namespace fs = std::filesystem;

void TrustOnly(const std::string& pem_file) {
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

std::string ReadUserFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
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
  if (options.httpdns_cache.empty()) return;
  const auto config = std::make_shared<zo_tarvel::_EnvironmentConfig>();
  config->Load(EnvironmentSettings(options));
  const fs::path directory = config->appdata_path() + "http_dns/";
  fs::create_directories(directory);
  const fs::path file = directory / "http_server_cache.data";
  if (!zo_base::ReplaceWholeFile(file, ReadUserFile(options.httpdns_cache))) {
    throw std::runtime_error("can't write " + file.string());
  }
}

}  // namespace tarvel_cli
