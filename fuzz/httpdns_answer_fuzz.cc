// An HTTPDNS answer with any bytes. Only hosts, ports and plain IP literals get out of it, and an
// answer that passes the check has at least one of them.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/text/utf8.h"
#include "network/url/host_rules.h"
#include "network/url/ip_address.h"
#include "network/url/url.h"
#include "tarvel/http_agent/http_dns/httpdns_messages.h"

namespace {

using namespace zo_tarvel;

constexpr std::int64_t kNow = 1'700'000'000'000;

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

void CheckServers(const zo_base::json11::Json& list) {
  static _EnvironmentConfig config;
  const auto servers = ReadServers(list, false);
  const auto entries = MakeSRequest(config, zo_net::kAddressFamilyAny, servers).urls;
  Require(entries.size() == servers.size(), "an entry for each server");
  for (std::size_t i = 0; i < servers.size(); ++i) {
    const WQBASE::network::Url& url = entries[i].url;
    Require(url.host() == servers[i].host, "the URL is on the server");
    const std::string prefix = servers[i].https ? "https://" : "http://";
    Require(url.text() == prefix + AuthorityOf(servers[i]) + "/httpdns/v2/s",
            "nothing else is in there");
  }
}

void CheckService(const std::string& body) {
  std::string error;
  const auto answer = CheckSResponse(body, error);
  Require(answer.has_value() == error.empty(), "a refusal says why");
  if (!answer) return;
  Require(!answer->host.empty() && answer->ttl >= std::chrono::seconds(1),
          "a good answer has what is needed");
  CheckServers(answer->ipv4);
  CheckServers(answer->ipv6);
}

void CheckAddresses(const std::vector<std::string>& addresses) {
  for (const std::string& address : addresses) {
    Require(WQBASE::network::IsIPAddress(address), "only literals are kept");
    Require(WQBASE::network::GetHost("http://" + address, true) == address, "of use in a URL");
  }
}

void CheckHosts(const std::string& body) {
  std::string error;
  const auto updates = CheckDResponse(200, body, {}, error);
  Require(updates.has_value() == error.empty(), "a refusal says why");
  if (!updates) return;
  HttpDNSHostCache cache;
  cache.SetEntries(*updates, kNow);
  std::vector<std::string> hosts;
  std::vector<std::string> addresses;
  for (const auto& update : *updates) {
    Require(zo_base::IsUtf8(update.host) && WQBASE::network::CanBeAskedFor(update.host),
            "the name can be saved");
    const bool good = CheckDResponse(200, body, {update.host}, error).has_value();
    const HttpDNSGrade grade = cache.Check(zo_net::kAddressFamilyAny, update.host, kNow, addresses);
    Require(!addresses.empty(), "what makes an entry has addresses");
    Require(!good || update.ttl_ms < 2 || grade == HttpDNSGrade::kGood, "and is good for a while");
    CheckAddresses(addresses);
  }
}

// An entry of the file is used for five minutes at most.
void CheckEntryOfFile(const std::string& text) {
  constexpr std::int64_t kLongestUse = 270'000;
  HttpDNSHostCache cache;
  if (!cache.Load("host.test", text, kNow)) return;
  std::vector<std::string> addresses;
  const auto grade_at = [&](std::int64_t now) {
    return cache.Check(zo_net::kAddressFamilyAny, "host.test", now, addresses);
  };
  Require(grade_at(kNow) != HttpDNSGrade::kExpired && !addresses.empty(), "of use at once");
  CheckAddresses(addresses);
  Require(grade_at(kNow + kLongestUse) == HttpDNSGrade::kExpired, "not for long");
  Require(grade_at(kNow - 1) == HttpDNSGrade::kExpired, "not before its time");
}

}  // namespace

// The first byte chooses between the answers of the two functions and an entry of the file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string body(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 3) {
    case 0:
      CheckHosts(body);
      break;
    case 1:
      CheckService(body);
      break;
    default:
      CheckEntryOfFile(body);
  }
  return 0;
}
