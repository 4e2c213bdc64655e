// An LBS answer with any bytes. One that passes the check is usable. Its addresses fit the client's
// buffers and come in order, each for the families it suits.
#include <tarvel/tarvel.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "business/tarvel_lbs/host_chooser/host_chooser.h"
#include "business/tarvel_lbs/lbs_answer.h"
#include "business/tarvel_lbs/link_address.h"
#include "network/url/ip_address.h"

namespace {

using namespace zo_tarvel;

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

void CheckAddress(const LinkAddress& address) {
  Require(!address.text.empty() && !address.host.empty(), "no address is empty");
  Require(address.host.size() < kLinkAddressBufferSize, "the host fits its buffer");
  Require(address.port >= 0 && address.port <= 65'535, "the port is one");
  auto family = zo_net::kAddressFamilyAny;
  WQBASE::network::GetIPFamily(address.host, family);
  Require(static_cast<std::int32_t>(address.family) == family, "the family is the host's");
}

// One pass of a chooser through `list`.
void CheckPass(const std::vector<LinkAddress>& list, std::int32_t family) {
  HostChooser chooser("4:4", "6:6", -1);
  chooser.ResetHosts(list);
  std::string host;
  for (const LinkAddress& expected : list) {
    const std::int32_t own = expected.family;
    if (family != 0 && own != 0 && own != family) continue;
    Require(!chooser.GetHost(family, host) && host == expected.text, "the next suitable address");
  }
  Require(chooser.GetHost(family, host) && host == (family == 2 ? "6:6" : "4:4"), "a default");
  Require(chooser.GetCurrentHost() == (list.empty() ? "" : list.front().text),
          "the list begins anew");
}

void CheckTexts(const LBSAnswer& answer) {
  for (const std::string* text : {&answer.lbs, &answer.zeb_dl, &answer.zeb_dl_list,
                                  &answer.zeb_list, &answer.name, &answer.desc}) {
    Require(FitsLBSTextBuffer(*text), "the text fits its buffer");
  }
  constexpr std::int64_t kLimit = 1'000'000'000;  // Ten characters are no integer any more.
  Require(answer.ttl > -kLimit && answer.ttl < kLimit, "the life time is short");
  Require(!answer.report.host.empty(), "there is always a place to report to");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string rsp(reinterpret_cast<const char*>(data), size);
  const auto [answer, error] = ParseLBSAnswer(rsp);
  const bool usable = error.empty();
  Require(!usable || (answer && !answer->link.empty() && !answer->default_link.empty() &&
                      !answer->lbs.empty()),
          "a usable answer has all that is needed");
  if (!answer) return 0;
  CheckTexts(*answer);
  for (const auto* list : {&answer->link, &answer->default_link}) {
    for (const LinkAddress& address : *list) CheckAddress(address);
    for (const std::int32_t family : {0, 1, 2}) CheckPass(*list, family);
  }
  return 0;
}
