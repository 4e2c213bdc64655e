#include "tests/support/certificate_authority.h"

#include <cstdlib>
#include <stdexcept>

namespace test_support {

namespace {

constexpr char kConfiguration[] = R"([req]
distinguished_name = none
[none]
[authority]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
[server]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature
extendedKeyUsage = serverAuth
subjectKeyIdentifier = hash
)";

constexpr char kNewKey[] = " -config own.cnf -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes ";

}  // namespace

CertificateAuthority::CertificateAuthority() {
  WriteFile(directory_ / "own.cnf", kConfiguration);
  Run("req -x509 -subj /CN=Authority -extensions authority -keyout authority.key"
      " -out authority.crt" +
      std::string(kNewKey));
}

ServerCertificate CertificateAuthority::Issue(const std::vector<std::string>& names,
                                              Validity validity) {
  const std::string server = "server" + std::to_string(++written_);
  const std::string days = validity == Validity::kValid ? "30" : "-1";
  std::string list;
  for (const std::string& name : names) {
    if (!list.empty()) list += ',';
    const bool is_ip =
        name.find_first_not_of("0123456789.") == name.npos || name.find(':') != name.npos;
    list.append(is_ip ? "IP:" : "DNS:").append(name);
  }
  Run("req -new -subj /CN=" + names.at(0) + " -addext subjectAltName=" + list + " -keyout " +
      server + ".key -out request" + kNewKey);
  Run("x509 -req -in request -CA authority.crt -CAkey authority.key -copy_extensions copy"
      " -extfile own.cnf -extensions server -days " +
      days + " -out " + server + ".crt");
  return {directory_ / (server + ".crt"), directory_ / (server + ".key")};
}

void CertificateAuthority::Run(const std::string& command) const {
  const std::string line = "cd '" + directory_.path() + "' && openssl " + command + " 2>>errors";
  if (std::system(line.c_str()) == 0) return;
  throw std::runtime_error("openssl " + command + ": " + ReadFile(directory_ / "errors"));
}

}  // namespace test_support
