#include "tools/inspect/request_reader.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "base/text/numbers.h"
#include "tools/inspect/log_texts.h"
#include "tools/inspect/moments.h"

namespace tarvel_inspect {
namespace {

// A client has a few. A forged log must not make the search among them long.
constexpr std::size_t kMostOpen = 256;
constexpr std::size_t kMostUrls = 1'000;  // Of one walk.

std::int32_t NumberBetween(std::string_view text, std::string_view begin, std::string_view end) {
  return zo_base::ReadNumber(Between(text, begin, end), -1);
}

void SetPurpose(Request& request, std::string_view url) {
  const std::string_view path = url.substr(0, url.find('?'));
  if (path.ends_with("/httpdns/v2/s")) {
    request.purpose = Request::Purpose::kServers;
  } else if (path.ends_with("/httpdns/v2/d")) {
    request.purpose = Request::Purpose::kHosts;
    request.asked_hosts = Clean(Between(url, "domain=", "&"));
  } else {
    request.purpose = Request::Purpose::kLBS;
  }
}

bool IsIn(std::int32_t index, const std::vector<Attempt>& attempts) {
  return index >= 0 && static_cast<std::size_t>(index) < attempts.size();
}

// Whether the sub request is under way.
bool Runs(const Walk& walk, std::int32_t index) {
  return IsIn(index, walk.attempts) && !walk.attempts[static_cast<std::size_t>(index)].end;
}

Attempt& AttemptOf(Walk& walk, std::int32_t index) {
  return walk.attempts[static_cast<std::size_t>(index)];
}

}  // namespace

void RequestReader::Take(const LogRecord& record) {
  using Reader = void (RequestReader::*)(const LogRecord&, std::string_view, ThreadState&);
  // What a record begins with, and who reads what follows.
  static constexpr std::pair<std::string_view, Reader> kReaders[] = {
      {"Invoke send multiple_time_out:", &RequestReader::TakeBegin},
      {"Unenable httpdns", &RequestReader::TakeHttpDNSIsOff},
      {"Invoke send multiple url", &RequestReader::TakeUrlList},
      {" Request url list empty", &RequestReader::TakeNoUrl},
      {"Send sub url request:", &RequestReader::TakeStart},
      {"[time out]Sub url request time out index:", &RequestReader::TakeSlow},
      {"[time out]Switch to index :", &RequestReader::TakeSwitchAfterHeadStart},
      {"[rsp]Switch to index :", &RequestReader::TakeSwitchAfterFailure},
      {"[rsp]Index:", &RequestReader::TakeCode},
      {"[rsp] true,index :", &RequestReader::TakeGood},
      {"[rsp]Business check response false,index :", &RequestReader::TakeBad},
      {"[rsp]Failure reason index :", &RequestReader::TakeReason},
      {"[rsp]All sub url has been requested", &RequestReader::TakeAllFailed},
      {"Request cancel,internet connected is false", &RequestReader::TakeCancelled},
  };
  const auto text = After(record.text, "[multiple]");
  if (!text) return;
  ThreadState& state = threads_[record.thread];
  for (const auto& [begin, reader] : kReaders) {
    if (const auto rest = After(*text, begin)) return (this->*reader)(record, *rest, state);
  }
  TakeSecondTry(*text, state);
}

// "100 time_out:900 use http dns:true".
void RequestReader::TakeBegin(const LogRecord&, std::string_view text, ThreadState& state) {
  state.begun = {};
  state.begun.head_start = zo_base::ReadNumber(text.substr(0, text.find(' ')), -1);
  state.begun.time_out = NumberBetween(text, " time_out:", " ");
  state.begun.may_use_httpdns = text.ends_with("true");
}

void RequestReader::TakeHttpDNSIsOff(const LogRecord&, std::string_view, ThreadState& state) {
  state.begun.may_use_httpdns = false;
}

// The lines are "host:lbs.example url:https://lbs.example/lbs/conf.jsp?k=...".
void RequestReader::TakeUrlList(const LogRecord& record, std::string_view list,
                                ThreadState& state) {
  if (list.find("url list[adjustment]:") == std::string_view::npos) return;
  Walk walk;
  std::vector<std::string_view> urls;
  ForEachLine(list, [&](std::string_view line) {
    if (!line.starts_with("host:") || urls.size() == kMostUrls) return;
    urls.push_back(line.substr(std::min(line.find(" url:"), line.size() - 5) + 5));
    walk.hosts.push_back(Clean(Between(line, "host:", " url:")));
    walk.urls.push_back(CleanUrl(urls.back()));
  });
  Request& request = RequestOf(walk.hosts, state);
  const bool is_second = !request.first.urls.empty();
  Walk& place = is_second ? request.second.emplace() : request.first;
  place = std::move(walk);
  if (!is_second && !urls.empty()) SetPurpose(request, urls.front());
  state.fresh = Open(request, place, record, std::move(urls));
}

// Returns the request whose second try has these hosts, or a new one.
Request& RequestReader::RequestOf(const std::vector<std::string>& hosts, ThreadState& state) {
  const auto addresses = std::exchange(state.addresses, {});
  const auto is_meant = [&](const Request* request) {
    return std::all_of(hosts.begin(), hosts.end(), [&](const std::string& host) {
      return std::count(request->first.hosts.begin(), request->first.hosts.end(), host) > 0;
    });
  };
  const auto found = addresses.empty() ? awaiting_addresses_.end()
                                       : std::find_if(awaiting_addresses_.begin(),
                                                      awaiting_addresses_.end(), is_meant);
  if (found == awaiting_addresses_.end())
    return requests_.emplace_back(std::exchange(state.begun, {}));
  Request& request = **found;
  request.addresses = addresses;
  awaiting_addresses_.erase(found);
  return request;
}

RequestReader::Place RequestReader::Open(Request& request, Walk& walk, const LogRecord& record,
                                         std::vector<std::string_view> urls) {
  walk.start = record.at;
  open_.push_front({&request, &walk, record.thread, std::move(urls)});
  if (open_.size() > kMostOpen) {
    open_.back().is_open = false;
    ended_.splice(ended_.begin(), open_, std::prev(open_.end()));
  }
  return open_.begin();
}

void RequestReader::End(Place walk, std::int64_t at, Outcome outcome, ThreadState& state) {
  state.has_ended = true;
  if (walk->walk->outcome != Outcome::kUnfinished) return;
  walk->walk->end = at;
  walk->walk->outcome = outcome;
  Request& request = *walk->request;
  const bool has_failed = outcome == Outcome::kFailed || outcome == Outcome::kStopped;
  if (has_failed && request.may_use_httpdns && !request.second) failed_.push_back(&request);
  if (!walk->is_open) return;
  walk->is_open = false;
  ended_.splice(ended_.begin(), open_, walk);
}

void RequestReader::TakeNoUrl(const LogRecord& record, std::string_view, ThreadState& state) {
  if (state.fresh) End(*std::exchange(state.fresh, {}), record.at, Outcome::kNoURL, state);
}

void RequestReader::TakeStart(const LogRecord& record, std::string_view url, ThreadState& state) {
  Attempt attempt;
  attempt.url = CleanUrl(url);
  attempt.start = record.at;
  auto place = std::exchange(state.fresh, {});
  if (!place && state.next) {
    place = std::exchange(state.next, {});
    attempt.cause = state.cause;
    attempt.cause_index = state.cause_index;
  }
  if (!place) {  // The log was cut before.
    Request& request = requests_.emplace_back();
    SetPurpose(request, url);
    place = Open(request, request.first, record, {});
  }
  OpenWalk& open = **place;
  const std::size_t index = open.walk->attempts.size();
  if (index >= open.urls.size()) {
    open.urls.push_back(url);
    open.walk->urls.push_back(attempt.url);
    open.walk->hosts.emplace_back();
  }
  open.walk->attempts.push_back(std::move(attempt));
}

// Of several walks of the thread, the one is meant whose head start has just ended.
void RequestReader::TakeSlow(const LogRecord& record, std::string_view text, ThreadState& state) {
  const auto index = zo_base::ReadNumber(text, -1);
  std::int64_t nearest = INT64_MAX;
  state.slow.reset();
  for (auto walk = open_.begin(); walk != open_.end(); ++walk) {
    if (walk->thread != record.thread || !Runs(*walk->walk, index)) continue;
    const Attempt& attempt = AttemptOf(*walk->walk, index);
    if (attempt.head_start_over) continue;
    const auto distance = std::abs(attempt.start + walk->request->head_start - record.at);
    if (distance > nearest) continue;
    nearest = distance;
    state.slow = walk;
  }
  if (state.slow) AttemptOf(*(*state.slow)->walk, index).head_start_over = record.at;
}

// "1 triggered by :0", with the URL behind it or not.
void RequestReader::TakeSwitchAfterHeadStart(const LogRecord&, std::string_view text,
                                             ThreadState& state) {
  state.next = state.slow;
  state.cause = Attempt::Cause::kHeadStart;
  state.cause_index = NumberBetween(text, "triggered by :", " ");
}

void RequestReader::TakeSwitchAfterFailure(const LogRecord&, std::string_view text,
                                           ThreadState& state) {
  state.next = state.judged;
  state.cause = Attempt::Cause::kFailure;
  state.cause_index = NumberBetween(text, "triggered by :", " ");
}

// "0 code :200 ...".
void RequestReader::TakeCode(const LogRecord&, std::string_view text, ThreadState& state) {
  state.code = NumberBetween(text, " code :", " ");
}

void RequestReader::TakeGood(const LogRecord& record, std::string_view text, ThreadState& state) {
  TakeVerdict(record, text, true, state);
}

void RequestReader::TakeBad(const LogRecord& record, std::string_view text, ThreadState& state) {
  TakeVerdict(record, text, false, state);
}

void RequestReader::TakeAllFailed(const LogRecord& record, std::string_view, ThreadState& state) {
  if (state.judged && !state.has_ended) End(*state.judged, record.at, Outcome::kFailed, state);
}

// "0 url:https://...", with " stop :true" behind it when the request ends.
void RequestReader::TakeVerdict(const LogRecord& record, std::string_view text, bool good,
                                ThreadState& state) {
  constexpr std::string_view kStop = " stop :true";
  if (text.ends_with(kStop)) {  // It follows the same line without it.
    if (state.judged && !state.has_ended) End(*state.judged, record.at, Outcome::kStopped, state);
    return;
  }
  const auto index = zo_base::ReadNumber(text.substr(0, text.find(' ')), -1);
  const std::string_view url = Between(text, " url:", "\n");
  const auto is_meant = [&](const OpenWalk& walk) {
    return walk.thread == record.thread && Runs(*walk.walk, index) &&
           walk.urls[static_cast<std::size_t>(index)] == url;
  };
  // The oldest of several; the list has the youngest first.
  const auto found = std::find_if(open_.rbegin(), open_.rend(), is_meant);
  state.judged.reset();
  state.has_ended = false;
  if (found == open_.rend()) return;
  state.judged = std::prev(found.base());
  state.judged_index = index;
  Attempt& attempt = AttemptOf(*found->walk, index);
  attempt.end = record.at;
  attempt.code = std::max(state.code, 0);
  attempt.good = good;
  if (good) End(*state.judged, record.at, Outcome::kAnswered, state);
}

// "0 code :0 duration :3 ms reason :Could not resolve host: lbs.example".
void RequestReader::TakeReason(const LogRecord& record, std::string_view text, ThreadState& state) {
  if (!state.judged ||
      zo_base::ReadNumber(text.substr(0, text.find(' ')), -1) != state.judged_index) {
    return;
  }
  Attempt& attempt = AttemptOf(*(*state.judged)->walk, state.judged_index);
  attempt.reason = Clean(Between(text, " reason :", "\n"));
  attempt.evidence = FormatTime(record.at) + ' ' + Clean(record.text) + " (" + attempt.url + ')';
}

void RequestReader::TakeSecondTry(std::string_view text, ThreadState& state) {
  if (text.starts_with("Request return false, use http dns if fail:true") && !failed_.empty()) {
    returned_ = failed_.front();
    failed_.pop_front();
  } else if (text.starts_with("Use http dns,host_list size:") && returned_ != nullptr) {
    awaiting_addresses_.push_back(std::exchange(returned_, nullptr));
    if (awaiting_addresses_.size() > kMostOpen) awaiting_addresses_.pop_front();
  } else if (text.starts_with("Use http dns,url empty") && !awaiting_addresses_.empty()) {
    awaiting_addresses_.front()->no_address = true;
    awaiting_addresses_.pop_front();
    state.addresses.clear();
  } else if (const auto host = After(text, "User http dns, host:")) {
    state.resolved_host = Clean(host->substr(0, host->rfind("ip list:")));
    state.addresses[state.resolved_host];
  } else if (const auto address = After(text, "User http dns, ------")) {
    state.addresses[state.resolved_host].push_back(Clean(*address));
  }
}

void RequestReader::TakeCancelled(const LogRecord& record, std::string_view list, ThreadState&) {
  Request& request = requests_.emplace_back();
  request.first.start = record.at;
  request.first.end = record.at;
  request.first.outcome = Outcome::kNoNetwork;
  ForEachLine(list, [&](std::string_view line) {
    const auto url = After(line, " --");
    if (!url) return;
    if (request.first.urls.empty()) SetPurpose(request, *url);
    request.first.urls.push_back(CleanUrl(*url));
  });
}

std::vector<Request> RequestReader::TakeRequests() {
  return {std::make_move_iterator(requests_.begin()), std::make_move_iterator(requests_.end())};
}

}  // namespace tarvel_inspect
