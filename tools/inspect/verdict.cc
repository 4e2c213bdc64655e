#include "tools/inspect/verdict.h"

#include <algorithm>
#include <map>
#include <utility>

#include "base/text/strings.h"
#include "tools/inspect/failure_kinds.h"
#include "tools/inspect/moments.h"

namespace tarvel_inspect {
namespace {

constexpr std::size_t kMostCauses = 6;
constexpr std::size_t kMostEvidence = 3;
constexpr std::size_t kMostSubjects = 3;
constexpr std::int64_t kBatchTime = 1'200;  // Update requests are batched so long.

// Collects the causes of one life. Failures of one kind are one cause, with all that they are
// about.
class Judgement {
 public:
  void Add(const FailureKind& kind, const std::string& evidence, std::int64_t weight = 1) {
    if (kind.title.empty()) return;
    const auto [place, is_new] = places_.try_emplace(kind.title, causes_.size());
    if (is_new) causes_.push_back({{kind.title, kind.advice, 0, {}}, {}, 0});
    auto& [cause, subjects, total] = causes_[place->second];
    ++cause.count;
    total += weight;
    const bool is_known =
        std::find(subjects.begin(), subjects.end(), kind.subject) != subjects.end();
    if (!kind.subject.empty() && !is_known) subjects.push_back(kind.subject);
    if (evidence.empty()) return;
    if (cause.evidence.size() == kMostEvidence) cause.evidence.erase(cause.evidence.begin());
    cause.evidence.push_back(evidence);
  }

  // The heaviest first; of equal ones, the one that came first.
  void MoveTo(Verdict& verdict) {
    std::stable_sort(causes_.begin(), causes_.end(),
                     [](const auto& a, const auto& b) { return a.weight > b.weight; });
    for (auto& [cause, subjects, weight] : causes_) {
      if (verdict.causes.size() == kMostCauses) break;
      if (!subjects.empty()) cause.title += ListOf(subjects) + '.';
      verdict.causes.push_back(std::move(cause));
    }
    verdict.more_causes = static_cast<std::int64_t>(causes_.size() - verdict.causes.size());
  }

 private:
  struct Weighed {
    Cause cause;
    std::vector<std::string> subjects;
    std::int64_t weight = 0;
  };

  static std::string ListOf(const std::vector<std::string>& subjects) {
    if (subjects.size() <= kMostSubjects) return zo_base::Join(subjects, ", ");
    const std::vector<std::string> first(subjects.begin(), subjects.begin() + kMostSubjects);
    return zo_base::Join(first, ", ") + " and " + std::to_string(subjects.size() - kMostSubjects) +
           " more";
  }

  std::vector<Weighed> causes_;
  std::map<std::string, std::size_t> places_;  // Among them, by title.
};

// What an attempt shows whose end is not in the log.
FailureKind KindOfOpen(const Attempt& attempt, const Life& life) {
  if (life.has_exit) {
    return {"An attempt was stopped by the exit: ", attempt.url,
            "Keep the client running until its answer has come."};
  }
  if (life.runs) {
    return {"An attempt is under way: ", attempt.url, "Inspect again when it has ended."};
  }
  return {"An attempt was under way when the log ended: ", attempt.url,
          "The process was killed or crashed, or the log was cut. See how the process has ended."};
}

void AddWalk(const Walk& walk, const Life& life, std::int64_t weight, Judgement& judgement) {
  for (std::size_t i = 0; i < walk.attempts.size(); ++i) {
    const Attempt& attempt = walk.attempts[i];
    if (!attempt.end && walk.outcome == Outcome::kUnfinished) {
      judgement.Add(KindOfOpen(attempt, life),
                    FormatTime(attempt.start) + " [multiple]Send sub url request:" + attempt.url,
                    weight);
    }
    judgement.Add(KindOf(attempt, OtherHostOf(walk, i)), attempt.evidence, weight);
  }
}

bool IsLBS(const Request& request) { return request.purpose == Request::Purpose::kLBS; }

bool IsAnswered(const Request& request) { return request.Last().outcome == Outcome::kAnswered; }

// Failures of LBS requests explain a missing answer better than those of HTTPDNS, which is asked
// because of them.
void AddRequests(const Life& life, bool with_answered, Judgement& judgement) {
  constexpr std::int64_t kOfLBS = 1'000;
  for (const Request& request : life.requests) {
    if (IsAnswered(request) && !with_answered) continue;
    const std::int64_t weight = IsLBS(request) ? kOfLBS : 1;
    AddWalk(request.first, life, weight, judgement);
    if (request.second) AddWalk(*request.second, life, weight, judgement);
    if (request.no_address) {
      judgement.Add(
          {"HTTPDNS gave no address for a second try.", "",
           "Check the HTTPDNS servers of the deployment, and whether they know the hosts."},
          "");
    }
    if (request.first.outcome == Outcome::kNoNetwork) {
      judgement.Add({"The system says that there is no network, so nothing was sent.", "",
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
    judgement.Add({"No LBS URL can be used with these settings.", "",
                   "Check the URLs, the family of the network, and the setting for https only."},
                  "", 2'000);
  }
  for (const auto& [at, text] : life.troubles) {
    judgement.Add({"The system gave the library no thread or no transport.", "",
                   "Check limits on threads, descriptors and memory."},
                  FormatTime(at) + ' ' + text, 1'500);
  }
  if (had_no_url) return;
  if (life.updates_begun > 0) {
    if (!life.requests.empty()) return;
    judgement.Add({"The log ends between the begin of an update and its request.", "",
                   "See how the process has ended."},
                  "");
    return;
  }
  if (life.has_empty_token) {
    judgement.Add({"The application key is empty, so no update is requested at the start.", "",
                   "Set the key before the start."},
                  "");
    return;
  }
  const bool was_valid = caches.answer.state == CacheState::kUsable && !caches.answer.is_local &&
                         caches.answer.expires_at > life.end;
  if (was_valid) {
    judgement.Add({"The cached answer was still valid, so no server was asked.", "",
                   "No fault. To ask anyway, force an update."},
                  "");
  } else if (life.has_exit && life.end - life.start < kBatchTime) {
    judgement.Add({"The life ended before the first update, which begins 1.2 s after the start.",
                   "", "Keep the client running, or wait for its first answer."},
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
  if (!verdict.has_success) summary += " None of its requests got a good answer.";
  if (has_open)
    summary +=
        life.runs ? " A request is under way." : " At its end a request was still under way.";
  if (life.Setting("enable httpdns") == "false") summary += " HTTPDNS is off.";
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
  judgement.MoveTo(verdict);
  if (verdict.has_fresh_answer && !verdict.causes.empty()) verdict.summary += " On the way:";
  return verdict;
}

}  // namespace tarvel_inspect
