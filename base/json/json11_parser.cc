#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "base/json/json11.h"
#include "base/json/json11_text.h"
#include "base/text/numbers.h"
#include "base/text/utf8.h"

namespace zo_base::json11 {
namespace {

// The top value has depth 0, so 201 levels pass.
constexpr int kMaxDepth = 200;
// A number of fewer characters, the sign included, becomes a 64-bit integer.
constexpr std::size_t kDoubleFromLength = 10;

// How a message shows a character.
std::string Rendered(char c) {
  const auto code = static_cast<unsigned char>(c);
  std::string text;
  if (code >= 0x20) text.append("'").append(1, c).append("' ");
  return text.append("(").append(std::to_string(code)).append(")");
}

// A function returns this after a failure; it converts to the default of any return type.
struct Failed {
  template <class T>
  operator T() const {
    return T();
  }
};

// Parses one text. Keeps the first failure; after one, every operation returns at once.
class Parser {
 public:
  Parser(std::string_view in, JsonParse strategy) : in_(in), strategy_(strategy) {}

  Json ParseDocument() {
    Json value = ParseValue(0);
    SkipGarbage();
    if (!failed_ && at_ < in_.size()) Fail("unexpected trailing " + Rendered(in_[at_]));
    return failed_ ? Json() : value;
  }

  std::string TakeError() { return std::move(error_); }

 private:
  Failed Fail(std::string error) {
    if (!failed_) error_ = std::move(error);
    failed_ = true;
    return {};
  }

  bool AtEnd() const { return at_ == in_.size(); }

  void SkipBlanks() {
    while (!AtEnd() && IsBlank(in_[at_])) ++at_;
  }

  void SkipGarbage() {
    SkipBlanks();
    if (strategy_ != COMMENTS) return;
    while (SkipComment()) SkipBlanks();
  }

  // Returns false without a comment, or after a failure.
  bool SkipComment() {
    if (failed_ || AtEnd() || in_[at_] != '/') return false;
    ++at_;
    if (AtEnd()) return Fail("unexpected end of input after start of comment");
    const char kind = in_[at_++];
    if (kind != '/' && kind != '*') return Fail("malformed comment");
    const std::string_view end = kind == '/' ? "\n" : "*/";
    const std::size_t found = in_.find(end, at_);
    const bool is_open = found == std::string_view::npos;
    if (is_open && kind == '*') return Fail("unexpected end of input inside multi-line comment");
    at_ = is_open ? in_.size() : found + end.size();
    return true;
  }

  // Returns the next character after garbage; 0 after a failure.
  char NextToken() {
    SkipGarbage();
    if (failed_) return Failed();
    if (AtEnd()) return Fail("unexpected end of input");
    return in_[at_++];
  }

  Json ParseValue(int depth) {
    if (depth > kMaxDepth) return Fail("exceeded maximum nesting depth");
    const char first = NextToken();
    if (failed_) return {};
    switch (first) {
      case 't':
        return ParseWord("true", Json(true));
      case 'f':
        return ParseWord("false", Json(false));
      case 'n':
        return ParseWord("null", Json());
      case '"':
        return Json(ParseString());
      case '{':
        return ParseObject(depth);
      case '[':
        return ParseArray(depth);
      default:
        if (first != '-' && !IsDigit(first)) return Fail("expected value, got " + Rendered(first));
        --at_;
        return ParseNumber();
    }
  }

  Json ParseWord(std::string_view word, Json value) {
    --at_;
    const std::string_view found = in_.substr(at_, word.size());
    if (found != word) {
      return Fail("parse error: expected " + std::string(word) + ", got " + std::string(found));
    }
    at_ += word.size();
    return value;
  }

  Json ParseObject(int depth) {
    Json::object members;
    char token = NextToken();
    while (!failed_ && (token != '}' || !members.empty())) {
      if (token != '"') return Fail("expected '\"' in object, got " + Rendered(token));
      std::string key = ParseString();
      token = NextToken();
      if (token != ':') return Fail("expected ':' in object, got " + Rendered(token));
      Json value = ParseValue(depth + 1);
      // Sorted keys, as our own dump writes them, go in at the end without a search.
      members.insert_or_assign(members.end(), std::move(key), std::move(value));
      token = NextToken();
      if (token == '}') break;
      if (token != ',') return Fail("expected ',' in object, got " + Rendered(token));
      token = NextToken();
    }
    return Json(std::move(members));
  }

