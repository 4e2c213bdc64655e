#include "tools/backend/json_file.h"

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace tarvel_backend {

namespace {

using Event = Json::parse_event_t;

// The JSON library writes values recursively, so a deeper file could exhaust the stack.
constexpr int kDeepest = 200;

// Follows the parser, and refuses what the parser would accept. Throws std::runtime_error.
class JsonRules {
 public:
  void Take(int depth, Event event, const Json& parsed) {
    if (depth > kDeepest) throw std::runtime_error("nested too deeply");
    switch (event) {
      case Event::key:
        return TakeKey(parsed.get<std::string>());
      case Event::object_start:
      case Event::array_start:
        BeginValue();
        open_.emplace_back();
        return;
      case Event::object_end:
      case Event::array_end:
        open_.pop_back();
        return;
      case Event::value:
        return BeginValue();
    }
  }

 private:
  // An object or a list whose end has not been read.
  struct Unfinished {
    std::set<std::string> keys;  // Of an object.
    std::string name;            // The full name of the member or element that is being read.
    std::size_t elements = 0;    // Of a list.
  };

  void TakeKey(const std::string& key) {
    open_.back().name = CheckedJson::NameOfMember(ParentName(), key);
    if (open_.back().keys.insert(key).second) return;
    throw std::runtime_error(open_.back().name + " is there twice");
  }

  void BeginValue() {
    if (open_.empty() || !open_.back().keys.empty()) return;
    open_.back().name = CheckedJson::NameOfElement(ParentName(), open_.back().elements++);
  }

  std::string ParentName() const { return open_.size() < 2 ? "" : open_[open_.size() - 2].name; }

  std::vector<Unfinished> open_;
};

std::ifstream Open(const std::string& path) {
  std::ifstream file(path);
  const int error = errno;
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) {
    throw std::runtime_error("can't read " + path + ": it is a directory");
  }
  if (!file) {
    throw std::runtime_error("can't read " + path + ": " + std::generic_category().message(error));
  }
  return file;
}

// Leaves out the JSON library's own name of the error: "[json.exception.parse_error.101] ".
std::string Reason(const Json::parse_error& error) {
  const std::string reason = error.what();
  const auto end = reason.find("] ");
  return end == std::string::npos ? reason : reason.substr(end + 2);
}

}  // namespace

Json ReadJsonFile(const std::string& path) {
  std::ifstream file = Open(path);
  JsonRules rules;
  const auto check = [&rules](int depth, Event event, const Json& parsed) {
    rules.Take(depth, event, parsed);
    return true;
  };
  try {
    return Json::parse(file, check);
  } catch (const Json::parse_error& error) {
    throw std::runtime_error(path + ": " + Reason(error));
  } catch (const std::exception& error) {
    throw std::runtime_error(path + ": " + error.what());
  }
}

}  // namespace tarvel_backend
