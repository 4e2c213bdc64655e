#pragma once

#include <httplib.h>

#include <map>
#include <string>
#include <thread>

#include "tests/support/certificate_authority.h"

namespace tarvel_bench {

// A name server over HTTPS for the IPv4 addresses of a few names, on port 443 of a loopback
// address. Its certificate is its own.
//
// Ownership: owns its thread, which ends with it.
class DohServer {
 public:
  DohServer(std::map<std::string, std::string> addresses, const std::string& listen_address);
  ~DohServer();
  DohServer(const DohServer&) = delete;
  DohServer& operator=(const DohServer&) = delete;

 private:
  std::string AnswerTo(const std::string& query) const;

  const std::map<std::string, std::string> addresses_;  // By name.
  test_support::CertificateAuthority authority_;
  const std::string certificate_;
  httplib::SSLServer server_;
  std::thread thread_;
};

}  // namespace tarvel_bench
