#include "network/http/headers.h"

#include <algorithm>

#include "base/log/log.h"
#include "base/text/strings.h"

namespace WQBASE::network {
namespace {

using namespace std::string_view_literals;
using zo_base::EqualIgnoringCase;

auto IsNamed(std::string_view name) {
  return [name](const Headers::Header& header) { return EqualIgnoringCase(header.first, name); };
}

bool IsTokenCharacter(char c) {
  return zo_base::IsLetterOrDigit(c) || "!#$%&'*+-.^_`|~"sv.find(c) != std::string_view::npos;
}

bool IsToken(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, IsTokenCharacter);
}

bool IsSetByTheTransport(std::string_view name) {
  return EqualIgnoringCase(name, "Content-Length") || EqualIgnoringCase(name, "Transfer-Encoding");
}

bool BreaksTheLine(std::string_view value) {
  return value.find_first_of("\r\n\0"sv) != std::string_view::npos;
}

}  // namespace

Headers Headers::FromLines(const std::vector<std::string>& lines) {
  Headers result;
  for (const std::string& line : lines) {
    auto pieces = zo_base::Split(line, ":");
    if (pieces.size() >= 2) result.Add(std::move(pieces.front()), std::move(pieces.back()));
  }
  return result;
}

std::string Headers::ToText() const {
  std::string text;
  for (const auto& [name, value] : headers_) {
    if (!text.empty()) text += "\r\n";
    text.append(name).append(":").append(value);
  }
  return text;
}

bool Headers::Has(std::string_view name) const {
  return std::ranges::any_of(headers_, IsNamed(name));
}

const std::string* Headers::ValueOf(std::string_view name) const {
  for (const auto& header : headers_) {
    if (IsNamed(name)(header) && !header.second.empty()) return &header.second;
  }
  return nullptr;
}

void Headers::Add(std::string name, std::string value) {
  headers_.emplace_back(std::move(name), std::move(value));
}

void Headers::Set(std::string_view name, std::string value) {
  const auto header = std::ranges::find_if(headers_, IsNamed(name));
  if (header == headers_.end()) return Add(std::string(name), std::move(value));
  header->second = std::move(value);
}

void Headers::Remove(std::string_view name) { std::erase_if(headers_, IsNamed(name)); }

std::string_view Headers::AddLine(std::string_view line) {
  if (line.starts_with(' ') || line.starts_with('\t')) {
    if (headers_.empty()) return {};
    std::string& value = headers_.back().second;
    const std::string_view more = zo_base::Trim(line);
    value.append(value.empty() ? "" : " ").append(more);
    return more;
  }
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return {};
  const std::string_view value = zo_base::Trim(line.substr(colon + 1));
  headers_.emplace_back(line.substr(0, colon), value);
  return value;
}

Headers Headers::Sendable() const {
  Headers result;
  for (const auto& [name, value] : headers_) {
    if (!IsToken(name)) {
      ZO_LOG << "[http client]header dropped, its name is no token";
    } else if (BreaksTheLine(value)) {
      ZO_LOG << "[http client]header dropped, its value has CR, LF or NUL, name:" << name;
    } else if (IsSetByTheTransport(name)) {
      ZO_LOG << "[http client]header dropped, the transport sets it, name:" << name;
    } else {
      result.Set(name, value);
    }
  }
  return result;
}

}  // namespace WQBASE::network
