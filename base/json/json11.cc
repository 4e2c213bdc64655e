#include "base/json/json11.h"

#include <string_view>
#include <utility>

#include "base/json/json11_value.h"
#include "base/process/no_destructor.h"
#include "base/text/numbers.h"

namespace zo_base::json11 {
namespace {

// NaN counts as equivalent to every number.
std::weak_ordering Weak(std::partial_ordering order) {
  if (order < 0) return std::weak_ordering::less;
  return order > 0 ? std::weak_ordering::greater : std::weak_ordering::equivalent;
}

// Keeps one T of one kind.
template <Json::Type kType, class T>
class Value : public JsonValue {
 public:
  Json::Type type() const override { return kType; }
  bool equals(const JsonValue& other) const override {
    return value_ == static_cast<const Value&>(other).value_;
  }
  bool less(const JsonValue& other) const override { return compare(other) < 0; }
  std::weak_ordering compare(const JsonValue& other) const override {
    return Weak(value_ <=> static_cast<const Value&>(other).value_);
  }

  T value_;

 protected:
  explicit Value(T value) : value_(std::move(value)) {}
};

struct NullStruct {
  auto operator<=>(const NullStruct&) const = default;
};

class JsonNull final : public Value<Json::NUL, NullStruct> {
 public:
  JsonNull() : Value({}) {}
  void dump(std::string& out) const override { out += "null"; }
};

class JsonBoolean final : public Value<Json::BOOL, bool> {
 public:
  explicit JsonBoolean(bool value) : Value(value) {}
  bool bool_value() const override { return value_; }
  void dump(std::string& out) const override { out += value_ ? "true" : "false"; }
};

// The three kinds of number compare with each other, as doubles.
template <class T>
class JsonNumber : public Value<Json::NUMBER, T> {
 public:
  double number_value() const override { return static_cast<double>(this->value_); }
  bool equals(const JsonValue& other) const override {
    return number_value() == other.number_value();
  }
  std::weak_ordering compare(const JsonValue& other) const override {
    return Weak(number_value() <=> other.number_value());
  }

