#include "tools/cli/argument_checks.h"

#include <algorithm>

#include "base/process/clock.h"
#include "base/text/strings.h"
#include "business/tarvel_lbs/link_address.h"
#include "network/url/host_rules.h"
#include "network/url/url.h"
#include "tools/cli/timed_value.h"
#include "tools/inspect/moments.h"
#include "tools/terminal/file_name.h"
#include "tools/terminal/messages.h"

namespace tarvel_cli {
namespace {

bool IsPrintable(const std::string& text) { return tarvel_terminal::Printable(text) == text; }

// Nothing may stand before the host or behind the port, which a URL allows.
bool IsHostAndPort(const zo_tarvel::LinkAddress& address) {
  return address.text == address.host + ':' + std::to_string(address.port);
}

bool IsGoodHost(const std::string& host) {
  const bool is_literal = host.starts_with('[');
  return is_literal ? WQBASE::network::CanBeHost(host) : WQBASE::network::CanBeAskedFor(host);
}

}  // namespace

std::string CheckText(const std::string& text) {
  if (text.empty()) return "it is empty";
  return IsPrintable(text) ? "" : "expected UTF-8 without control bytes, not " + text;
}

std::string CheckDirectory(const std::string& path) {
  const bool has_control = std::any_of(path.begin(), path.end(), [](char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
  });
  return has_control ? "expected a path without control bytes, not " + path
                     : tarvel_terminal::CheckFileName(path);
}

std::string CheckUrl(const std::string& url) {
  const WQBASE::network::Url parsed = url;
  const bool has_good_port =
      !parsed.has_port() || (parsed.port() > 0 && parsed.port() <= WQBASE::network::kHighestPort);
  if (parsed.is_web() && IsGoodHost(std::string(parsed.host())) && has_good_port &&
      zo_base::IsOneWord(url)) {
    return {};
  }
  return "expected an http or https URL, not " + url;
}

std::string CheckLink(const std::string& link) {
  const auto address = zo_tarvel::SplitLinkAddress(link);
  if (zo_tarvel::IsUsable(address) && address.port > 0 && IsHostAndPort(address) &&
      IsGoodHost(address.host)) {
    return {};
  }
  return "expected HOST:PORT, not " + link;
}

std::string CheckLinkForIPv6(const std::string& link) {
  if (zo_tarvel::SplitLinkAddress(link).family == zo_tarvel::kEMAddressFamilyIPv4) {
    return "expected [IPV6]:PORT or NAME:PORT, not " + link;
  }
  return CheckLink(link);
}

std::string CheckHost(const std::string& host) {
  return WQBASE::network::CanBeHost(host) ? "" : "expected a host name, not " + host;
}

std::string CheckSeconds(const std::string& text) {
  return ReadSeconds(text) ? "" : "expected 0 to 3600 seconds, not " + text;
}

std::string CheckMoment(const std::string& text) {
  if (tarvel_inspect::ReadMoment(text, zo_base::WallClockMilliseconds())) return {};
  return "expected 15m, 2h, 3d, or a time like \"11-24 16:09\", not " + text;
}

}  // namespace tarvel_cli
