#include "tests/support/certificate_authority.h"

#include <cstdlib>
#include <stdexcept>

namespace test_support {

CertificateAuthority::CertificateAuthority() {
  Make("authority", "-subj /CN=Authority -addext basicConstraints=critical,CA:TRUE", kEllipticKey);
}

ServerCertificate CertificateAuthority::Issue(const std::vector<std::string>& names,
                                              const std::string& key) {
  std::string list;
  for (const std::string& name : names) {
    const bool is_ip =
        name.find_first_not_of("0123456789.") == name.npos || name.find(':') != name.npos;
    list.append(list.empty() ? "" : ",").append(is_ip ? "IP:" : "DNS:").append(name);
  }
  const std::string server = "server" + std::to_string(++issued_);
  return Make(server,
              "-CA authority.crt -CAkey authority.key -subj /CN=" + names.at(0) +
                  " -addext subjectAltName=" + list,
              key);
}

ServerCertificate CertificateAuthority::Make(const std::string& name, const std::string& options,
                                             const std::string& key) const {
  const ServerCertificate made{directory_ / (name + ".crt"), directory_ / (name + ".key")};
  const std::string command =
      "cd " + directory_.path() + " && openssl req -x509 -config /dev/null -nodes -newkey " + key +
      " -out " + made.certificate_file + " -keyout " + made.key_file + " " + options + " 2>errors";
  if (std::system(command.c_str()) == 0) return made;
  throw std::runtime_error(command + ": " + ReadFile(directory_ / "errors"));
}

}  // namespace test_support
