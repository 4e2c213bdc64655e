#pragma once

#include <string>
#include <vector>

#include "tests/support/temp_directory.h"

namespace test_support {

// The files, in PEM, that a TLS server is set up with.
struct ServerCertificate {
  std::string certificate_file;
  std::string key_file;
};

enum class Validity { kValid, kExpired };

// An authority that nobody knows but those who are given its trust store.
//
// Names are DNS names or IP literals; they become the certificate's alternative names. Files live
// as long as this. Throws when the openssl program fails. Not for several threads at once.
class CertificateAuthority {
 public:
  CertificateAuthority();

  // The path of the authority's own certificate.
  const std::string& trust_store() const { return trust_store_; }

  ServerCertificate Issue(const std::vector<std::string>& names,
                          Validity validity = Validity::kValid);

 private:
  void Run(const std::string& command) const;

  const TempDirectory directory_;
  const std::string trust_store_ = directory_ / "authority.crt";
  int written_ = 0;
};

}  // namespace test_support
