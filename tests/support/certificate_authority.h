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

// An authority that is known only to those who are given its trust store.
//
// Names are DNS names or IP literals; they become the certificate's alternative names. Files live
// as long as this. Throws when the openssl program fails. Not for several threads at once.
class CertificateAuthority {
 public:
  // A kind of key, as `openssl req -newkey` takes it.
  static constexpr char kEllipticKey[] = "ec -pkeyopt ec_paramgen_curve:P-256";

  CertificateAuthority();

  // The path of the authority's own certificate.
  const std::string& trust_store() const { return trust_store_; }

  ServerCertificate Issue(const std::vector<std::string>& names,
                          const std::string& key = kEllipticKey);

 private:
  ServerCertificate Make(const std::string& name, const std::string& options,
                         const std::string& key) const;

  const TempDirectory directory_;
  const std::string trust_store_ = directory_ / "authority.crt";
  int issued_ = 0;
};

}  // namespace test_support
