#include "tools/inspect/log_texts.h"

#include "base/text/strings.h"
#include "network/url/url.h"

namespace tarvel_inspect {
namespace {

constexpr std::size_t kLongestText = 512;
constexpr std::string_view kBehindScheme = "://";

}  // namespace

std::optional<std::string_view> After(std::string_view text, std::string_view begin) {
  if (!text.starts_with(begin)) return std::nullopt;
  return text.substr(begin.size());
}

std::string_view Between(std::string_view text, std::string_view begin, std::string_view end) {
  const std::size_t at = text.find(begin);
  if (at == std::string_view::npos) return {};
  text.remove_prefix(at + begin.size());
  return text.substr(0, text.find(end));
}

std::string Clean(std::string_view text) { return zo_base::Printable(text, kLongestText); }

std::string CleanUrl(std::string_view url) {
  std::string text(url.substr(0, url.find_first_of("?#")));
  const std::size_t scheme = text.find(kBehindScheme);
  const std::size_t begin = scheme == std::string::npos ? 0 : scheme + kBehindScheme.size();
  const std::size_t user = text.substr(0, text.find('/', begin)).rfind('@');
  if (user != std::string::npos && user >= begin) text.erase(begin, user + 1 - begin);
  return Clean(text);
}

std::string ServerOf(const std::string& url) {
  const std::size_t scheme = url.find(kBehindScheme);
  if (scheme == std::string::npos) return url;
  return url.substr(0, url.find('/', scheme + kBehindScheme.size()));
}

std::string HostOf(const std::string& url) { return WQBASE::network::GetHost(url, false); }

}  // namespace tarvel_inspect
