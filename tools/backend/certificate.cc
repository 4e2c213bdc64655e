#include "tools/backend/certificate.h"

#include <arpa/inet.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <fstream>
#include <stdexcept>

namespace tarvel_backend {

namespace {

constexpr long kSecondsOfLife = 24L * 60 * 60;
// Clients whose clock is slow accept it too.
constexpr long kSecondsBefore = 60L * 60;
constexpr long kVersion3 = 2;

bool IsAddress(const std::string& name) {
  unsigned char bytes[sizeof(in6_addr)];
  return inet_pton(AF_INET, name.c_str(), bytes) == 1 ||
         inet_pton(AF_INET6, name.c_str(), bytes) == 1;
}

void AddExtension(X509* x509, int id, const std::string& value) {
  const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
      X509V3_EXT_conf_nid(nullptr, nullptr, id, value.c_str()), X509_EXTENSION_free);
  if (extension == nullptr || X509_add_ext(x509, extension.get(), -1) != 1) {
    throw std::runtime_error("no certificate for " + value);
  }
}

}  // namespace

std::string AlternativeNames(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    if (name.find_first_of(", :\n") != std::string::npos && !IsAddress(name)) {
      throw std::runtime_error("no name for a certificate: " + name);
    }
    if (!text.empty()) text += ',';
    text += IsAddress(name) ? "IP:" : "DNS:";
    text += name;
  }
  return text;
}

Certificate MakeCertificate(const std::vector<std::string>& names) {
  const std::string alternatives = AlternativeNames(names);  // Throws before there is a key.
  return Sign(names.front(), EVP_EC_gen("P-256"), NID_subject_alt_name, alternatives);
}

Certificate Sign(const std::string& common_name, EVP_PKEY* key, int extension,
                 const std::string& value, const Certificate* issuer) {
  Certificate made;
  made.key.reset(key);
  made.x509.reset(X509_new());
  X509* const x509 = made.x509.get();
  if (key == nullptr || x509 == nullptr) throw std::runtime_error("no key for a certificate");
  const Certificate& signer = issuer == nullptr ? made : *issuer;
  X509_set_version(x509, kVersion3);
  ASN1_INTEGER_set(X509_get_serialNumber(x509), 1);
  X509_gmtime_adj(X509_getm_notBefore(x509), -kSecondsBefore);
  X509_gmtime_adj(X509_getm_notAfter(x509), kSecondsOfLife);
  X509_set_pubkey(x509, key);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(x509), "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(common_name.c_str()), -1, -1,
                             0);
  X509_set_issuer_name(x509, X509_get_subject_name(signer.x509.get()));
  AddExtension(x509, extension, value);
  if (X509_sign(x509, signer.key.get(), EVP_sha256()) == 0) {
    throw std::runtime_error("a certificate can't be signed");
  }
  return made;
}

std::string ToPem(const Certificate& certificate) {
  const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), BIO_free);
  char* text = nullptr;
  if (memory == nullptr || PEM_write_bio_X509(memory.get(), certificate.x509.get()) != 1) {
    throw std::runtime_error("no memory for a certificate");
  }
  const long size = BIO_get_mem_data(memory.get(), &text);
  return std::string(text, static_cast<std::size_t>(size));
}

void WriteCertificate(const Certificate& certificate, const std::string& path) {
  std::ofstream file(path);
  if (!(file << ToPem(certificate)) || !file.flush()) {
    throw std::runtime_error("can't write the certificate to " + path);
  }
}

}  // namespace tarvel_backend
