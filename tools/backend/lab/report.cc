#include "tools/backend/lab/report.h"

#include <stdexcept>

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
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start_;
  std::string line = zo_base::StringFormat("%s %9.3f  %-16s %s", time.c_str(), seconds.count(),
                                           who.c_str(), what.c_str());
  if (lines_.size() < kMostLines) {
    lines_.push_back(line);
  } else {
    ++left_out_;
  }
  return line;
}

void Report::Write(std::FILE* file) const {
  zo_base::MutexLock lock(mutex_);
  std::fprintf(file, "%-12s %9s  %-16s %s\n", "time", "seconds", "who", "what");
  for (const std::string& line : lines_) std::fprintf(file, "%s\n", line.c_str());
  if (left_out_ > 0) std::fprintf(file, "%zu later lines are left out\n", left_out_);
  if (std::fflush(file) != 0 || std::ferror(file) != 0) {
    throw std::runtime_error("can't write the report");
  }
}

}  // namespace tarvel_backend