  Json ParseArray(int depth) {
    Json::array values;
    if (NextToken() == ']') return Json(std::move(values));
    if (!failed_) --at_;
    while (!failed_) {
      values.push_back(ParseValue(depth + 1));
      const char token = NextToken();
      if (token == ']') break;
      if (token != ',') return Fail("expected ',' in list, got " + Rendered(token));
    }
    return Json(std::move(values));
  }

  // Returns the next character of a number; 0 at the end of the text.
  char Peek() const { return AtEnd() ? '\0' : in_[at_]; }

  void SkipDigits() {
    while (IsDigit(Peek())) ++at_;
  }

  Json ParseNumber() {
    const std::size_t start = at_;
    if (Peek() == '-') ++at_;
    if (Peek() == '0') {
      ++at_;
      if (IsDigit(Peek())) return Fail("leading 0s not permitted in numbers");
    } else if (IsDigit(Peek())) {
      SkipDigits();
    } else {
      return Fail("invalid " + Rendered(Peek()) + " in number");
    }

    const char next = Peek();
    if (next != '.' && next != 'e' && next != 'E' && at_ - start < kDoubleFromLength) {
      long long value = 0;
      std::from_chars(in_.data() + start, in_.data() + at_, value);
      return Json(value);
    }
    if (!SkipFraction() || !SkipExponent()) return {};
    return Json(ReadDouble(in_.substr(start, at_ - start)));
  }

  bool SkipFraction() {
    if (Peek() != '.') return true;
    ++at_;
    return SkipRequiredDigits("at least one digit required in fractional part");
  }

  bool SkipExponent() {
    if (Peek() != 'e' && Peek() != 'E') return true;
    ++at_;
    if (Peek() == '+' || Peek() == '-') ++at_;
    return SkipRequiredDigits("at least one digit required in exponent");
  }

  bool SkipRequiredDigits(const char* error) {
    if (!IsDigit(Peek())) return Fail(error);
    SkipDigits();
    return true;
  }

  // Called after the opening quote; consumes the closing one.
  std::string ParseString() {
    std::string out;
    std::uint32_t pending = kNone;  // A code point held back: it may be half of a pair.
    while (true) {
      AppendPlainRun(out, pending);
      if (AtEnd()) return Fail("unexpected end of input in string");
      const char c = in_[at_++];
      if (c == '"') {
        Flush(pending, out);
        return out;
      }
      if (c != '\\') return Fail("unescaped " + Rendered(c) + " in string");
      if (AtEnd()) return Fail("unexpected end of input in string");
      const char escape = in_[at_++];
      if (escape == 'u') {
        if (!ParseUnicodeEscape(pending, out)) return {};
      } else {
        Flush(pending, out);
        const std::size_t place = kEscapeLetters.find(escape);
        if (place == std::string_view::npos) {
          return Fail("invalid escape character " + Rendered(escape));
        }
        out += kEscapedBytes[place];
      }
    }
  }

  void AppendPlainRun(std::string& out, std::uint32_t& pending) {
    const std::size_t run = at_;
    while (!AtEnd() && in_[at_] != '"' && in_[at_] != '\\' &&
           static_cast<unsigned char>(in_[at_]) >= 0x20) {
      ++at_;
    }
    if (at_ == run) return;
    Flush(pending, out);
    out.append(in_, run, at_ - run);
  }

  bool ParseUnicodeEscape(std::uint32_t& pending, std::string& out) {
    const std::string_view digits = in_.substr(at_, 4);
    std::uint32_t code = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
    if (digits.size() != 4 || result.ptr != digits.data() + 4) {
      return Fail("bad \\u escape: " + std::string(digits));
    }
    at_ += 4;
    if (IsHighSurrogate(pending) && IsLowSurrogate(code)) {
      AppendUtf8(0x10000 + ((pending - 0xd800) << 10) + (code - 0xdc00), out);
      pending = kNone;
    } else {
      Flush(pending, out);
      pending = code;
    }
    return true;
  }

  static void Flush(std::uint32_t& pending, std::string& out) {
    if (pending != kNone) AppendUtf8(pending, out);
    pending = kNone;
  }

  static constexpr std::uint32_t kNone = ~std::uint32_t{0};  // No code point.

  const std::string_view in_;
  const JsonParse strategy_;
  std::size_t at_ = 0;
  std::string error_;
  bool failed_ = false;
};

}  // namespace

Json Json::parse(const std::string& in, std::string& error, JsonParse strategy) {
  Parser parser(in, strategy);
  Json value = parser.ParseDocument();
  error = parser.TakeError();
  return value;
}

Json Json::parse(const char* in, std::string& error, JsonParse strategy) {
  if (in == nullptr) {
    error = "null input";
    return {};
  }
  return parse(std::string(in), error, strategy);
}

}  // namespace zo_base::json11
