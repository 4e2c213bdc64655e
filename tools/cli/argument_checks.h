#pragma once

#include <string>

namespace tarvel_cli {

// What the arguments of a command line have to be. The checks return an empty string for a good
// value, and for another one what is wrong with it.

std::string CheckText(const std::string& text);       // Something that can be printed.
std::string CheckDirectory(const std::string& path);  // For the library.
std::string CheckUrl(const std::string& url);
std::string CheckLink(const std::string& link);  // "HOST:PORT".
std::string CheckLinkForIPv6(const std::string& link);
std::string CheckHost(const std::string& host);
std::string CheckSeconds(const std::string& text);  // Up to an hour.
std::string CheckMoment(const std::string& text);   // For tarvel_inspect::ReadMoment.

}  // namespace tarvel_cli