 protected:
  using Value<Json::NUMBER, T>::Value;
};

class JsonDouble final : public JsonNumber<double> {
 public:
  explicit JsonDouble(double value) : JsonNumber(value) {}
  int int_value() const override { return SaturatedCast<int>(value_); }
  void dump(std::string& out) const override { DumpNumber(value_, out); }
};

class JsonInt final : public JsonNumber<int> {
 public:
  explicit JsonInt(int value) : JsonNumber(value) {}
  int int_value() const override { return value_; }
  void dump(std::string& out) const override { DumpNumber(static_cast<long long>(value_), out); }
};

class JsonInt64 final : public JsonNumber<long long> {
 public:
  explicit JsonInt64(long long value) : JsonNumber(value) {}
  int int_value() const override { return static_cast<int>(value_); }
  long long int64_value() const override { return value_; }
  void dump(std::string& out) const override { DumpNumber(value_, out); }
};

class JsonString final : public Value<Json::STRING, std::string> {
 public:
  explicit JsonString(std::string value) : Value(std::move(value)) {}
  const std::string& string_value() const override { return value_; }
  void dump(std::string& out) const override { DumpString(value_, out); }
};

class JsonArray final : public Value<Json::ARRAY, Json::array> {
 public:
  explicit JsonArray(Json::array values) : Value(std::move(values)) {}
  ~JsonArray() override { JsonPayloads::TakeApart(value_); }
  const Json::array& array_items() const override { return value_; }
  const Json& operator[](std::size_t index) const override {
    return index < value_.size() ? value_[index] : JsonPayloads::NullJson();
  }
  void dump(std::string& out) const override {
    std::string_view separator = "[";
    for (const Json& value : value_) {
      out += separator;
      value.dump(out);
      separator = ", ";
    }
    out += value_.empty() ? "[]" : "]";
  }
};

class JsonObject final : public Value<Json::OBJECT, Json::object> {
 public:
  explicit JsonObject(Json::object members) : Value(std::move(members)) {}
  ~JsonObject() override { JsonPayloads::TakeApart(value_); }
  const Json::object& object_items() const override { return value_; }
  const Json& operator[](const std::string& key) const override {
    const auto member = value_.find(key);
    return member == value_.end() ? JsonPayloads::NullJson() : member->second;
  }
  void dump(std::string& out) const override {
    std::string_view separator = "{";
    for (const auto& [key, value] : value_) {
      out += separator;
      DumpString(key, out);
      out += ": ";
      value.dump(out);
      separator = ", ";
    }
    out += value_.empty() ? "{}" : "}";
  }
};

}  // namespace

// Statics are never destroyed: values may outlive the exit handlers of the process.

const JsonValue& JsonPayloads::Null() {
  static NoDestructor<JsonNull> payload;
  return *payload;
}

const std::shared_ptr<const JsonValue>& JsonPayloads::Boolean(bool value) {
  // Without an owner, so that no allocation is left when the image is unloaded.
  static NoDestructor<JsonBoolean> yes(true);
  static NoDestructor<JsonBoolean> no(false);
  using Shared = std::shared_ptr<const JsonValue>;
  static NoDestructor<Shared> shared_yes(Shared(), &*yes);
  static NoDestructor<Shared> shared_no(Shared(), &*no);
  return value ? *shared_yes : *shared_no;
}

const Json& JsonPayloads::NullJson() {
  static NoDestructor<Json> json;
  return *json;
}

// The children of the containers that are being destroyed on this thread. Each container moves its
// children here in its destructor, when no other value can share it.
thread_local std::vector<Json>* dying_children = nullptr;

void JsonPayloads::MoveOut(Json& value) {
  const Json::Type type = value.type();
  if (type == Json::ARRAY || type == Json::OBJECT) dying_children->push_back(std::move(value));
}

template <class MoveChildren>
void JsonPayloads::TakeApartBy(MoveChildren move_children) {
  if (dying_children) return move_children();
  std::vector<Json> pending;
  dying_children = &pending;
  move_children();
  while (!pending.empty()) {
    const Json last = std::move(pending.back());
    pending.pop_back();
  }  // Destroys `last`, which moves its children here unless another value shares it.
  dying_children = nullptr;
}

void JsonPayloads::TakeApart(Json::array& values) {
  TakeApartBy([&values] {
    for (Json& value : values) MoveOut(value);
  });
}

void JsonPayloads::TakeApart(Json::object& members) {
  TakeApartBy([&members] {
    for (auto& member : members) MoveOut(member.second);
  });
}

const std::string& JsonValue::string_value() const {
  static NoDestructor<std::string> empty;
  return *empty;
}

const Json::array& JsonValue::array_items() const {
  static NoDestructor<Json::array> empty;
  return *empty;
}

const Json::object& JsonValue::object_items() const {
  static NoDestructor<Json::object> empty;
  return *empty;
}

// Makes every shared payload while the image is loaded. Otherwise a child that is forked while
// another thread makes one would wait for it forever.
[[maybe_unused]] const bool made = [] {
  const JsonNull null;
  JsonPayloads::Null();
  JsonPayloads::Boolean(true);
  JsonPayloads::NullJson();
  null.string_value();
  null.array_items();
  null.object_items();
  return true;
}();

const Json& JsonValue::operator[](std::size_t) const { return JsonPayloads::NullJson(); }
const Json& JsonValue::operator[](const std::string&) const { return JsonPayloads::NullJson(); }

Json::Json(int value) : payload_(std::make_shared<JsonInt>(value)) {}
Json::Json(long long value) : payload_(std::make_shared<JsonInt64>(value)) {}
Json::Json(double value) : payload_(std::make_shared<JsonDouble>(value)) {}
Json::Json(bool value) : payload_(JsonPayloads::Boolean(value)) {}
Json::Json(const std::string& value) : payload_(std::make_shared<JsonString>(value)) {}
Json::Json(std::string&& value) : payload_(std::make_shared<JsonString>(std::move(value))) {}
Json::Json(const char* value) : payload_(value ? std::make_shared<JsonString>(value) : nullptr) {}
Json::Json(const array& values) : payload_(std::make_shared<JsonArray>(values)) {}
Json::Json(array&& values) : payload_(std::make_shared<JsonArray>(std::move(values))) {}
Json::Json(const object& members) : payload_(std::make_shared<JsonObject>(members)) {}
Json::Json(object&& members) : payload_(std::make_shared<JsonObject>(std::move(members))) {}

const JsonValue& Json::payload() const { return payload_ ? *payload_ : JsonPayloads::Null(); }

Json::Type Json::type() const { return payload().type(); }
double Json::number_value() const { return payload().number_value(); }
int Json::int_value() const { return payload().int_value(); }
long long Json::int64_value() const { return payload().int64_value(); }
bool Json::bool_value() const { return payload().bool_value(); }
const std::string& Json::string_value() const { return payload().string_value(); }
const Json::array& Json::array_items() const { return payload().array_items(); }
const Json::object& Json::object_items() const { return payload().object_items(); }
const Json& Json::operator[](std::size_t index) const { return payload()[index]; }
const Json& Json::operator[](const std::string& key) const { return payload()[key]; }

std::vector<std::string> TextsOf(const Json& list) {
  std::vector<std::string> texts;
  for (const Json& item : list.array_items()) texts.push_back(item.string_value());
  return texts;
}

void Json::dump(std::string& out) const { payload().dump(out); }

std::string Json::dump() const {
  std::string out;
  out.reserve(LikelyDumpSize(*this));
  dump(out);
  return out;
}

bool Json::operator==(const Json& other) const {
  if (payload_ == other.payload_) return true;
  return type() == other.type() && payload().equals(other.payload());
}

bool Json::operator<(const Json& other) const {
  if (payload_ == other.payload_) return false;
  if (type() != other.type()) return type() < other.type();
  return payload().less(other.payload());
}

std::weak_ordering Json::operator<=>(const Json& other) const {
  if (payload_ == other.payload_) return std::weak_ordering::equivalent;
  if (type() != other.type()) return type() <=> other.type();
  return payload().compare(other.payload());
}

}  // namespace zo_base::json11
