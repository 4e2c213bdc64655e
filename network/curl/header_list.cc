#include "network/curl/header_list.h"

#include <strings.h>

#include <algorithm>
#include <string_view>

#include "base/log/log.h"

namespace WQBASE::network {
namespace {

using namespace std::string_view_literals;

auto Find(HeaderList& headers, const std::string& name) {
  return std::find_if(headers.begin(), headers.end(),
                      [&](const auto& header) { return SameName(header.first, name); });
}

bool IsTokenCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         "!#$%&'*+-.^_`|~"sv.find(c) != std::string_view::npos;
}

bool IsToken(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), IsTokenCharacter);
}

bool IsOfTheTransport(const std::string& name) {
  return SameName(name, "Content-Length") || SameName(name, "Transfer-Encoding");
}

bool EndsLine(const std::string& value) {
  return value.find_first_of("\r\n\0"sv) != std::string::npos;
}

}  // namespace

bool SameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

void SetHeader(HeaderList& headers, const std::string& name, const std::string& value) {
  const auto header = Find(headers, name);
  if (header == headers.end()) {
    headers.emplace_back(name, value);
  } else {
    header->second = value;
  }
}

void RemoveHeader(HeaderList& headers, const std::string& name) {
  headers.erase(std::remove_if(headers.begin(), headers.end(),
                               [&](const auto& header) { return SameName(header.first, name); }),
                headers.end());
}

const std::string* FindHeader(const HeaderList& headers, const std::string& name) {
  for (const auto& header : headers) {
    if (SameName(header.first, name) && !header.second.empty()) return &header.second;
  }
  return nullptr;
}

HeaderList HeadersToSend(const HeaderList& headers) {
  HeaderList result;
  for (const auto& [name, value] : headers) {
    if (!IsToken(name)) {
      ZO_LOG << "[http client]header dropped, its name is no token";
    } else if (EndsLine(value)) {
      ZO_LOG << "[http client]header dropped, its value has CR, LF or NUL, name:" << name;
    } else if (IsOfTheTransport(name)) {
      ZO_LOG << "[http client]header dropped, the transport sets it, name:" << name;
    } else {
      SetHeader(result, name, value);
    }
  }
  return result;
}

std::string_view AppendHeaderLine(HeaderList& headers, std::string_view line) {
  if (line.starts_with(' ') || line.starts_with('\t')) {
    if (headers.empty()) return {};
    std::string& value = headers.back().second;
    const std::string_view more = Trim(line);
    value.append(value.empty() ? "" : " ").append(more);
    return more;
  }
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return {};
  const std::string_view value = Trim(line.substr(colon + 1));
  headers.emplace_back(line.substr(0, colon), value);
  return value;
}

std::string_view Trim(std::string_view text) {
  const auto begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

}  // namespace WQBASE::network
