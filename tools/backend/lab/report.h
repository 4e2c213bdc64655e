#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "base/lock/recursive_mutex.h"
#include "base/lock/thread_annotations.h"

namespace tarvel_backend {

// What happened in the lab, in time order.
//
// Threads: any. Ownership: owns the lines.
class Report {
 public:
  Report() = default;
  Report(const Report&) = delete;
  Report& operator=(const Report&) = delete;

  // The seconds of the lines count from now on. Those of earlier lines are 0.
  void Start() ZO_EXCLUDES(mutex_);
  void Add(const std::string& who, const std::string& what) ZO_EXCLUDES(mutex_);
  // Also writes the line to standard error.
  void AddAndShow(const std::string& who, const std::string& what) ZO_EXCLUDES(mutex_);

  std::string ToText() const ZO_EXCLUDES(mutex_);

 private:
  // A program that sends requests for hours must not exhaust the memory.
  static constexpr std::size_t kMostLines = 100'000;

  std::string Append(const std::string& who, const std::string& what) ZO_EXCLUDES(mutex_);

  mutable zo_base::_thread_recursive_mutex mutex_;
  std::optional<std::chrono::steady_clock::time_point> start_ ZO_GUARDED_BY(mutex_);
  std::vector<std::string> lines_ ZO_GUARDED_BY(mutex_);
  std::size_t left_out_ ZO_GUARDED_BY(mutex_) = 0;
};

}  // namespace tarvel_backend
