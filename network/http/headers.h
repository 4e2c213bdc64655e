#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace WQBASE::network {

// The headers of one message, in order. A plain value. Names are compared without regard to case.
class Headers {
 public:
  using Header = std::pair<std::string, std::string>;  // Name, value.

  Headers() = default;
  Headers(std::initializer_list<Header> headers) : headers_(headers) {}

  // Splits each line at its colons: the first piece is the name, the last one the value. Drops
  // lines of fewer pieces.
  static Headers FromLines(const std::vector<std::string>& lines);
  // Lines of name, ":" and value, joined by "\r\n".
  std::string ToText() const;

  auto begin() const { return headers_.begin(); }
  auto end() const { return headers_.end(); }

  bool Has(std::string_view name) const;
  // The first value of this name that isn't empty, or null.
  const std::string* ValueOf(std::string_view name) const;
  void Add(std::string name, std::string value);
  // Replaces the value of the first header of this name, or adds one.
  void Set(std::string_view name, std::string value);
  void Remove(std::string_view name);
  void clear() { headers_.clear(); }

  // Adds a header line of an answer; a folded line continues the header before it. Returns the
  // value in the line, which is empty when the line adds nothing.
  std::string_view AddLine(std::string_view line);
  const Header& back() const { return headers_.back(); }

  // The headers that may be sent, each name once, with its last value. Drops and logs those that
  // would break the message: a name that is no token, a value with CR, LF or NUL, and the length of
  // the body, which the transport sets.
  Headers Sendable() const;

 private:
  std::vector<Header> headers_;
};

}  // namespace WQBASE::network
