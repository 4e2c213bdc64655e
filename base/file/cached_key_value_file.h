#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/lock/recursive_mutex.h"
#include "base/lock/spin_rw_lock.h"
#include "base/object/any.h"

namespace zo_base {

// The kind of all entries: a string.
inline constexpr std::int32_t kStringEntry = 9;

// A map of strings in memory that can be saved in a file, as one flat JSON object.
//
// After Load only Save and Clear touch the file. They replace it as a whole, see ReplaceWholeFile.
// A file that isn't such an object, or is longer than kLongestFile, has no entries. Anything that
// can't be read, such as a directory in its place, is no file.
//
// Threads: any, after Load.
class CachedKeyValueFile {
 public:
  // In bytes. A longer file is neither read nor written.
  static constexpr std::size_t kLongestFile = 64UL * 1024 * 1024;

  // Whether the owner has a use for an entry of the file. All others are dropped while the file is
  // read, so that they cost no memory. Of two usable entries with one key the last one counts.
  using Filter = std::function<bool(const std::string& key, const std::string& value)>;

  // Load and Reload call the filter, with no lock held. Without a filter all entries are kept.
  explicit CachedKeyValueFile(Filter filter = nullptr) : filter_(std::move(filter)) {}

  // Reads the file at `path`. An empty `path` means memory only. Always returns true.
  bool Load(const std::string& path);
  // Replaces the entries by those of the file. Keeps them when there is no file or an empty one.
  void Reload();
  // Whether the last Load or Reload could tell what the file holds. Otherwise it may still hold
  // better entries than the owner's defaults.
  bool was_read() const { return was_read_; }
  // Writes the file, unless it has these entries already. Returns false when it can't: a string
  // isn't UTF-8, the file would be too long, or the system refuses. The old file is kept then.
  bool Save();

  void Set(std::string_view key, std::string_view value, std::int32_t kind = kStringEntry);
  std::string Get(std::string_view key, std::string_view fallback = {}) const;
  bool Has(std::string_view key) const;
  std::size_t Size() const;
  // How many bytes the file takes with these entries.
  std::size_t FileSize() const;
  // All keys with their values, in no order.
  std::vector<std::pair<std::string, std::string>> Entries() const;
  // Forgets all entries; with `save`, also in the file.
  void Clear(bool save);

 private:
  struct Entry {
    std::int32_t kind = kStringEntry;
    ZOAny value;
  };
  using EntryMap = std::unordered_map<std::string, Entry>;

  // Returns nullopt when the file would be too long.
  std::optional<std::string> Dump() const ZO_EXCLUDES(entries_lock_);
  bool Write() ZO_EXCLUDES(entries_lock_, file_lock_);

  const Filter filter_;
  std::string path_;
  mutable SpinRWLock entries_lock_;
  EntryMap entries_ ZO_GUARDED_BY(entries_lock_);
  std::size_t entry_bytes_ ZO_GUARDED_BY(entries_lock_) = 0;  // Of all entries, in the file.
  SpinRWLock file_lock_;               // Held while the file is read or written.
  _thread_recursive_mutex save_lock_;  // So that the last Save writes last.
  std::atomic<bool> was_read_{true};
  // The entries may differ from the file's. Set under `entries_lock_`, with the change: a Save that
  // clears it first waits for that lock, and so writes the change.
  std::atomic<bool> unsaved_{true};
};

}  // namespace zo_base
