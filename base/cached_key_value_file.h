#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/any.h"
#include "base/recursive_mutex.h"
#include "base/spin_rw_lock.h"

namespace zo_base {

// The kind of all entries: a string.
inline constexpr std::int32_t kStringEntry = 9;

// A map of texts in memory that can be kept in a file, as one flat JSON object.
//
// Memory leads: nothing but Save and Clear touches the file after Load. The file is replaced as a
// whole, see ReplaceWholeFile. A file that isn't such an object, or is longer than 64 MiB, counts
// as having no entries. What can't be read, such as a directory in its place, counts as no file.
//
// Threads: any, but for Load, which comes first.
class CachedKeyValueFile {
 public:
  // Where the file is; empty for memory only. Takes over the entries of the file. Always true.
  bool Load(const std::string& path);
  // Replaces the entries by those of the file. Keeps them when there is no file or an empty one.
  void Reload();
  // Writes the file, unless it has these entries already. What can't be written is dropped: a text
  // that is no UTF-8, or a file that the system refuses. True when the file has these entries.
  bool Save();

  void Set(const std::string& key, const std::string& value, std::int32_t kind = kStringEntry);
  std::string Get(const std::string& key, const std::string& fallback = std::string()) const;
  bool Has(const std::string& key) const;
  std::size_t Size() const;
  // All keys with their texts, in no order.
  std::vector<std::pair<std::string, std::string>> Entries() const;
  // Forgets all entries; with `save`, also in the file.
  void Clear(bool save);

 private:
  struct Entry {
    std::int32_t kind = kStringEntry;
    ZOAny value;
  };
  using EntryMap = std::unordered_map<std::string, Entry>;

  std::string Dump() const ZO_EXCLUDES(entries_lock_);
  bool Write() ZO_EXCLUDES(entries_lock_, file_lock_);

  std::string path_;
  mutable SpinRWLock entries_lock_;
  EntryMap entries_ ZO_GUARDED_BY(entries_lock_);
  SpinRWLock file_lock_;               // Held while the file is read or written.
  _thread_recursive_mutex save_lock_;  // So that the last Save writes last.
  std::atomic<bool> unsaved_{true};    // The entries may differ from the file's.
};

}  // namespace zo_base
