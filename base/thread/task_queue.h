#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include "base/lock/assert.h"
#include "base/thread/task_loop.h"

namespace zo_base {

// Tasks, first in, first out. Keeps the blocks it has emptied for those to come, so that a queue in
// steady use allocates nothing, and a poster and a worker that swap two of them never meet in the
// allocator. A task stays where it is until it is popped, whatever is pushed meanwhile.
//
// Not synchronised.
class TaskQueue {
 public:
  TaskQueue() = default;
  [[gnu::noinline]] ~TaskQueue() {  // A thread has five, and destroys them once.
    while (!empty()) pop_front();
    delete first_;
    DeleteAll(spare_);
  }
  TaskQueue(const TaskQueue&) = delete;
  TaskQueue& operator=(const TaskQueue&) = delete;

  bool empty() const { return first_ == last_ && read_ == written_; }
  Task& front() {
    ZO_ASSERT(!empty());
    return *first_->at(read_);
  }

  void push_back(Task task) {
    if (last_ == nullptr || written_ == Block::kTasks) AddBlock();
    ::new (static_cast<void*>(last_->at(written_))) Task(std::move(task));
    ++written_;
  }

  void pop_front() {
    std::destroy_at(&front());
    if (++read_ == Block::kTasks || (first_ == last_ && read_ == written_)) EndBlock();
  }

  void swap(TaskQueue& other) noexcept {
    std::swap(first_, other.first_);
    std::swap(last_, other.last_);
    std::swap(read_, other.read_);
    std::swap(written_, other.written_);
    std::swap(spare_, other.spare_);
    std::swap(spares_, other.spares_);
  }

 private:
  // 2 KiB, less what malloc adds.
  struct Block {
    static constexpr std::size_t kTasks = 63;
    Task* at(std::size_t i) { return std::launder(reinterpret_cast<Task*>(storage) + i); }

    Block* next = nullptr;
    alignas(Task) std::byte storage[kTasks * sizeof(Task)];
  };
  // 64 KiB stay with a queue that has once been longer than that.
  static constexpr std::size_t kMaxSpares = 32;

  void AddBlock() {
    Block* const block = spare_ != nullptr ? spare_ : new Block;
    if (spare_ != nullptr) {
      spare_ = spare_->next;
      --spares_;
    }
    block->next = nullptr;
    (last_ != nullptr ? last_->next : first_) = block;
    last_ = block;
    written_ = 0;
  }

  // The first block has been read to its end, or to the end of the queue.
  void EndBlock() {
    read_ = 0;
    if (first_ == last_) {
      written_ = 0;
      return;
    }
    Block* const block = std::exchange(first_, first_->next);
    if (spares_ == kMaxSpares) {
      delete block;
      return;
    }
    block->next = std::exchange(spare_, block);
    ++spares_;
  }

  static void DeleteAll(Block* block) {
    while (block != nullptr) delete std::exchange(block, block->next);
  }

  Block* first_ = nullptr;
  Block* last_ = nullptr;
  std::size_t read_ = 0;     // In `first_`.
  std::size_t written_ = 0;  // In `last_`.
  Block* spare_ = nullptr;
  std::size_t spares_ = 0;
};

}  // namespace zo_base
