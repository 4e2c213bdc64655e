#pragma once

#include <compare>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "base/json/json11.h"

namespace zo_base::json11 {

class DumpBuffer;

// The payload of a Json. This base returns the neutral defaults; each kind overrides its own
// readers, and only those: int64_value is overridden by JsonInt64 alone.
class JsonValue {
 public:
  virtual ~JsonValue() = default;
  virtual Json::Type type() const = 0;
  virtual bool equals(const JsonValue& other) const = 0;  // `other` is of the same type.
  virtual bool less(const JsonValue& other) const = 0;    // Likewise.
  virtual void dump(DumpBuffer& out) const = 0;
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
  virtual std::size_t likely_dump_size() const { return 8; }             // As of a number.
};

// The way from a Json to its payload and back, and the payloads that all values share.
class JsonPayloads {
 public:
  static const JsonValue& Of(const Json& json) { return json.payload(); }
  static Json Wrap(std::shared_ptr<const JsonValue> payload) {
    Json json;
    json.payload_ = std::move(payload);
    return json;
  }

  static const JsonValue& Null();
  static const std::shared_ptr<const JsonValue>& Boolean(bool value);
  static const Json& NullJson();
};

}  // namespace zo_base::json11
