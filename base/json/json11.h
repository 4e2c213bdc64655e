#pragma once

#include <compare>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace zo_base::json11 {

class JsonValue;

enum JsonParse {
  STANDARD = 0,
  COMMENTS = 1,  // "//" to the end of the line and "/*" to "*/" count as blanks.
};

// An immutable JSON value for wire answers and small JSON texts. Copies share one payload.
//
// Parsing never raises. Reading a value as another kind returns a neutral default: 0, false, or an
// empty string, array, object or null value. There are doubles and two kinds of integers; the
// parser makes a 64-bit integer of fewer than ten characters, the sign included, and a double of
// any other number. All numbers compare as doubles.
//
// Strings hold any bytes, NUL and invalid UTF-8 included, and pass unchanged through parse and dump
// but for the escapes of JSON.
//
// Threads: any number may read a value. References from readers live as long as a value that shares
// the payload.
// Depth: a parsed value has at most 201 levels. A deeper one that was built by hand can be copied
// and destroyed; dumping and comparing it takes stack for each level.
class Json final {
 public:
  enum Type { NUL = 0, NUMBER = 1, BOOL = 2, STRING = 3, ARRAY = 4, OBJECT = 5 };
  using array = std::vector<Json>;
  using object = std::map<std::string, Json>;

  Json() noexcept = default;
  Json(std::nullptr_t) noexcept {}
  Json(int value);
  Json(long long value);
  Json(double value);
  Json(bool value);
  Json(const std::string& value);
  Json(std::string&& value);
  Json(const char* value);  // Null gives a null value.
  Json(const array& values);
  Json(array&& values);
  Json(const object& members);
  Json(object&& members);
  Json(const void*) = delete;  // A pointer is no boolean.

  Type type() const;
  bool is_null() const { return type() == NUL; }
  bool is_number() const { return type() == NUMBER; }
  bool is_string() const { return type() == STRING; }
  bool is_array() const { return type() == ARRAY; }
  bool is_object() const { return type() == OBJECT; }

  double number_value() const;
  // Of a double see SaturatedCast; of a 64-bit integer its low 32 bits.
  int int_value() const;
  // 0 for a double and a 32-bit integer, even if it would fit. Read long integers by number_value.
  long long int64_value() const;
  bool bool_value() const;
  const std::string& string_value() const;
  const array& array_items() const;
  const object& object_items() const;
  const Json& operator[](std::size_t index) const;       // Null past the end.
  const Json& operator[](const std::string& key) const;  // Null when missing.

  // The JSON text. A blank follows each comma and colon, members stand in the order of their keys'
  // bytes, and a number that is not finite is "null". The same in every locale.
  void dump(std::string& out) const;  // Appends.
  std::string dump() const;

  // Returns a null value and the first error on failure, an empty `error` on success. Takes linear
  // time.
  static Json parse(const std::string& in, std::string& error, JsonParse strategy = STANDARD);
  static Json parse(const char* in, std::string& error, JsonParse strategy = STANDARD);

  // Different kinds order by Type.
  bool operator==(const Json& other) const;
  bool operator<(const Json& other) const;
  // For the containers: by `<` alone they would compare each pair twice at each level.
  std::weak_ordering operator<=>(const Json& other) const;

 private:
  friend class JsonPayloads;

  const JsonValue& payload() const;

  std::shared_ptr<const JsonValue> payload_;  // Without one this is a null value.
};

// Lists of strings in JSON. What is no string reads as an empty one.
std::vector<std::string> TextsOf(const Json& list);
inline Json ToJson(const std::vector<std::string>& texts) {
  return Json::array(texts.begin(), texts.end());
}

}  // namespace zo_base::json11
