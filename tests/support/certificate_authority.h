#pragma once

#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include "tests/support/temp_directory.h"
#include "tools/backend/certificate.h"

namespace test_support {

// An authority that is known only to those who are given its trust store.
//
// Its files live as long as this object. Not for several threads at once.
class CertificateAuthority {
 public:
  CertificateAuthority() { tarvel_backend::WriteCertificate(own_, trust_store_); }

  // The path of the authority's own certificate.
  const std::string& trust_store() const { return trust_store_; }

  // Returns the path of a file, in PEM, with a certificate for a DNS name or an IP literal, and
  // with its key. Takes `key` over.
  std::string Issue(const std::string& name, EVP_PKEY* key = EVP_EC_gen("P-256")) {
    const auto issued = tarvel_backend::Sign("Test", key, NID_subject_alt_name,
                                             tarvel_backend::AlternativeNames({name}), &own_);
    const std::string file = directory_ / (std::to_string(++issued_) + ".pem");
    tarvel_backend::WriteCertificate(issued, file);
    BIO* const end = BIO_new_file(file.c_str(), "a");
    PEM_write_bio_PrivateKey(end, key, nullptr, nullptr, 0, nullptr, nullptr);
    BIO_free(end);
    return file;
  }

 private:
  const TempDirectory directory_;
  const std::string trust_store_ = directory_ / "authority.pem";
  const tarvel_backend::Certificate own_ = tarvel_backend::Sign(
      "Authority", EVP_EC_gen("P-256"), NID_basic_constraints, "critical,CA:TRUE");
  int issued_ = 0;
};

}  // namespace test_support
