#include "tools/cli/argument_checks.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <numeric>

#include "base/json/json11.h"
#include "base/process/clock.h"
#include "base/text/strings.h"
#include "business/tarvel_lbs/link_address.h"
#include "network/url/host_rules.h"
#include "network/url/url.h"
#include "tarvel/http_agent/http_dns/httpdns_server_list.h"
#include "tools/cli/client_files.h"
#include "tools/cli/client_options.h"
#include "tools/inspect/moments.h"

namespace tarvel_cli {
namespace {

// How many letters have to be changed, added or left out.
std::size_t EditDistance(const std::string& from, const std::string& to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t changed = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

// The command with the fewest differing letters. The user may have mistyped it.
std::string NearestCommand(const CLI::App& app, const std::string& typed) {
  std::string nearest;
  std::size_t least = typed.size();
  for (const CLI::App* const command : app.get_subcommands({})) {
    const std::string& name = command->get_name();
    const std::size_t distance = EditDistance(typed, name);
    if (distance >= least) continue;
    least = distance;
    nearest = name;
  }
  return nearest;
}

}  // namespace

std::string CheckUrl(const std::string& url) {
  const WQBASE::network::Url parsed = url;
  if (parsed.is_web() && !parsed.host().empty()) return {};
  return "expected an http or https URL, not " + url;
}

std::string CheckLink(const std::string& link) {
  const auto address = zo_tarvel::SplitLinkAddress(link);
  if (zo_tarvel::IsUsable(address) && address.port > 0) return {};
  return "expected HOST:PORT, not " + link;
}

std::string CheckHost(const std::string& host) {
  return WQBASE::network::CanBeHost(host) ? "" : "expected a host name, not " + host;
}

// The form of the library's cache: an object of strings, of which the lists are JSON themselves.
std::string CheckServersFile(const std::string& path) {
  std::string error;
  const auto file = zo_base::json11::Json::parse(ReadUserFile(path), error);
  const auto servers = zo_base::json11::Json::parse(file["ipv4"].string_value(), error);
  if (!file["host"].string_value().empty() && !zo_tarvel::ReadServers(servers, false).empty())
    return {};
  return path + " names no HTTPDNS service with \"host\" and \"ipv4\"";
}

// Not CLI::Range, which accepts "nan".
std::string CheckSeconds(const std::string& text) {
  const double seconds = std::strtod(text.c_str(), nullptr);
  return seconds >= 0 && seconds <= 3'600 ? "" : "expected 0 to 3600 seconds, not " + text;
}

std::string CheckMoment(const std::string& text) {
  const bool is_moment =
      tarvel_inspect::ReadMoment(text, zo_base::WallClockMilliseconds()).has_value();
  return is_moment ? "" : "expected 15m, 2h, 3d, or a time like \"11-24 16:09\", not " + text;
}

std::string CheckToken(const std::string& token) { return token.empty() ? "it is empty" : ""; }

std::string CheckTimedValue(const std::string& text) {
  const auto colon = text.find(':');
  return colon == std::string::npos ? "expected SECONDS:VALUE, not " + text
                                    : CheckSeconds(text.substr(0, colon));
}

std::vector<TimedValue> ReadTimedValues(const std::vector<std::string>& texts) {
  std::vector<TimedValue> values;
  for (const std::string& text : texts) {
    const auto colon = text.find(':');
    values.emplace_back(std::strtod(text.c_str(), nullptr), text.substr(colon + 1));
  }
  return values;
}

void CheckCommand(const CLI::App& app, const std::string& typed) {
  if (typed.empty() || typed.front() == '-') return;
  const auto commands = app.get_subcommands({});
  const bool is_known = std::any_of(commands.begin(), commands.end(), [&](const CLI::App* command) {
    return command->get_name() == typed;
  });
  if (is_known) return;
  const std::string nearest = NearestCommand(app, typed);
  throw UsageError("there is no command \"" + zo_base::Printable(typed, 64) + '"' +
                   (nearest.empty() ? "; see --help" : "; did you mean \"" + nearest + "\"?"));
}

}  // namespace tarvel_cli
