#include "base/json/json11.h"

#include <memory>
#include <utility>
#include <vector>

#include "base/json/json11_kinds.h"
#include "base/process/no_destructor.h"

namespace zo_base::json11 {
namespace {

// About how many destructors of containers may run inside each other: enough for an ordinary value,
// and a small part of any stack.
constexpr int kMaxNestedDestructions = 32;

// The destruction of a container with all that it alone owns.
struct Destruction {
  int depth = 0;
  std::vector<Json> postponed;  // Too deep; destroyed when the destructors have returned.
};

// The one that runs on this thread.
constinit thread_local Destruction* destruction = nullptr;

void Postpone(Json& item) { destruction->postponed.push_back(std::move(item)); }
void Postpone(Json::object::value_type& member) { Postpone(member.second); }

// Empties a container that is about to be destroyed.
template <class Container>
void TakeApart(Container& children) {
  if (!destruction) {
    Destruction outermost;
    destruction = &outermost;
    children.clear();
    while (!outermost.postponed.empty()) {
      const Json last = std::move(outermost.postponed.back());
      outermost.postponed.pop_back();
    }  // Destroys `last`, which may postpone more.
    destruction = nullptr;
    return;
  }
  if (destruction->depth == kMaxNestedDestructions) {
    for (auto& child : children) Postpone(child);
  }
  ++destruction->depth;
  children.clear();
  --destruction->depth;
}

}  // namespace

JsonArray::~JsonArray() { TakeApart(value_); }
JsonObject::~JsonObject() { TakeApart(value_); }

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
Json::Json(const std::string& value) : Json(std::string(value)) {}
Json::Json(std::string&& value) : payload_(std::make_shared<JsonString>(std::move(value))) {}
Json::Json(const char* value) : Json(value ? Json(std::string(value)) : Json()) {}
Json::Json(const array& values) : Json(array(values)) {}
Json::Json(array&& values) : payload_(std::make_shared<JsonArray>(std::move(values))) {}
Json::Json(const object& members) : Json(object(members)) {}
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
