#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <vector>

namespace tarvel_backend {

// A certificate and its key.
struct Certificate {
  std::unique_ptr<X509, decltype(&X509_free)> x509{nullptr, X509_free};
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key{nullptr, EVP_PKEY_free};
};

// Makes a self-signed one with a new key for `names` (DNS names and IP literals), valid for a day.
// Throws std::runtime_error when a name is neither.
Certificate MakeCertificate(const std::vector<std::string>& names);

// Makes one with a single extension, whose value is in OpenSSL's notation, valid for a day. It owns
// `key`. It is self-signed without an issuer. Throws std::runtime_error.
Certificate Sign(const std::string& common_name, EVP_PKEY* key, int extension,
                 const std::string& value, const Certificate* issuer = nullptr);

// Returns the value of the extension NID_subject_alt_name. Throws as MakeCertificate.
std::string AlternativeNames(const std::vector<std::string>& names);

// Returns the certificate without its key.
std::string ToPem(const Certificate& certificate);

// Writes the certificate without its key, in PEM. Throws when the file can't be written.
void WriteCertificate(const Certificate& certificate, const std::string& path);

}  // namespace tarvel_backend
