#include "tools/cli/printer.h"

#include <cstdio>
#include <utility>

namespace tarvel_cli {

void Printer::Print(const std::string& event, const std::string& text,
                    zo_base::json11::Json::object fields) {
  const std::chrono::duration<double> since = Clock::now() - start_;
  const std::lock_guard lock(mutex_);
  if (json_) {
    fields["event"] = event;
    fields["seconds"] = since.count();
    std::printf("%s\n", zo_base::json11::Json(std::move(fields)).dump().c_str());
  } else {
    std::printf("%8.3f s  %-10s %s\n", since.count(), event.c_str(), text.c_str());
  }
  std::fflush(stdout);
}

}  // namespace tarvel_cli
