#include <array>
#include <cstdio>
#include <utility>

#include "base/text/strings.h"
#include "tools/inspect/moments.h"
#include "tools/inspect/report.h"

namespace tarvel_inspect {
namespace {

using zo_base::StringFormat;

constexpr std::size_t kMostListed = 20;

// "350 ms", "12.3 s", "4 min", "5 h", "3 days".
std::string Duration(std::int64_t ms) {
  if (ms < 0) return "an unknown time (the clock was set back)";
  if (ms < 1'000) return StringFormat("%lld ms", static_cast<long long>(ms));
  const double seconds = static_cast<double>(ms) / 1'000;
  if (seconds < 120) return StringFormat("%.1f s", seconds);
  if (seconds < 7'200) return StringFormat("%.0f min", seconds / 60);
  if (seconds < 172'800) return StringFormat("%.0f h", seconds / 3'600);
  return StringFormat("%.0f days", seconds / 86'400);
}

std::string Lifetime(std::int64_t expires_at, std::int64_t now) {
  if (expires_at == 0) return "expired (no end of its life is known)";
  if (expires_at <= now) return "expired " + Duration(now - expires_at) + " ago";
  return "good for " + Duration(expires_at - now);
}

std::string Listed(const std::vector<std::string>& texts) {
  if (texts.size() <= kMostListed) return zo_base::Join(texts, " ");
  const std::vector<std::string> first(texts.begin(), texts.begin() + kMostListed);
  return zo_base::Join(first, " ") + " ... (" + std::to_string(texts.size()) + ")";
}

template <class Cache>
std::string State(const Cache& cache) {
  if (cache.state == CacheState::kNone) return "none";
  return "can't be used: " + cache.problem;
}

class TextWriter {
 public:
  void Line(const std::string& text = {}) { text_ += text + '\n'; }
  void Pair(const char* name, const std::string& value) {
    Line(StringFormat("  %-16s ", name) + value);
  }
  std::string TakeText() { return std::move(text_); }

 private:
  std::string text_;
};

void WriteCaches(const Report& report, TextWriter& out) {
  out.Line("Caches");
  const std::int64_t now = report.inspected_at;
  const AnswerCache& answer = report.caches.answer;
  if (answer.state == CacheState::kUsable) {
    const std::string name = answer.name.empty() ? "" : ", \"" + answer.name + '"';
    const std::string life = answer.is_local
                                 ? "made from the settings; no answer of a server is kept"
                                 : Lifetime(answer.expires_at, now);
    out.Pair("LBS answer", life + ", written " + FormatTime(answer.written_at) + ", family " +
                               answer.family + name);
    out.Pair("", "URL of the settings: " + answer.settings_url);
    out.Pair("", "URL of the next update: " + answer.next_url);
    out.Pair("", "links: " + Listed(answer.links) + "; default: " + Listed(answer.default_links));
  } else {
    out.Pair("LBS answer", State(answer));
  }
  const ServerCache& servers = report.caches.servers;
  out.Pair("HTTPDNS servers", servers.state == CacheState::kUsable
                                  ? Lifetime(servers.expires_at, now) + ", " + servers.host +
                                        " at " + Listed(servers.servers)
                                  : State(servers));
  const HostCache& hosts = report.caches.hosts;
  if (hosts.state != CacheState::kUsable) out.Pair("HTTPDNS hosts", State(hosts));
  for (std::size_t i = 0; i < hosts.hosts.size() && i < kMostListed; ++i) {
    const CachedHost& host = hosts.hosts[i];
    out.Pair(i == 0 ? "HTTPDNS hosts" : "", host.host + ": " + host.grade + ", " +
                                                Lifetime(host.expires_at, now) + ", " +
                                                Listed(host.addresses));
  }
  if (hosts.hosts.size() > kMostListed) {
    out.Pair("", "... (" + std::to_string(hosts.hosts.size()) + " hosts)");
  }
  out.Line();
}

std::string CauseText(const Attempt& attempt) {
  if (attempt.cause == Attempt::Cause::kStart) return "";
  const std::string index = std::to_string(attempt.cause_index);
  return attempt.cause == Attempt::Cause::kHeadStart
             ? ", started when the head start of " + index + " was over"
             : ", started when " + index + " had failed";
}

std::string EndText(const Attempt& attempt, const Walk& walk) {
  if (!attempt.end) {
    return walk.end ? "not waited for" : "no end in the log";
  }
  const std::string after = " after " + Duration(*attempt.end - attempt.start);
  if (attempt.good) return std::to_string(attempt.code) + ", good" + after;
  const std::string code = attempt.code == 0 ? "" : " with " + std::to_string(attempt.code);
  return "failed" + code + after + (attempt.reason.empty() ? "" : ": " + attempt.reason);
}

void WriteWalk(const Walk& walk, std::int64_t start, TextWriter& out) {
  for (std::size_t i = 0; i < walk.attempts.size(); ++i) {
    const Attempt& attempt = walk.attempts[i];
    const std::string other_host = OtherHostOf(walk, i);
    const std::string host = other_host.empty() ? "" : " for " + other_host;
    out.Line(StringFormat("      +%7.3f s  [%zu] ",
                          static_cast<double>(attempt.start - start) / 1'000, i) +
             attempt.url + host + CauseText(attempt));
    out.Line("                      " + EndText(attempt, walk));
  }
  for (std::size_t i = walk.attempts.size(); i < walk.urls.size(); ++i) {
    out.Line(StringFormat("                 [%zu] ", i) + walk.urls[i] + "  not started");
  }
}

void WriteRequest(const Request& request, TextWriter& out) {
  const Walk& last = request.Last();
  std::string head = "    " + FormatTime(request.first.start) + "  " + PurposeOf(request) + ": " +
                     NameOf(last.outcome);
  if (last.end) head += " after " + Duration(*last.end - request.first.start);
  if (request.head_start > 0) {
    head += StringFormat("  (head start %lld ms, time-out %lld ms)",
                         static_cast<long long>(request.head_start),
                         static_cast<long long>(request.time_out));
  }
  out.Line(head);
  WriteWalk(request.first, request.first.start, out);
  if (request.no_address) out.Line("      no second try: HTTPDNS gave no address");
  if (!request.second) return;
  for (const auto& [host, addresses] : request.addresses) {
    out.Line("      second try on addresses of " + host + ": " + Listed(addresses));
  }
  WriteWalk(*request.second, request.first.start, out);
}

std::string EndOf(const Life& life) {
  if (life.has_exit) return "regular exit";
  return life.runs ? "still runs" : "NO REGULAR EXIT: killed, crashed, or the log was cut";
}

std::string UpdatesOf(const Life& life) {
  const auto count = [&](Update::Result result) {
    return std::count_if(life.updates.begin(), life.updates.end(),
                         [&](const Update& update) { return update.result == result; });
  };
  return StringFormat(
      "updates: %lld begun, %td fresh, %td failed, %td ended without a result, %td without a URL",
      static_cast<long long>(life.updates_begun), count(Update::Result::kFresh),
      count(Update::Result::kFailed), count(Update::Result::kStopped),
      count(Update::Result::kNoURL));
}

void WriteLife(const Life& life, TextWriter& out) {
  out.Line("Process " + std::to_string(life.process) + ", " + FormatTime(life.start) + ", " +
           Duration(life.end - life.start) + ", " + EndOf(life));
  if (!life.has_start) out.Line("  Its start is not in the log.");
  out.Line("  " + UpdatesOf(life));
  if (life.links_taken > 0) {
    out.Line("  link addresses taken: " + std::to_string(life.links_taken) + ", the last one " +
             life.last_link);
  }
  for (const auto& [at, text] : life.troubles) out.Line("  " + FormatTime(at) + "  " + text);
  for (const Request& request : life.requests) WriteRequest(request, out);
  out.Line();
}

}  // namespace

std::string ToText(const Verdict& verdict) {
  TextWriter out;
  out.Line("Verdict: " + verdict.summary);
  int number = 0;
  for (const Cause& cause : verdict.causes) {
    out.Line(StringFormat("  %d. ", ++number) + cause.title +
             (cause.count > 1 ? " (" + std::to_string(cause.count) + " attempts)" : ""));
    for (const std::string& line : cause.evidence) out.Line("       " + line);
    if (!cause.advice.empty()) out.Line("     " + cause.advice);
  }
  if (verdict.more_causes > 0) {
    out.Line("  Left out, since they are less likely: " + std::to_string(verdict.more_causes));
  }
  return out.TakeText();
}

std::string ToText(const Report& report) {
  TextWriter out;
  out.Line(report.directory);
  if (!report.lives.empty()) {
    const Life& life = report.lives.back();
    out.Line("  business " + life.Setting("business type") + ", version " +
             life.Setting("business version") + ", last seen " + FormatTime(life.end) + ' ' +
             UtcOffsetName(life.end));
  }
  const auto bytes = [](std::int64_t count) {
    return count < 0 ? std::string("none") : std::to_string(count) + " bytes";
  };
  out.Line("  log " + bytes(report.log_bytes) + ", companion (what is not in the log yet) " +
           bytes(report.companion_bytes));
  for (const std::string& problem : report.problems) out.Line("  " + problem);
  out.Line();
  WriteCaches(report, out);
  for (const Life& life : report.lives) WriteLife(life, out);
  return out.TakeText() +
         (report.verdict ? ToText(*report.verdict) : "No life of a client is in the log.\n");
}

}  // namespace tarvel_inspect
