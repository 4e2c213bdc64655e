#include <charconv>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "base/json/json11_kinds.h"
#include "base/json/json11_text.h"
#include "base/text/numbers.h"
#include "base/text/utf8.h"

namespace zo_base::json11 {
namespace {

// The top value has depth 0, so 201 levels pass.
constexpr int kMaxDepth = 200;
// A value takes a hundred bytes and more of memory, and as little as three of a hostile text.
constexpr std::size_t kMaxValues = 300'000;
// A number of fewer characters, the sign included, becomes a 64-bit integer.
constexpr std::ptrdiff_t kDoubleFromLength = 10;

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

// Parses one text, which outlives it. Keeps the first failure, and skips all text after it, so that
// every loop ends.
class Parser {
 public:
  Parser(const std::string& in, JsonParse strategy)
      : end_(in.data() + in.size()), strategy_(strategy), at_(in.data()) {}

  Json ParseDocument() {
    Json value = ParseValue(0);
    SkipGarbage();
    if (!AtEnd()) FailOn("unexpected trailing ", *at_);
    return failed_ ? Json() : value;
  }

  std::string TakeError() { return std::move(error_); }

 private:
  [[gnu::cold, gnu::noinline]] Failed Fail(std::string_view error) {
    if (!failed_) error_ = error;
    failed_ = true;
    at_ = end_;
    return {};
  }

  [[gnu::cold, gnu::noinline]] Failed FailOn(std::string_view before, char c,
                                             std::string_view after = {}) {
    return Fail(std::string(before).append(Rendered(c)).append(after));
  }

  bool AtEnd() const { return at_ == end_; }

  // The text from here on, cut to `size`.
  std::string_view Ahead(std::size_t size = std::string_view::npos) const {
    return std::string_view(at_, end_).substr(0, size);
  }

  void SkipGarbage() {
    do {
      while (IsBlank(*at_)) ++at_;
    } while (strategy_ == COMMENTS && SkipComment());
  }

  // Returns false without a comment, or after a failure.
  bool SkipComment() {
    if (*at_ != '/') return false;
    ++at_;
    if (AtEnd()) return Fail("unexpected end of input after start of comment");
    const char kind = *at_++;
    if (kind != '/' && kind != '*') return Fail("malformed comment");
    const std::string_view end = kind == '/' ? "\n" : "*/";
    const std::size_t found = Ahead().find(end);
    const bool is_open = found == std::string_view::npos;
    if (is_open && kind == '*') return Fail("unexpected end of input inside multi-line comment");
    at_ = is_open ? end_ : at_ + found + end.size();
    return true;
  }

  // Returns the next character after garbage; 0 after a failure.
  char NextToken() {
    SkipGarbage();
    if (AtEnd()) return Fail("unexpected end of input");
    return *at_++;
  }

  Json ParseValue(int depth) {
    if (depth > kMaxDepth) return Fail("exceeded maximum nesting depth");
    if (++values_ > kMaxValues) return Fail("exceeded maximum number of values");
    const char first = NextToken();
    switch (first) {
      case 't':
        return ParseWord("true", Json(true));
      case 'f':
        return ParseWord("false", Json(false));
      case 'n':
        return ParseWord("null", Json());
      case '"':
        return Json(std::string(ParseString()));
      case '{':
        return ParseObject(depth);
      case '[':
        return ParseArray(depth);
      default:
        if (first != '-' && !IsDigit(first)) return FailOn("expected value, got ", first);
        --at_;
        return ParseNumber();
    }
  }

  Json ParseWord(std::string_view word, Json value) {
    --at_;
    const std::string_view found = Ahead(word.size());
    if (found != word) {
      return Fail(
          std::string("parse error: expected ").append(word).append(", got ").append(found));
    }
    at_ += word.size();
    return value;
  }

  Json ParseObject(int depth) {
    char token = NextToken();
    if (token == '}') return Json(Json::object());
    Json::object members;
    while (true) {
      if (token != '"') return FailOn("expected '\"' in object, got ", token);
      // Sorted keys, as our own dump writes them, go in at the end without a search.
      Json& value = members.emplace_hint(members.end(), ParseString(), nullptr)->second;
      token = NextToken();
      if (token != ':') return FailOn("expected ':' in object, got ", token);
      value = ParseValue(depth + 1);
      token = NextToken();
      if (token == '}') return Json(std::move(members));
      if (token != ',') return FailOn("expected ',' in object, got ", token);
      token = NextToken();
    }
  }

