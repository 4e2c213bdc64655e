#include "base/cached_key_value_file.h"

#include <unistd.h>

#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "base/log.h"
#include "base/whole_file.h"

namespace zo_base {
namespace {

using nlohmann::json;

// More than the longest texts take that anybody keeps, with every character escaped.
constexpr std::size_t kLongestFile = 64UL * 1024 * 1024;

// Takes a flat object of strings and refuses all else at once, so that a deep or long text of
// another shape builds nothing.
class FlatObjectReader final : public nlohmann::json_sax<json> {
 public:
  using Texts = std::unordered_map<std::string, std::string>;

  bool start_object(std::size_t) override { return std::exchange(in_object_, true) == false; }
  bool key(std::string& name) override {
    key_ = std::move(name);
    return true;
  }
  bool string(std::string& value) override {
    if (!in_object_) return false;
    texts_[key_] = std::move(value);
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

 private:
  bool in_object_ = false;
  std::string key_;
  Texts texts_;
};

std::optional<FlatObjectReader::Texts> ParseFlatObject(const std::string& text) {
  FlatObjectReader reader;
  // The parser takes a NUL for the end, whatever stands behind it.
  if (text.find('\0') != std::string::npos) return std::nullopt;
  if (!json::sax_parse(text, &reader)) return std::nullopt;
  return std::move(reader.texts());
}

}  // namespace

bool CachedKeyValueFile::Load(const std::string& path) {
  path_ = path;
  RemoveLeftovers(path_);
  Reload();
  return true;
}

void CachedKeyValueFile::Reload() {
  std::optional<std::string> text;
  {
    WriteLock lock(file_lock_);
    text = ReadWholeFile(path_, kLongestFile);
  }
  if (text && text->empty()) return;
  auto texts = text ? ParseFlatObject(*text) : std::nullopt;
  if (!texts) ZO_LOG << "[cached file] not usable:" << path_;

  EntryMap replaced;
  WriteLock lock(entries_lock_);
  replaced.swap(entries_);
  unsaved_.store(!texts);
  if (!texts) return;
  for (auto& [key, value] : *texts) entries_[key] = {kStringEntry, std::move(value)};
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
    const std::string text = Dump();
    WriteLock lock(file_lock_);
    return ReplaceWholeFile(path_, text);
  } catch (const json::exception& error) {
    ZO_LOG << "[cached file] not saved:" << path_ << " " << error.what();
    return false;
  }
}

std::string CachedKeyValueFile::Dump() const {
  json object = json::object();
  {
    ReadLock lock(entries_lock_);
    for (const auto& [key, entry] : entries_) object[key] = ZOAnyCast<std::string>(entry.value);
  }
  return object.dump();
}

void CachedKeyValueFile::Set(const std::string& key, const std::string& value, std::int32_t kind) {
  WriteLock lock(entries_lock_);
  Entry& entry = entries_[key];
  const bool is_same = entry.kind == kind && entry.value.type() == typeid(std::string) &&
                       ZOAnyCast<std::string>(entry.value) == value;
  if (is_same) return;
  entry = {kind, value};
  unsaved_.store(true);
}

std::string CachedKeyValueFile::Get(const std::string& key, const std::string& fallback) const {
  ReadLock lock(entries_lock_);
  const auto entry = entries_.find(key);
  return entry == entries_.end() ? fallback : ZOAnyCast<std::string>(entry->second.value);
}

bool CachedKeyValueFile::Has(const std::string& key) const {
  ReadLock lock(entries_lock_);
  return entries_.count(key) != 0;
}

std::size_t CachedKeyValueFile::Size() const {
  ReadLock lock(entries_lock_);
  return entries_.size();
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
    unsaved_.store(true);
  }
  if (save) Save();
}

}  // namespace zo_base
