#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// Texts of a log.
namespace tarvel_inspect {

// What follows `begin`, if `text` begins so.
std::optional<std::string_view> After(std::string_view text, std::string_view begin);
// What stands between `begin` and `end`, or the end of the text; empty without `begin`.
std::string_view Between(std::string_view text, std::string_view begin, std::string_view end);

// Made fit to be shown: cut, and without control characters.
std::string Clean(std::string_view text);
// Also without the query, which holds the application key, and without a user's name and password.
std::string CleanUrl(std::string_view url);

// Calls `function` with each line, without its end.
template <class Function>
void ForEachLine(std::string_view text, const Function& function) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    function(line);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
}

// "https://lbs.example:8443/lbs" gives "https://lbs.example:8443" and "lbs.example".
std::string ServerOf(const std::string& url);
std::string HostOf(const std::string& url);

}  // namespace tarvel_inspect
