#include "tools/backend/lab/report.h"

#include <cstdio>

#include "base/text/strings.h"
#include "tools/backend/ended_request.h"

namespace tarvel_backend {

void Report::Start() {
  zo_base::MutexLock lock(mutex_);
  start_ = std::chrono::steady_clock::now();
}

void Report::Add(const std::string& who, const std::string& what) { Append(who, what); }

void Report::AddAndShow(const std::string& who, const std::string& what) {
  std::fprintf(stderr, "%s\n", Append(who, what).c_str());
}

// The lock is held while the time is taken, so the lines are in time order.
std::string Report::Append(const std::string& who, const std::string& what) {
  zo_base::MutexLock lock(mutex_);
  const std::string time = ToClockText(std::chrono::system_clock::now());
  const auto now = std::chrono::steady_clock::now();
  const std::chrono::duration<double> seconds = now - start_.value_or(now);
  std::string line = zo_base::StringFormat("%s %9.3f  %-16s %s", time.c_str(), seconds.count(),
                                           who.c_str(), what.c_str());
  if (lines_.size() < kMostLines) {
    lines_.push_back(line);
  } else {
    ++left_out_;
  }
  return line;
}

std::string Report::ToText() const {
  zo_base::MutexLock lock(mutex_);
  std::string text =
      zo_base::StringFormat("%-12s %9s  %-16s %s\n", "time", "seconds", "who", "what");
  for (const std::string& line : lines_) text += line + '\n';
  if (left_out_ > 0) text += std::to_string(left_out_) + " later lines are left out\n";
  return text;
}

}  // namespace tarvel_backend
