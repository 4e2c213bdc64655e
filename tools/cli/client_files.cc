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
#include "network/curl/curl_requestor.h"
#include "tarvel/environment/configuration/environment_config.h"

namespace tarvel_cli {

namespace {

namespace fs = std::filesystem;

// Follows symbolic links: the user chose the path.
std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void TrustOnly(const std::string& pem_file) {
  if (ReadFile(pem_file).find("-----BEGIN CERTIFICATE-----") == std::string::npos) {
    throw std::runtime_error("--trust: no certificate in " + pem_file);
  }
  WQBASE::network::TrustAuthoritiesOf(pem_file);
}

}  // namespace

DataDirectory::DataDirectory(ClientOptions& options) {
  if (options.data.empty()) {
    std::string name = fs::temp_directory_path() / "tarvel-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("can't make a directory " + name);
    options.data = own_ = name;
    return;
  }
  std::error_code error;
  fs::create_directories(options.data, error);
  if (error || access(options.data.c_str(), W_OK | X_OK) != 0) {
    throw std::runtime_error("--data: nothing can be kept in " + options.data);
  }
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
  if (!zo_base::ReplaceWholeFile(file, ReadFile(options.httpdns_cache))) {
    throw std::runtime_error("can't write " + file.string());
  }
}

}  // namespace tarvel_cli
