#include "tools/backend/checked_json.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <stdexcept>
#include <utility>

#include "tools/terminal/messages.h"

namespace tarvel_backend {

namespace {

// Returns how many letters must be added, removed or replaced to make one string of the other.
std::size_t Distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
    }
  }
  return row.back();
}

std::string_view Nearest(std::string_view key, std::initializer_list<std::string_view> known) {
  key = key.substr(0, 100);  // The time grows with the length.
  return *std::min_element(known.begin(), known.end(), [&](auto one, auto other) {
    return Distance(key, one) < Distance(key, other);
  });
}

}  // namespace

void CheckedJson::Refuse(const std::string& wanted) const {
  throw std::runtime_error((name_.empty() ? "the file" : name_) + " must be " + wanted);
}

std::string CheckedJson::NameOfMember(const std::string& object, const std::string& key) {
  const std::string printable = tarvel_terminal::Printable(key);
  return object.empty() ? printable : object + '.' + printable;
}

std::string CheckedJson::NameOfElement(const std::string& list, std::size_t index) {
  return list + '[' + std::to_string(index) + ']';
}

const CheckedJson& CheckedJson::Object() const {
  if (!json_->is_object()) Refuse("a JSON object");
  return *this;
}

bool CheckedJson::Boolean() const {
  if (!json_->is_boolean()) Refuse("true or false");
  return json_->get<bool>();
}

std::string CheckedJson::String() const {
  if (!json_->is_string()) Refuse("a string");
  return json_->get<std::string>();
}

double CheckedJson::Number(double lowest, double highest) const {
  const double number = json_->is_number() ? json_->get<double>() : highest + 1;
  if (number < lowest || number > highest) {
    const auto text = [](double limit) { return std::to_string(std::lround(limit)); };
    Refuse("a number from " + text(lowest) + " to " + text(highest));
  }
  return number;
}

std::vector<CheckedJson> CheckedJson::Elements() const {
  if (!json_->is_array()) Refuse("a list");
  std::vector<CheckedJson> elements;
  for (std::size_t i = 0; i < json_->size(); ++i) {
    elements.push_back(CheckedJson((*json_)[i], NameOfElement(name_, i)));
  }
  return elements;
}

std::vector<std::string> CheckedJson::Strings() const {
  std::vector<std::string> strings;
  for (const CheckedJson& element : Elements()) strings.push_back(element.String());
  return strings;
}

std::vector<CheckedJson> CheckedJson::Members() const {
  Object();
  std::vector<CheckedJson> members;
  for (const auto& [key, value] : json_->items()) {
    members.push_back(CheckedJson(value, NameOfMember(name_, key), key));
  }
  return members;
}

const CheckedJson& CheckedJson::ObjectOf(std::initializer_list<std::string_view> known) const {
  for (const CheckedJson& member : Members()) {
    if (std::find(known.begin(), known.end(), member.key()) != known.end()) continue;
    throw std::runtime_error("no such member: " + member.name() + "; the nearest is \"" +
                             std::string(Nearest(member.key(), known)) + '"');
  }
  return *this;
}

std::optional<CheckedJson> CheckedJson::Find(const std::string& key) const {
  const auto found = Object().json_->find(key);
  if (found == json_->end()) return std::nullopt;
  return CheckedJson(*found, NameOfMember(name_, key), key);
}

CheckedJson CheckedJson::Get(const std::string& key) const {
  const auto found = Find(key);
  if (!found) throw std::runtime_error(NameOfMember(name_, key) + " is missing");
  return *found;
}

}  // namespace tarvel_backend
