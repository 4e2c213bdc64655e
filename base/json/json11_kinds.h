#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "base/json/json11_value.h"
#include "base/text/numbers.h"

namespace zo_base::json11 {

// NaN counts as equivalent to every number.
inline std::weak_ordering Weak(std::partial_ordering order) {
  if (order < 0) return std::weak_ordering::less;
  return order > 0 ? std::weak_ordering::greater : std::weak_ordering::equivalent;
}

// Keeps one T of one kind.
template <Json::Type kType, class T>
class Value : public JsonValue {
 public:
  explicit Value(T value = {}) : value_(std::move(value)) {}

  Json::Type type() const override { return kType; }
  bool equals(const JsonValue& other) const override {
    return value_ == static_cast<const Value&>(other).value_;
  }
  bool less(const JsonValue& other) const override { return compare(other) < 0; }
  std::weak_ordering compare(const JsonValue& other) const override {
    return Weak(value_ <=> static_cast<const Value&>(other).value_);
  }

 protected:
  T value_;
};

struct NullStruct {
  auto operator<=>(const NullStruct&) const = default;
};

class JsonNull final : public Value<Json::NUL, NullStruct> {
 public:
  void dump(DumpBuffer& out) const override;
};

class JsonBoolean final : public Value<Json::BOOL, bool> {
 public:
  using Value::Value;
  bool bool_value() const override { return value_; }
  void dump(DumpBuffer& out) const override;
};

// The three kinds of number compare with each other, as doubles.
template <class T>
class JsonNumber : public Value<Json::NUMBER, T> {
 public:
  using Value<Json::NUMBER, T>::Value;
  double number_value() const override { return static_cast<double>(this->value_); }
  bool equals(const JsonValue& other) const override {
    return number_value() == other.number_value();
  }
  std::weak_ordering compare(const JsonValue& other) const override {
    return Weak(number_value() <=> other.number_value());
  }
};

class JsonDouble final : public JsonNumber<double> {
 public:
  using JsonNumber::JsonNumber;
  int int_value() const override { return SaturatedCast<int>(value_); }
  void dump(DumpBuffer& out) const override;
};

class JsonInt final : public JsonNumber<int> {
 public:
  using JsonNumber::JsonNumber;
  int int_value() const override { return value_; }
  void dump(DumpBuffer& out) const override;
};

class JsonInt64 final : public JsonNumber<long long> {
 public:
  using JsonNumber::JsonNumber;
  int int_value() const override { return static_cast<int>(value_); }
  long long int64_value() const override { return value_; }
  void dump(DumpBuffer& out) const override;
};

// Makes the payloads of numbers in blocks, since an allocation costs more than all else that a
// number needs. A block lives as long as one of its numbers is in use. Serves one thread.
template <class Number>
class NumberBlocks {
 public:
  template <class T>
  Json Make(T value) {
    if (next_ == kSize) block_ = std::make_shared<std::array<Number, kSize>>();
    next_ %= kSize;
    Number& number = (*block_)[next_++];
    number = Number(value);
    return JsonPayloads::Wrap({block_, &number});
  }

 private:
  static constexpr std::size_t kSize = 8;

  std::shared_ptr<std::array<Number, kSize>> block_;
  std::size_t next_ = kSize;
};

class JsonString final : public Value<Json::STRING, std::string> {
 public:
  using Value::Value;
  const std::string& string_value() const override { return value_; }
  std::size_t likely_dump_size() const override;
  void dump(DumpBuffer& out) const override;
};

class JsonArray final : public Value<Json::ARRAY, Json::array> {
 public:
  using Value::Value;
  ~JsonArray() override;
  const Json::array& array_items() const override { return value_; }
  const Json& operator[](std::size_t index) const override {
    return index < value_.size() ? value_[index] : JsonPayloads::NullJson();
  }
  std::size_t likely_dump_size() const override;
  void dump(DumpBuffer& out) const override;
};

class JsonObject final : public Value<Json::OBJECT, Json::object> {
 public:
  using Value::Value;
  ~JsonObject() override;
  const Json::object& object_items() const override { return value_; }
  const Json& operator[](const std::string& key) const override {
    const auto member = value_.find(key);
    return member == value_.end() ? JsonPayloads::NullJson() : member->second;
  }
  std::size_t likely_dump_size() const override;
  void dump(DumpBuffer& out) const override;
};

}  // namespace zo_base::json11
