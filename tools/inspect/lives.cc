#include "tools/inspect/lives.h"

#include <algorithm>
#include <deque>
#include <map>
#include <string_view>

#include "base/text/strings.h"
#include "tools/inspect/log_texts.h"
#include "tools/inspect/request_reader.h"

namespace tarvel_inspect {
namespace {

constexpr std::size_t kLongestSetting = 1'100;  // A path has up to 1024 bytes.
constexpr std::size_t kMostTroubles = 100;
constexpr std::size_t kMostSettings = 1'000;
constexpr std::size_t kMostLives = 10'000;

bool Has(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

// A URL is shown without its secrets.
std::string CleanSetting(std::string_view value) {
  return Has(value, "://") ? CleanUrl(value) : zo_base::Printable(value, kLongestSetting);
}

// Takes lines like " --enable httpdns:true" of the environment and "-- lbs_main_addr:..." of the
// LBS service. Lists have a line "   - item" for each item.
void TakeSettings(std::string_view text, Life& life) {
  std::string list_name;
  for (const std::string& line : zo_base::Split(text, "\r\n")) {
    if (life.settings.size() >= kMostSettings) return;
    if (line.starts_with("   - ") && !list_name.empty()) {
      life.settings.emplace_back(list_name, CleanSetting(std::string_view(line).substr(5)));
      continue;
    }
    const std::size_t dashes = line.find("--");
    const std::size_t colon = line.find(':');
    if (dashes > 1 || colon == std::string::npos) continue;
    const std::string name = zo_base::Printable(
        zo_base::Trim(std::string_view(line).substr(dashes + 2, colon - dashes - 2)),
        kLongestSetting);
    const std::string value = line.substr(colon + 1);
    list_name = value.empty() ? name : "";
    if (name == "business token") life.has_empty_token = value.empty();
    if (value.empty() || name == "business token") continue;
    life.settings.emplace_back(name, CleanSetting(value));
  }
}

void TakeLink(std::string_view text, Life& life) {
  if (!Has(text, " use default:")) return;
  ++life.links_taken;
  life.last_link = Clean(Between(text, "[lbs] Get link address ", " use default:"));
}

// Collects one life.
class LifeReader {
 public:
  explicit LifeReader(const LogRecord& first) {
    life_.process = first.process;
    life_.start = life_.end = first.at;
  }

  void Take(const LogRecord& record) {
    const std::string_view text = record.text;
    life_.end = std::max(life_.end, record.at);
    requests_.Take(record);
    if (Has(text, "------------------- start -------------------")) {
      life_.has_start = true;
    } else if (Has(text, "------------------- exit -------------------")) {
      life_.has_exit = true;
    } else if (text.starts_with("zo_tarvel config:") || text.starts_with("[lbs] lbs config:")) {
      TakeSettings(text, life_);
    } else if (text.starts_with("[lbs] Get link address ")) {
      TakeLink(text, life_);
    } else if (text.starts_with("[lbs] Begin update LBS")) {
      ++life_.updates_begun;
    } else if (text.starts_with("[lbs] Update LBS success = ")) {
      const bool is_fresh = text.ends_with("true");
      Add(record, is_fresh ? Update::Result::kFresh : Update::Result::kFailed);
    } else if (text.starts_with("[lbs][update]Update complete [stoped]")) {
      Add(record, Update::Result::kStopped);
    } else if (text.starts_with("[lbs] LBS addr url list empty!")) {
      Add(record, Update::Result::kNoURL);
    } else if (Has(text, " thread failed:") || text.starts_with("[http client]no transport")) {
      if (life_.troubles.size() < kMostTroubles) {
        life_.troubles.emplace_back(record.at, zo_base::Printable(text, 256));
      }
    }
  }

  Life TakeLife() {
    life_.requests = requests_.TakeRequests();
    return std::move(life_);
  }

 private:
  void Add(const LogRecord& record, Update::Result result) {
    life_.updates.push_back({record.at, result});
  }

  Life life_;
  RequestReader requests_;
};

bool IsStart(const LogRecord& record) {
  return record.text.size() < 100 &&
         Has(record.text, "------------------- start -------------------");
}

}  // namespace

std::string Life::Setting(const std::string& name) const {
  const auto found = std::find_if(settings.begin(), settings.end(),
                                  [&](const auto& setting) { return setting.first == name; });
  return found == settings.end() ? std::string() : found->second;
}

Lives ReadLives(const std::vector<LogRecord>& records) {
  Lives result;
  std::deque<LifeReader> readers;                  // They stay where they are.
  std::map<std::int32_t, std::size_t> of_process;  // The latest one, counted from the very first.
  for (const LogRecord& record : records) {
    auto found = of_process.find(record.process);
    if (found == of_process.end() || IsStart(record)) {
      const std::size_t number = result.left_out + readers.size();
      found = of_process.insert_or_assign(record.process, number).first;
      readers.emplace_back(record);
    }
    if (readers.size() > kMostLives) {
      readers.pop_front();
      ++result.left_out;
    }
    if (found->second >= result.left_out) readers[found->second - result.left_out].Take(record);
  }
  result.lives.reserve(readers.size());
  for (LifeReader& reader : readers) result.lives.push_back(reader.TakeLife());
  return result;
}

}  // namespace tarvel_inspect
