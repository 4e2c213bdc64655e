#include <utility>

#include "tools/inspect/moments.h"
#include "tools/inspect/report.h"

namespace tarvel_inspect {
namespace {

using Json = nlohmann::ordered_json;

Json Moment(const std::optional<std::int64_t>& at) { return at ? Json(*at) : Json(nullptr); }
Json MomentUnlessZero(std::int64_t at) { return at == 0 ? Json(nullptr) : Json(at); }

const char* NameOf(CacheState state) {
  switch (state) {
    case CacheState::kUsable:
      return "usable";
    case CacheState::kUnusable:
      return "unusable";
    default:
      return "none";
  }
}

const char* NameOf(Attempt::Cause cause) {
  switch (cause) {
    case Attempt::Cause::kHeadStart:
      return "head start";
    case Attempt::Cause::kFailure:
      return "failure";
    default:
      return "start";
  }
}

const char* NameOf(Update::Result result) {
  switch (result) {
    case Update::Result::kFresh:
      return "fresh";
    case Update::Result::kFailed:
      return "failed";
    case Update::Result::kStopped:
      return "stopped";
    default:
      return "no URL";
  }
}

template <class Cache>
Json Head(const Cache& cache) {
  return {{"state", NameOf(cache.state)},
          {"problem", cache.problem},
          {"written_at", MomentUnlessZero(cache.written_at)}};
}

Json ToJson(const Caches& caches) {
  Json answer = Head(caches.answer);
  answer["expires_at"] = MomentUnlessZero(caches.answer.expires_at);
  answer["name"] = caches.answer.name;
  answer["is_local"] = caches.answer.is_local;
  answer["settings_url"] = caches.answer.settings_url;
  answer["next_url"] = caches.answer.next_url;
  answer["backup_urls"] = caches.answer.backup_urls;
  answer["family"] = caches.answer.family;
  answer["links"] = caches.answer.links;
  answer["default_links"] = caches.answer.default_links;
  Json servers = Head(caches.servers);
  servers["expires_at"] = MomentUnlessZero(caches.servers.expires_at);
  servers["host"] = caches.servers.host;
  servers["servers"] = caches.servers.servers;
  Json hosts = Head(caches.hosts);
  hosts["hosts"] = Json::array();
  for (const CachedHost& host : caches.hosts.hosts) {
    hosts["hosts"].push_back({{"host", host.host},
                              {"grade", host.grade},
                              {"expires_at", MomentUnlessZero(host.expires_at)},
                              {"addresses", host.addresses}});
  }
  return {{"lbs_answer", std::move(answer)},
          {"httpdns_servers", std::move(servers)},
          {"httpdns_hosts", std::move(hosts)}};
}

Json ToJson(const Walk& walk) {
  Json attempts = Json::array();
  for (std::size_t i = 0; i < walk.attempts.size(); ++i) {
    const Attempt& attempt = walk.attempts[i];
    Json json = {{"url", attempt.url},
                 {"for_host", OtherHostOf(walk, i)},
                 {"start", attempt.start},
                 {"end", Moment(attempt.end)},
                 {"code", attempt.end ? Json(attempt.code) : Json(nullptr)},
                 {"good", attempt.good},
                 {"reason", attempt.reason},
                 {"head_start_over", Moment(attempt.head_start_over)},
                 {"started_by", NameOf(attempt.cause)}};
    json["started_by_index"] =
        attempt.cause == Attempt::Cause::kStart ? Json(nullptr) : Json(attempt.cause_index);
    attempts.push_back(std::move(json));
  }
  Json not_started = Json::array();
  for (std::size_t i = walk.attempts.size(); i < walk.urls.size(); ++i)
    not_started.push_back(walk.urls[i]);
  return {{"start", walk.start},
          {"end", Moment(walk.end)},
          {"result", NameOf(walk.outcome)},
          {"attempts", std::move(attempts)},
          {"not_started", std::move(not_started)}};
}

Json ToJson(const Request& request) {
  Json json = {{"purpose", PurposeOf(request)},
               {"start", request.first.start},
               {"end", Moment(request.Last().end)},
               {"result", NameOf(request.Last().outcome)},
               {"head_start_ms", request.head_start},
               {"time_out_ms", request.time_out},
               {"may_use_httpdns", request.may_use_httpdns},
               {"httpdns_has_no_address", request.no_address},
               {"first_try", ToJson(request.first)}};
  json["second_try"] = request.second ? ToJson(*request.second) : Json(nullptr);
  json["addresses"] = request.addresses;
  return json;
}

Json ToJson(const Life& life) {
  Json settings = Json::array();
  for (const auto& [name, value] : life.settings)
    settings.push_back({{"name", name}, {"value", value}});
  Json updates = Json::array();
  for (const Update& update : life.updates) {
    updates.push_back({{"at", update.at}, {"result", NameOf(update.result)}});
  }
  Json troubles = Json::array();
  for (const auto& [at, text] : life.troubles) troubles.push_back({{"at", at}, {"text", text}});
  Json requests = Json::array();
  for (const Request& request : life.requests) requests.push_back(ToJson(request));
  return {{"process", life.process},
          {"start", life.start},
          {"end", life.end},
          {"utc_offset_s", UtcOffset(life.start)},
          {"has_start", life.has_start},
          {"has_exit", life.has_exit},
          {"runs", life.runs},
          {"links_taken", life.links_taken},
          {"last_link", life.last_link},
          {"settings", std::move(settings)},
          {"updates_begun", life.updates_begun},
          {"updates", std::move(updates)},
          {"troubles", std::move(troubles)},
          {"requests", std::move(requests)}};
}

Json ToJson(const Verdict& verdict) {
  Json causes = Json::array();
  for (const Cause& cause : verdict.causes) {
    causes.push_back({{"title", cause.title},
                      {"advice", cause.advice},
                      {"count", cause.count},
                      {"evidence", cause.evidence}});
  }
  return {{"process", verdict.process},         {"has_fresh_answer", verdict.has_fresh_answer},
          {"has_success", verdict.has_success}, {"summary", verdict.summary},
          {"causes", std::move(causes)},        {"more_causes", verdict.more_causes}};
}

}  // namespace

nlohmann::ordered_json ToJson(const std::vector<Report>& reports) {
  Json directories = Json::array();
  for (const Report& report : reports) {
    Json lives = Json::array();
    for (const Life& life : report.lives) lives.push_back(ToJson(life));
    Json directory = {{"path", report.directory},
                      {"inspected_at", report.inspected_at},
                      {"utc_offset_s", UtcOffset(report.inspected_at)},
                      {"log_bytes", report.log_bytes},
                      {"companion_bytes", report.companion_bytes},
                      {"problems", report.problems},
                      {"caches", ToJson(report.caches)},
                      {"lives", std::move(lives)}};
    directory["verdict"] = report.verdict ? ToJson(*report.verdict) : Json(nullptr);
    directories.push_back(std::move(directory));
  }
  return {{"form", 1}, {"directories", std::move(directories)}};
}

}  // namespace tarvel_inspect
