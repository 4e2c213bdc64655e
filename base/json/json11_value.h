#pragma once

#include <compare>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "base/json/json11.h"

namespace zo_base::json11 {

// The payload of a Json. The base answers the neutral defaults; each kind overrides what it is.
// The table of overrides is exact: int64_value stands on JsonInt64 only.
class JsonValue {
 public:
  virtual ~JsonValue() = default;
  virtual Json::Type type() const = 0;
  virtual bool equals(const JsonValue& other) const = 0;  // `other` is of the same type.
  virtual bool less(const JsonValue& other) const = 0;    // Likewise.
  virtual void dump(std::string& out) const = 0;
  virtual double number_value() const { return 0; }
  virtual int int_value() const { return 0; }
  virtual long long int64_value() const { return 0; }
  virtual bool bool_value() const { return false; }
  virtual const std::string& string_value() const;
  virtual const Json::array& array_items() const;
  virtual const Json& operator[](std::size_t index) const;
  virtual const Json::object& object_items() const;
  virtual const Json& operator[](const std::string& key) const;
  virtual std::weak_ordering compare(const JsonValue& other) const = 0;  // As with less.
};

// Makes payloads; what is the same everywhere is shared.
class JsonPayloads {
 public:
  static const JsonValue& Null();
  static const std::shared_ptr<const JsonValue>& Boolean(bool value);
  static const Json& NullJson();

  // Empties a container that is about to die without recursion, however deep it is.
  static void TakeApart(Json::array& values);
  static void TakeApart(Json::object& members);

 private:
  template <class MoveChildren>
  static void TakeApartBy(MoveChildren move_children);
  static void MoveOut(Json& value);
};

// About how long the text will be. Making room at once is cheaper than growing with a long text.
std::size_t LikelyDumpSize(const Json& value);

// Behind a backslash, a letter stands for the byte at the same place. "/" may also stand plain.
inline constexpr std::string_view kEscapeLetters = "\"\\bfnrt/";
inline constexpr std::string_view kEscapedBytes = "\"\\\b\f\n\r\t/";

// Appends the text of one kind.
void DumpNumber(double value, std::string& out);
void DumpNumber(long long value, std::string& out);
void DumpString(const std::string& value, std::string& out);

}  // namespace zo_base::json11
