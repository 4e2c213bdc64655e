#include "base/thread/thread_info.h"

#include <atomic>
#include <memory>

namespace zo_base {
namespace {

// Keys above this count as absent.
constexpr pthread_key_t kHighestKey = 512;
constexpr std::int64_t kNoKey = -1;

// Atomic: threads of the library may still look here while the image is taken down. One that has
// read the key just before it is deleted gets an error or null from the system, as if there were no
// record.
std::atomic<std::int64_t> usable_key{kNoKey};

// Holds the key from load to unload, so that repeated loads don't use keys up.
class KeyOwner {
 public:
  KeyOwner() : created_(pthread_key_create(&key_, nullptr) == 0) {
    if (created_ && key_ <= kHighestKey) usable_key.store(key_, std::memory_order_release);
  }
  ~KeyOwner() {
    usable_key.store(kNoKey, std::memory_order_release);
    if (created_) pthread_key_delete(key_);
  }
  KeyOwner(const KeyOwner&) = delete;
  KeyOwner& operator=(const KeyOwner&) = delete;

 private:
  pthread_key_t key_{};
  const bool created_;
};

// Puts `record` into the calling thread's slot. Returns false without a slot.
bool StoreRecord(ThreadInfo* record) {
  const std::int64_t key = usable_key.load(std::memory_order_acquire);
  return key != kNoKey && pthread_setspecific(static_cast<pthread_key_t>(key), record) == 0;
}

}  // namespace

void CreateThreadInfoKey() { static const KeyOwner key_owner; }

ThreadInfo* GetCurrentThreadInfo() {
  const std::int64_t key = usable_key.load(std::memory_order_acquire);
  if (key == kNoKey) return nullptr;
  return static_cast<ThreadInfo*>(pthread_getspecific(static_cast<pthread_key_t>(key)));
}

std::shared_ptr<ITaskLoop> GetCurrentTaskLoop() {
  const ThreadInfo* current = GetCurrentThreadInfo();
  return current == nullptr ? nullptr : current->task_loop;
}

void SetCurrentThreadInfo(const ThreadInfo& info) {
  if (ThreadInfo* record = GetCurrentThreadInfo()) {
    *record = info;
    return;
  }
  auto record = std::make_unique<ThreadInfo>(info);
  if (StoreRecord(record.get())) static_cast<void>(record.release());  // The slot owns it now.
}

void ClearCurrentThreadInfo() {
  const std::unique_ptr<ThreadInfo> record(GetCurrentThreadInfo());
  StoreRecord(nullptr);
}

}  // namespace zo_base
