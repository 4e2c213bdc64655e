#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <vector>

namespace tarvel_backend {

// A self-signed certificate and its key.
struct Certificate {
  std::unique_ptr<X509, decltype(&X509_free)> x509{nullptr, X509_free};
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key{nullptr, EVP_PKEY_free};
};

// Makes one with a new key for `names` (DNS names and IP literals), valid for a day. Throws
// std::runtime_error when a name is neither.
Certificate MakeCertificate(const std::vector<std::string>& names);

// The certificate without its key, in PEM. Throws when the file can't be written.
void WriteCertificate(const Certificate& certificate, const std::string& path);

}  // namespace tarvel_backend
