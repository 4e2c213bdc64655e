#include "tools/cli/own_log.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>

#include "tools/cli/own_life.h"
#include "tools/inspect/lives.h"
#include "tools/inspect/log_files.h"
#include "tools/inspect/log_records.h"

namespace tarvel_cli {

namespace {

std::string WhyNothingComes(const tarvel_inspect::Life& life) {
  using tarvel_inspect::Outcome;
  using tarvel_inspect::Update;
  const bool something_runs = std::any_of(
      life.requests.begin(), life.requests.end(),
      [](const auto& request) { return request.Last().outcome == Outcome::kUnfinished; });
  const bool update_runs = life.updates_begun > static_cast<std::int64_t>(life.updates.size());
  if (life.updates.empty() || something_runs || update_runs) return {};
  switch (life.updates.back().result) {
    case Update::Result::kStopped:
      return "the update has ended without a result: neither a server nor HTTPDNS has answered";
    case Update::Result::kNoURL:
      return "no LBS URL can be used with these settings";
    default:
      return {};
  }
}

}  // namespace

OwnLog::OwnLog(const ClientOptions& options)
    : directory_(DirectoriesOf(options).log), skipped_(tarvel_inspect::LengthOfLog(directory_)) {}

std::string OwnLog::WhyNothingComes() const {
  const auto log = tarvel_inspect::ReadLog(directory_, skipped_);
  const auto records = tarvel_inspect::ReadRecords(log.text, log.written_at);
  const auto lives = tarvel_inspect::ReadLives(records).lives;
  const auto own = std::find_if(lives.rbegin(), lives.rend(),
                                [](const auto& life) { return life.process == getpid(); });
  return own == lives.rend() ? std::string() : tarvel_cli::WhyNothingComes(*own);
}

}  // namespace tarvel_cli
