#pragma once

#include <tarvel/tarvel.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tarvel/http_agent/logic/request/multiple_url_http_request.h"

namespace zo_tarvel {

// What the LBS server is told in the query.
struct LBSQuery {
  std::string token;
  std::string account_id;
  std::int32_t sv = 0;
  std::int32_t pv = 0;
  std::int32_t client_type = 0;
  std::int32_t addr_family = kEMAddressFamilyAny;

  std::string ToText() const;
};

// Where the LBS server can be asked, and what narrows the choice.
struct LBSAddresses {
  std::vector<std::string>
      urls;  // In the order of trying; what can't be fetched over http or https is left out.
  std::string def_lbs_host;  // Name for IP literals when the first URL has no name.
  std::int32_t family = kEMAddressFamilyAny;  // IP literals of the other one are left out.
  bool only_https = false;
};

// The entries of one request, each with the query added.
std::vector<UrlEntry> MakeLBSUrlEntries(const LBSAddresses& addresses, const std::string& query);

}  // namespace zo_tarvel
