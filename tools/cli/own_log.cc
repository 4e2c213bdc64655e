#include "tools/cli/own_log.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <system_error>

#include "base/file/whole_file.h"
#include "base/log/log_companion.h"
#include "base/process/clock.h"
#include "tarvel/environment/configuration/environment_config.h"
#include "tools/inspect/lives.h"
#include "tools/inspect/log_records.h"

namespace tarvel_cli {

namespace {

std::string PathOf(const ClientOptions& options) {
  const auto config = std::make_shared<zo_tarvel::_EnvironmentConfig>();
  config->Load(EnvironmentSettings(options));
  return config->log_path() + "tarvel_comp.log";
}

// Returns 0 for a file that doesn't exist.
std::int64_t SizeOf(const std::string& path) {
  std::error_code error;
  const auto size = std::filesystem::file_size(path, error);
  return error ? 0 : static_cast<std::int64_t>(size);
}

// Returns the records that wait in the companion, which the library may be changing.
std::string WaitingText(const std::string& log_path) {
  std::string content;
  const auto read =
      zo_base::ReadWholeFile(log_path + ".kvr_mmap", zo_base::kLargestCompanion, content);
  std::int32_t used = 0;
  if (read != zo_base::FileRead::kDone || content.size() < sizeof used) return {};
  std::memcpy(&used, content.data(), sizeof used);
  return content.substr(sizeof used, static_cast<std::size_t>(std::max(used, 0)));
}

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

OwnLog::OwnLog(const ClientOptions& options) : path_(PathOf(options)), read_(SizeOf(path_)) {}

void OwnLog::ReadAdded() {
  const std::int64_t size = SizeOf(path_);
  if (size == read_) return;
  if (size < read_) {  // The library has cut the log's front.
    read_ = 0;
    text_.clear();
  }
  std::ifstream file(path_, std::ios::binary);
  std::string added(static_cast<std::size_t>(size - read_), '\0');
  file.seekg(read_);
  file.read(added.data(), size - read_);
  added.resize(static_cast<std::size_t>(file.gcount()));
  read_ += file.gcount();
  text_ += added;
}

std::string OwnLog::WhyNothingComes() {
  // First the companion: records that the library moves meanwhile are then in both, not in none.
  const std::string waiting = WaitingText(path_);
  ReadAdded();
  std::string text = text_;
  if (text.find(waiting) == std::string::npos) text += waiting;
  const auto now = zo_base::WallClockMilliseconds();
  const auto lives = tarvel_inspect::ReadLives(tarvel_inspect::ReadRecords(text, now)).lives;
  const auto own = std::find_if(lives.rbegin(), lives.rend(),
                                [](const auto& life) { return life.process == getpid(); });
  return own == lives.rend() ? std::string() : tarvel_cli::WhyNothingComes(*own);
}

}  // namespace tarvel_cli
