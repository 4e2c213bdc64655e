#pragma once

#include <compare>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "base/json/json11.h"

namespace zo_base::json11 {

// The payload of a Json. This base returns the neutral defaults; each kind overrides its own
// readers, and only those: int64_value is overridden by JsonInt64 alone.
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

// The payloads that all values share.
class JsonPayloads {
 public:
  static const JsonValue& Null();
  static const std::shared_ptr<const JsonValue>& Boolean(bool value);
  static const Json& NullJson();

  // Empties a container that is about to be destroyed, without recursion, however deep it is.
  static void TakeApart(Json::array& values);
  static void TakeApart(Json::object& members);

 private:
  template <class MoveChildren>
  static void TakeApartBy(MoveChildren move_children);
  static void MoveOut(Json& value);
};

// Estimates the length of the text. Reserving it at once is cheaper than growing.
std::size_t LikelyDumpSize(const Json& value);

// The letter after a backslash means the byte at the same index. "/" needs no escape.
inline constexpr std::string_view kEscapeLetters = "\"\\bfnrt/";
inline constexpr std::string_view kEscapedBytes = "\"\\\b\f\n\r\t/";

// Appends the text of one kind.
void DumpNumber(double value, std::string& out);
void DumpNumber(long long value, std::string& out);
void DumpString(const std::string& value, std::string& out);

}  // namespace zo_base::json11
