#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace WQBASE::network {

// The headers of one message, in order. A plain value. Names compare without regard to case.
class Headers {
 public:
  using Header = std::pair<std::string, std::string>;  // Name, value.

  Headers() = default;
  Headers(std::initializer_list<Header> headers) : headers_(headers) {}

  // Of each line the name is what stands before the first colon, the value what stands behind the
  // last. A line without both is left out.
  static Headers FromLines(const std::vector<std::string>& lines);
  // Lines of name, ":" and value, joined by "\r\n".
  std::string ToText() const;

  auto begin() const { return headers_.begin(); }
  auto end() const { return headers_.end(); }
  bool empty() const { return headers_.empty(); }
  std::size_t size() const { return headers_.size(); }

  bool Has(std::string_view name) const { return Find(name) != headers_.end(); }
  // The value of the first header of this name that has one; null when there is none.
  const std::string* ValueOf(std::string_view name) const;
  void Add(std::string name, std::string value);
  // Replaces the first header of this name, or adds one.
  void Set(std::string_view name, std::string value);
  void Remove(std::string_view name);
  void clear() { headers_.clear(); }

  // Adds a line of an answer's head, or appends it to the last header when it continues that one.
  // Returns the value in the line; empty for a line that adds nothing.
  std::string_view AddLine(std::string_view line);
  const Header& back() const { return headers_.back(); }

  // Those that may go out, each name once, with its last value. Left out, with a log line each, are
  // those that would break the message: a name that is no token, a value with CR, LF or NUL, and
  // the lengths, which are the transport's business.
  Headers Sendable() const;

  bool operator==(const Headers&) const = default;

 private:
  std::vector<Header>::const_iterator Find(std::string_view name) const;

  std::vector<Header> headers_;
};

}  // namespace WQBASE::network
