#include "base/file/cached_key_value_file.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <numeric>
#include <optional>
#include <utility>

#include "base/file/whole_file.h"
#include "base/log/log.h"

namespace zo_base {
namespace {

using nlohmann::json;

// How many more bytes a character takes in the file: one if it has a short form, such as \n; five
// for other control characters.
constexpr std::size_t EscapeLength(char c) {
  if (c == '"' || c == '\\') return 1;
  if (static_cast<unsigned char>(c) >= 0x20) return 0;
  return c == '\b' || c == '\t' || c == '\n' || c == '\f' || c == '\r' ? 1 : 5;
}

std::size_t LengthInFile(std::string_view text) {
  return std::accumulate(text.begin(), text.end(), text.size(),
                         [](std::size_t length, char c) { return length + EscapeLength(c); });
}

// With four quotes, a colon and a comma.
std::size_t LengthInFile(std::string_view key, std::string_view value) {
  return LengthInFile(key) + LengthInFile(value) + 6;
}

// With two braces, and without the comma behind the last entry.
std::size_t FileLength(std::size_t entry_bytes) {
  return std::max<std::size_t>(entry_bytes + 1, 2);
}

// Accepts a flat object of strings and refuses anything else at once, so that a deep or long file
// of another shape allocates nothing.
class FlatObjectReader final : public nlohmann::json_sax<json> {
 public:
  using Texts = std::unordered_map<std::string, std::string>;

  explicit FlatObjectReader(const CachedKeyValueFile::Filter& filter) : filter_(filter) {}

  bool start_object(std::size_t) override { return std::exchange(in_object_, true) == false; }
  bool key(std::string& name) override {
    key_ = std::move(name);
    return true;
  }
  bool string(std::string& value) override {
    if (!in_object_) return false;
    if (filter_ && !filter_(key_, value)) {
      all_kept_ = false;
    } else {
      texts_[key_] = std::move(value);
    }
    return true;
  }
  bool end_object() override { return true; }

  bool null() override { return false; }
  bool boolean(bool) override { return false; }
  bool number_integer(number_integer_t) override { return false; }
  bool number_unsigned(number_unsigned_t) override { return false; }
  bool number_float(number_float_t, const string_t&) override { return false; }
  bool binary(binary_t&) override { return false; }
  bool start_array(std::size_t) override { return false; }
  bool end_array() override { return false; }
  bool parse_error(std::size_t, const std::string&, const json::exception&) override {
    return false;
  }

  Texts& texts() { return texts_; }
  bool all_kept() const { return all_kept_; }

 private:
  const CachedKeyValueFile::Filter& filter_;
  bool in_object_ = false;
  bool all_kept_ = true;
  std::string key_;
  Texts texts_;
};

// Returns false unless the text is such an object.
bool ParseFlatObject(const std::string& text, FlatObjectReader& reader) {
  // The parser would take a NUL for the end of the text.
  return text.find('\0') == std::string::npos && json::sax_parse(text, &reader);
}

}  // namespace

bool CachedKeyValueFile::Load(const std::string& path) {
  path_ = path;
  RemoveLeftovers(path_);
  Reload();
  return true;
}

void CachedKeyValueFile::Reload() {
  std::string text;
  FileRead read = FileRead::kFailed;
  {
    WriteLock lock(file_lock_);
    read = ReadWholeFile(path_, kLongestFile, text);
  }
  was_read_ = read != FileRead::kFailed;
  if (!was_read_) ZO_LOG << "[cached file] not read:" << path_;
  if (read != FileRead::kTooLong && text.empty()) return;
  FlatObjectReader reader(filter_);
  const bool usable = read == FileRead::kDone && ParseFlatObject(text, reader);
  if (!usable) ZO_LOG << "[cached file] not usable:" << path_;

  EntryMap replaced;
  WriteLock lock(entries_lock_);
  replaced.swap(entries_);
  entry_bytes_ = 0;
  unsaved_.store(!usable || !reader.all_kept());
  if (!usable) return;
  for (auto& [key, value] : reader.texts()) {
    entry_bytes_ += LengthInFile(key, value);
    entries_[key] = {kStringEntry, std::move(value)};
  }
}

bool CachedKeyValueFile::Save() {
  if (path_.empty()) return false;
  MutexLock lock(save_lock_);
  const bool has_gone = access(path_.c_str(), F_OK) != 0;  // Data directories get cleaned.
  if (!(unsaved_.exchange(false) || has_gone) || Write()) return true;
  unsaved_.store(true);
  return false;
}

bool CachedKeyValueFile::Write() {
  try {
    const std::optional<std::string> text = Dump();
    if (!text) ZO_LOG << "[cached file] too long:" << path_;
    WriteLock lock(file_lock_);
    return text && ReplaceWholeFile(path_, *text);
  } catch (const json::exception& error) {
    ZO_LOG << "[cached file] not saved:" << path_ << " " << error.what();
    return false;
  }
}

std::optional<std::string> CachedKeyValueFile::Dump() const {
  json object = json::object();
  {
    ReadLock lock(entries_lock_);
    if (FileLength(entry_bytes_) > kLongestFile) return std::nullopt;
    for (const auto& [key, entry] : entries_) object[key] = ZOAnyCast<std::string>(entry.value);
  }
  return object.dump();
}

void CachedKeyValueFile::Set(std::string_view key, std::string_view value, std::int32_t kind) {
  WriteLock lock(entries_lock_);
  const auto [place, is_new] = entries_.try_emplace(std::string(key));
  Entry& entry = place->second;
  if (!is_new) {
    const auto& known = ZOAnyCast<std::string>(entry.value);
    if (entry.kind == kind && known == value) return;
    entry_bytes_ -= LengthInFile(key, known);
  }
  entry_bytes_ += LengthInFile(key, value);
  entry = {kind, std::string(value)};
  unsaved_.store(true);
}

std::string CachedKeyValueFile::Get(std::string_view key, std::string_view fallback) const {
  ReadLock lock(entries_lock_);
  const auto entry = entries_.find(std::string(key));
  return entry == entries_.end() ? std::string(fallback)
                                 : ZOAnyCast<std::string>(entry->second.value);
}

bool CachedKeyValueFile::Has(std::string_view key) const {
  ReadLock lock(entries_lock_);
  return entries_.count(std::string(key)) != 0;
}

std::size_t CachedKeyValueFile::Size() const {
  ReadLock lock(entries_lock_);
  return entries_.size();
}

std::size_t CachedKeyValueFile::FileSize() const {
  ReadLock lock(entries_lock_);
  return FileLength(entry_bytes_);
}

std::vector<std::pair<std::string, std::string>> CachedKeyValueFile::Entries() const {
  ReadLock lock(entries_lock_);
  std::vector<std::pair<std::string, std::string>> texts;
  texts.reserve(entries_.size());
  for (const auto& [key, entry] : entries_) {
    texts.emplace_back(key, ZOAnyCast<std::string>(entry.value));
  }
  return texts;
}

void CachedKeyValueFile::Clear(bool save) {
  EntryMap dropped;
  {
    WriteLock lock(entries_lock_);
    dropped.swap(entries_);
    entry_bytes_ = 0;
    unsaved_.store(true);
  }
  if (save) Save();
}

}  // namespace zo_base
