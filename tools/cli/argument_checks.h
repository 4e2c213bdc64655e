#pragma once

#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace tarvel_cli {

// What the arguments of a command line have to be. The checks return an empty string for a good
// value, and for another one what is wrong with it.

std::string CheckUrl(const std::string& url);
std::string CheckLink(const std::string& link);  // "HOST:PORT".
std::string CheckHost(const std::string& host);
std::string CheckServersFile(const std::string& path);
std::string CheckSeconds(const std::string& text);  // Up to an hour.
std::string CheckMoment(const std::string& text);   // For ReadMoment.
std::string CheckToken(const std::string& token);

// What happens so many seconds after the start: "SECONDS:VALUE".
using TimedValue = std::pair<double, std::string>;
std::string CheckTimedValue(const std::string& text);
std::vector<TimedValue> ReadTimedValues(const std::vector<std::string>& texts);

// Throws UsageError for a first argument that is neither an option nor a command.
void CheckCommand(const CLI::App& app, const std::string& typed);

}  // namespace tarvel_cli
