#pragma once

#include <stdexcept>

#include "tests/support/temp_directory.h"

namespace test_support {

// An authority that is known only to those who are given its trust store.
//
// Files live as long as this. Throws when the openssl program fails. Not for several threads at
// once.
class CertificateAuthority {
 public:
  CertificateAuthority() { Make(trust_store_, "basicConstraints=critical,CA:TRUE"); }

  // The path of the authority's own certificate.
  const std::string& trust_store() const { return trust_store_; }

  // Returns the path of a file, in PEM, with a certificate for a DNS name or an IP literal, and
  // with its key, which is of the kind that openssl's option -newkey says.
  std::string Issue(const std::string& name, const std::string& key = kKey) {
    const bool is_ip = name.find_first_not_of("0123456789abcdef.:") == std::string::npos;
    return Make(directory_ / (std::to_string(++issued_) + ".pem"),
                std::string("subjectAltName=") + (is_ip ? "IP:" : "DNS:") + name + " -CA " +
                    trust_store_ + " -CAkey " + trust_store_,
                key);
  }

 private:
  static constexpr char kKey[] = "ec -pkeyopt ec_paramgen_curve:P-256";

  static std::string Make(const std::string& file, const std::string& extension,
                          const std::string& key = kKey) {
    const std::string command =
        "openssl req -x509 -config /dev/null -nodes -subj /CN=Test -newkey " + key + " -out " +
        file + " -keyout " + file + " -addext " + extension + " 2>/dev/null";
    if (std::system(command.c_str()) != 0) throw std::runtime_error(command);
    return file;
  }

  const TempDirectory directory_;
  const std::string trust_store_ = directory_ / "authority.pem";
  int issued_ = 0;
};

}  // namespace test_support
