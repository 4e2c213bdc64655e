#include "tools/inspect/verdict.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "tools/inspect/failure_kinds.h"

namespace tarvel_inspect {
namespace {

constexpr std::size_t kMostCauses = 4;
constexpr std::size_t kMostEvidence = 3;
constexpr std::int64_t kBatchTime = 1'200;  // Update requests are batched so long.

// Collects the causes of one life.
class Judgement {
 public:
  void Add(const FailureKind& kind, const std::string& evidence, std::int64_t weight = 1) {
    if (kind.title.empty()) return;
    const auto [place, is_new] = places_.try_emplace(kind.title, causes_.size());
    if (is_new) causes_.push_back({{kind.title, kind.advice, 0, {}}, 0});
    auto& [cause, total] = causes_[place->second];
    ++cause.count;
    total += weight;
    if (evidence.empty()) return;
    if (cause.evidence.size() == kMostEvidence) cause.evidence.erase(cause.evidence.begin());
    cause.evidence.push_back(evidence);
  }

  void AddWalk(const Walk& walk, std::int64_t weight) {
    for (std::size_t i = 0; i < walk.attempts.size(); ++i) {
      const Attempt& attempt = walk.attempts[i];
      if (!attempt.end && walk.outcome == Outcome::kUnfinished) {
        Add({"An attempt was under way when the log ended: " + attempt.url + '.',
             "The process was killed, ended or still runs. See whether the server answers at all."},
            FormatTime(attempt.start) + " [multiple]Send sub url request:" + attempt.url, weight);
      }
      Add(KindOf(attempt, i < walk.hosts.size() ? walk.hosts[i] : ""), attempt.evidence, weight);
    }
  }

  // The heaviest first; of equal ones, the one that came first.
  std::vector<Cause> TakeCauses() {
    std::stable_sort(causes_.begin(), causes_.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    std::vector<Cause> causes;
    for (auto& [cause, weight] : causes_) {
      if (causes.size() < kMostCauses) causes.push_back(std::move(cause));
    }
    return causes;
  }

 private:
  std::vector<std::pair<Cause, std::int64_t>> causes_;  // With their weights.
  std::map<std::string, std::size_t> places_;           // Among them, by title.
};

bool IsLBS(const Request& request) { return request.purpose == Request::Purpose::kLBS; }

bool IsAnswered(const Request& request) { return request.Last().outcome == Outcome::kAnswered; }

// Failures of LBS requests explain a missing answer better than those of HTTPDNS, which is asked
// because of them.
void AddRequests(const Life& life, bool with_answered, Judgement& judgement) {
  constexpr std::int64_t kOfLBS = 1'000;
  for (const Request& request : life.requests) {
    if (IsAnswered(request) && !with_answered) continue;
    const std::int64_t weight = IsLBS(request) ? kOfLBS : 1;
    judgement.AddWalk(request.first, weight);
    if (request.second) judgement.AddWalk(*request.second, weight);
    if (request.no_address) {
      judgement.Add(
          {"HTTPDNS gave no address for a second try.",
           "Check the HTTPDNS servers of the deployment, and whether they know the hosts."},
          "");
    }
    if (request.first.outcome == Outcome::kNoNetwork) {
      judgement.Add({"The system says that there is no network, so nothing was sent.",
                     "Check the device's network, or let the client try without one."},
                    FormatTime(request.first.start) + " [multiple]Request cancel", kOfLBS);
    }
  }
}

// Updates that never became a request.
void AddStateOf(const Life& life, const Caches& caches, Judgement& judgement) {
  const bool had_no_url =
      std::any_of(life.updates.begin(), life.updates.end(),
                  [](const Update& update) { return update.result == Update::Result::kNoURL; });
  if (had_no_url) {
    judgement.Add({"No LBS URL can be used with these settings.",
                   "Check the URLs, the family of the network, and the setting for https only."},
                  "", 2'000);
  }
  for (const auto& [at, text] : life.troubles) {
    judgement.Add({"The system gave the library no thread or no transport.",
                   "Check limits on threads, descriptors and memory."},
                  FormatTime(at) + ' ' + text, 1'500);
  }
  if (life.updates_begun > 0 || had_no_url) return;
  if (life.has_empty_token) {
    judgement.Add({"The application key is empty, so no update is requested at the start.",
                   "Set the key before the start."},
                  "");
    return;
  }
  const bool was_valid = caches.answer.state == CacheState::kUsable && !caches.answer.is_local &&
                         caches.answer.expires_at > life.end;
  if (was_valid) {
    judgement.Add({"The cached answer was still valid, so no server was asked.",
                   "No fault. To ask anyway, force an update."},
                  "");
  } else if (life.has_exit && life.end - life.start < kBatchTime) {
    judgement.Add({"The life ended before the first update, which begins 1.2 s after the start.",
                   "Keep the client running, or wait for its first answer."},
                  "");
  }
}

std::string Summary(const Life& life, const Verdict& verdict) {
  const std::string process = "Process " + std::to_string(life.process);
  if (verdict.has_fresh_answer) {
    const auto fresh =
        std::find_if(life.updates.begin(), life.updates.end(),
                     [](const Update& update) { return update.result == Update::Result::kFresh; });
    return process + " got a fresh answer at " + FormatTime(fresh->at) + ".";
  }
  std::string summary = process + " got no fresh answer.";
  if (life.requests.empty()) return summary + " It sent no request.";
  const bool has_open = std::any_of(
      life.requests.begin(), life.requests.end(),
      [](const auto& request) { return request.Last().outcome == Outcome::kUnfinished; });
  if (!verdict.has_success) summary += " None of its requests got through.";
  if (has_open) summary += " At its end a request was still under way.";
  return summary;
}

}  // namespace

Verdict Judge(const Life& life, const Caches& caches) {
  Verdict verdict;
  verdict.process = life.process;
  verdict.has_fresh_answer =
      std::any_of(life.updates.begin(), life.updates.end(),
                  [](const Update& update) { return update.result == Update::Result::kFresh; });
  verdict.has_success = std::any_of(life.requests.begin(), life.requests.end(), IsAnswered);
  verdict.summary = Summary(life, verdict);
  Judgement judgement;
  AddRequests(life, verdict.has_fresh_answer, judgement);
  if (!verdict.has_fresh_answer) AddStateOf(life, caches, judgement);
  verdict.causes = judgement.TakeCauses();
  if (verdict.has_fresh_answer && !verdict.causes.empty()) verdict.summary += " On the way:";
  return verdict;
}

}  // namespace tarvel_inspect
