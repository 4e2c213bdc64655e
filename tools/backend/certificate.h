#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <vector>

namespace tarvel_backend {

// A certificate for `names` (DNS names and IP literals) that vouches for itself, with a fresh key.
// Whoever has it in their trust store believes it. Good for a day.
struct Certificate {
  std::unique_ptr<X509, decltype(&X509_free)> x509{nullptr, X509_free};
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key{nullptr, EVP_PKEY_free};
};

// Throws std::runtime_error when a name is none.
Certificate MakeCertificate(const std::vector<std::string>& names);

// The certificate without its key, in PEM. Throws when the file can't be written.
void WriteCertificate(const Certificate& certificate, const std::string& path);

}  // namespace tarvel_backend
