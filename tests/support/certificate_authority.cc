#include "tests/support/certificate_authority.h"

#include <arpa/inet.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <cstdint>
#include <stdexcept>
#include <string_view>

namespace test_support {

namespace {

struct Free {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
  void operator()(BIO* bio) const { BIO_free(bio); }
};
using Key = std::unique_ptr<EVP_PKEY, Free>;
using Certificate = std::unique_ptr<X509, Free>;
using Bio = std::unique_ptr<BIO, Free>;

constexpr long kHour = 3600;

void Demand(bool ok) {
  if (!ok) throw std::runtime_error("libcrypto refuses to make a certificate");
}

// A random serial number: clients take two certificates of one issuer and number for a forgery.
void SetSerialNumber(X509* certificate) {
  std::uint64_t number = 0;
  Demand(RAND_bytes(reinterpret_cast<unsigned char*>(&number), sizeof number) == 1);
  Demand(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), number >> 1U) == 1);
}

void SetCommonName(X509* certificate, const std::string& name) {
  const auto* text = reinterpret_cast<const unsigned char*>(name.c_str());
  Demand(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8, text,
                                    -1, -1, 0) == 1);
}

void SetTimes(X509* certificate, Validity validity) {
  const bool valid = validity == Validity::kValid;
  Demand(X509_gmtime_adj(X509_getm_notBefore(certificate), (valid ? -1 : -48) * kHour) != nullptr);
  Demand(X509_gmtime_adj(X509_getm_notAfter(certificate), (valid ? 48 : -24) * kHour) != nullptr);
}

// A certificate of `key` that has neither issuer, extensions nor signature yet.
Certificate Begin(EVP_PKEY* key, const std::string& name, Validity validity) {
  Certificate certificate(X509_new());
  Demand(certificate && X509_set_version(certificate.get(), X509_VERSION_3) == 1);
  Demand(X509_set_pubkey(certificate.get(), key) == 1);
  SetSerialNumber(certificate.get());
  SetCommonName(certificate.get(), name);
  SetTimes(certificate.get(), validity);
  return certificate;
}

void Extend(X509* certificate, X509* issuer, int id, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const std::unique_ptr<X509_EXTENSION, Free> extension(
      X509V3_EXT_conf_nid(nullptr, &context, id, value.c_str()));
  Demand(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
}

void Finish(X509* certificate, X509* issuer, EVP_PKEY* issuer_key) {
  Demand(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1);
  Extend(certificate, issuer, NID_subject_key_identifier, "hash");
  Extend(certificate, issuer, NID_authority_key_identifier, "keyid:always");
  Demand(X509_sign(certificate, issuer_key, EVP_sha256()) > 0);
}

std::string AlternativeName(const std::string& name) {
  in6_addr address;
  const bool literal = inet_pton(AF_INET, name.c_str(), &address) == 1 ||
                       inet_pton(AF_INET6, name.c_str(), &address) == 1;
  return (literal ? "IP:" : "DNS:") + name;
}

std::string AlternativeNames(const std::vector<std::string>& names) {
  std::string list;
  for (const std::string& name : names) {
    if (!list.empty()) list += ',';
    list += AlternativeName(name);
  }
  return list;
}

void ExtendAsServer(X509* certificate, X509* issuer, const std::vector<std::string>& names) {
  Extend(certificate, issuer, NID_basic_constraints, "critical,CA:FALSE");
  Extend(certificate, issuer, NID_key_usage, "critical,digitalSignature");
  Extend(certificate, issuer, NID_ext_key_usage, "serverAuth");
  Extend(certificate, issuer, NID_subject_alt_name, AlternativeNames(names));
}

void WriteCertificate(X509* certificate, const std::string& path) {
  const Bio file(BIO_new_file(path.c_str(), "w"));
  Demand(file && PEM_write_bio_X509(file.get(), certificate) == 1);
}

void WriteKey(EVP_PKEY* key, const std::string& path) {
  const Bio file(BIO_new_file(path.c_str(), "w"));
  Demand(file &&
         PEM_write_bio_PrivateKey(file.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1);
}

}  // namespace

struct CertificateAuthority::Identity {
  Identity(const std::string& name, Validity validity)
      : key(EVP_EC_gen("P-256")), certificate(Begin(key.get(), name, validity)) {}

  const Key key;
  const Certificate certificate;
};

CertificateAuthority::CertificateAuthority()
    : own_(std::make_unique<Identity>("Test authority", Validity::kValid)) {
  X509* const certificate = own_->certificate.get();
  Extend(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE");
  Extend(certificate, certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
  Finish(certificate, certificate, own_->key.get());
  WriteCertificate(certificate, trust_store_);
}

CertificateAuthority::~CertificateAuthority() = default;

ServerCertificate CertificateAuthority::Issue(const std::vector<std::string>& names,
                                              Validity validity) {
  const Identity identity(names.at(0), validity);
  ExtendAsServer(identity.certificate.get(), own_->certificate.get(), names);
  Finish(identity.certificate.get(), own_->certificate.get(), own_->key.get());
  return Write(identity);
}

ServerCertificate CertificateAuthority::SelfMade(const std::vector<std::string>& names) {
  const Identity identity(names.at(0), Validity::kValid);
  X509* const certificate = identity.certificate.get();
  ExtendAsServer(certificate, certificate, names);
  Finish(certificate, certificate, identity.key.get());
  return Write(identity);
}

ServerCertificate CertificateAuthority::Write(const Identity& identity) {
  const std::string base = directory_ / ("server" + std::to_string(++written_));
  ServerCertificate files{base + ".crt", base + ".key"};
  WriteCertificate(identity.certificate.get(), files.certificate_file);
  WriteKey(identity.key.get(), files.key_file);
  return files;
}

}  // namespace test_support
