#pragma once

#include <cstddef>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarvel_backend {

using Json = nlohmann::ordered_json;

// A value of a JSON file and its full name, such as "faults./lbs/conf.jsp.status". Whatever is
// wrong with the value is reported under that name, by std::runtime_error. In names, control bytes
// are escaped.
//
// Threads: any. Ownership: the file outlives it.
class CheckedJson {
 public:
  explicit CheckedJson(const Json& file) : CheckedJson(file, "") {}

  // These return the full name of a part of a value whose full name is given.
  static std::string NameOfMember(const std::string& object, const std::string& key);
  static std::string NameOfElement(const std::string& list, std::size_t index);

  const Json& json() const { return *json_; }
  const std::string& name() const { return name_; }
  const std::string& key() const { return key_; }  // The last part of the name.

  // These throw unless the value has the type.
  const CheckedJson& Object() const;
  bool Boolean() const;
  std::string String() const;
  double Number(double lowest, double highest) const;
  std::vector<std::string> Strings() const;  // Of a list.
  std::vector<CheckedJson> Elements() const;
  std::vector<CheckedJson> Members() const;

  // Throws unless this is an object whose members are all known.
  const CheckedJson& ObjectOf(std::initializer_list<std::string_view> known) const;
  // Throws unless this is an object. Returns nullopt when it has no such member.
  std::optional<CheckedJson> Find(const std::string& key) const;
  // Throws for a missing member too.
  CheckedJson Get(const std::string& key) const;

  // Throws "NAME must be WANTED".
  [[noreturn]] void Refuse(const std::string& wanted) const;

 private:
  CheckedJson(const Json& json, std::string name, std::string key = "")
      : json_(&json), name_(std::move(name)), key_(std::move(key)) {}

  const Json* json_;
  std::string name_;
  std::string key_;
};

}  // namespace tarvel_backend