  Json ParseArray(int depth) {
    if (NextToken() == ']') return Json(Json::array());
    if (failed_) return {};
    --at_;
    const std::size_t first = open_items_.size();
    char token = ',';
    while (token == ',') {
      open_items_.push_back(ParseValue(depth + 1));
      token = NextToken();
    }
    if (token != ']') return FailOn("expected ',' in list, got ", token);
    const auto begin = open_items_.begin() + static_cast<std::ptrdiff_t>(first);
    Json::array items(std::make_move_iterator(begin), std::make_move_iterator(open_items_.end()));
    open_items_.resize(first);
    return Json(std::move(items));
  }

  void SkipDigits() {
    while (IsDigit(*at_)) ++at_;
  }

  Json ParseNumber() {
    const char* const start = at_;
    if (*at_ == '-') ++at_;
    if (!IsDigit(*at_)) return FailOn("invalid ", *at_, " in number");
    const char first = *at_++;
    if (first == '0' && IsDigit(*at_)) return Fail("leading 0s not permitted in numbers");
    SkipDigits();

    const char next = *at_;
    if (next != '.' && next != 'e' && next != 'E' && at_ - start < kDoubleFromLength) {
      long long value = 0;
      std::from_chars(start, at_, value);
      return integers_.Make(value);
    }
    SkipFraction();
    SkipExponent();
    if (failed_) return {};
    return doubles_.Make(ReadDouble(std::string_view(start, at_)));
  }

  void SkipFraction() {
    if (*at_ != '.') return;
    ++at_;
    SkipRequiredDigits("at least one digit required in fractional part");
  }

  void SkipExponent() {
    if (*at_ != 'e' && *at_ != 'E') return;
    ++at_;
    if (*at_ == '+' || *at_ == '-') ++at_;
    SkipRequiredDigits("at least one digit required in exponent");
  }

  void SkipRequiredDigits(const char* error) {
    if (!IsDigit(*at_)) Fail(error);
    SkipDigits();
  }

  // Called after the opening quote; consumes the closing one. The result lives until the next call.
  std::string_view ParseString() {
    const std::string_view run = TakePlainRun();
    if (*at_ != '"') return DecodeString(run);
    ++at_;
    return run;
  }

  std::string_view TakePlainRun() {
    const char* const start = at_;
    const char* at = start;
    while (IsPlain(*at)) ++at;
    at_ = at;
    return std::string_view(start, at);
  }

  // Called behind the first run of plain bytes.
  std::string_view DecodeString(std::string_view first_run) {
    decoded_ = first_run;
    while (*at_ == '\\') {
      ++at_;
      if (!AtEnd()) DecodeEscape(*at_++);
      decoded_ += TakePlainRun();
    }
    if (AtEnd()) return Fail("unexpected end of input in string");
    const char c = *at_++;
    if (c != '"') return FailOn("unescaped ", c, " in string");
    return decoded_;
  }

  void DecodeEscape(char letter) {
    if (letter == 'u') return DecodeUnicodeEscape();
    const std::size_t place = kEscapeLetters.find(letter);
    if (place == std::string_view::npos) {
      return void(FailOn("invalid escape character ", letter));
    }
    decoded_ += kEscapedBytes[place];
  }

  void DecodeUnicodeEscape() {
    std::uint32_t code = ParseHexDigits();
    while (IsHighSurrogate(code) && Ahead(2) == "\\u") {
      at_ += 2;
      const std::uint32_t next = ParseHexDigits();
      if (IsLowSurrogate(next)) {
        code = 0x10000 + ((code - 0xd800) << 10) + (next - 0xdc00);
      } else {
        AppendUtf8(code, decoded_);
        code = next;
      }
    }
    AppendUtf8(code, decoded_);
  }

  std::uint32_t ParseHexDigits() {
    const std::string_view digits = Ahead(4);
    std::uint32_t code = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
    if (digits.size() != 4 || result.ptr != digits.data() + 4) {
      return Fail(std::string("bad \\u escape: ").append(digits));
    }
    at_ += 4;
    return code;
  }

  const char* const end_;  // Points to the NUL behind the text, so reading there is safe.
  const JsonParse strategy_;
  const char* at_;
  bool failed_ = false;
  std::string error_;
  std::string decoded_;
  NumberBlocks<JsonInt64> integers_;
  NumberBlocks<JsonDouble> doubles_;
  std::size_t values_ = 0;  // Begun so far.
  Json::array open_items_;  // The items of the arrays that haven't ended, innermost array last.
};

}  // namespace

Json Json::parse(const std::string& in, std::string& error, JsonParse strategy) {
  Parser parser(in, strategy);
  Json value = parser.ParseDocument();
  error = parser.TakeError();
  return value;
}

Json Json::parse(const char* in, std::string& error, JsonParse strategy) {
  if (in) return parse(std::string(in), error, strategy);
  error = "null input";
  return {};
}

}  // namespace zo_base::json11
