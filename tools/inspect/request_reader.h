#pragma once

#include <deque>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/inspect/log_records.h"
#include "tools/inspect/requests.h"

namespace tarvel_inspect {

// Puts the logical requests of one life of a client together from its log records.
//
// The records name URLs and their indices, but no requests. A walk keeps to one thread, so a record
// belongs to the walk of its thread that has this URL at this index, or whose head start ends now.
// A log that was cut has requests without their begin.
//
// Threads: one. Ownership: the texts of the records outlive it.
class RequestReader {
 public:
  void Take(const LogRecord& record);
  // Ends the reading.
  std::vector<Request> TakeRequests();

 private:
  // A walk that goes on.
  struct OpenWalk {
    Request* request = nullptr;
    Walk* walk = nullptr;
    std::string_view thread;
    std::vector<std::string_view> urls;  // With their queries.
    bool is_open = true;                 // Among `open_`.
  };
  using Place = std::list<OpenWalk>::iterator;

  // What the next records of a thread refer to.
  struct ThreadState {
    Request begun;                  // Before its list of URLs is known.
    std::optional<Place> fresh;     // Its first URL is started next.
    std::optional<Place> slow;      // A URL of it has used up its head start.
    std::optional<Place> judged;    // A URL of it has ended,
    std::int32_t judged_index = 0;  // this one,
    bool has_ended = false;         // and the walk with it.
    std::optional<Place> next;      // Goes on with its next URL,
    Attempt::Cause cause = {};      // for this reason.
    std::int32_t cause_index = 0;
    std::int32_t code = 0;      // Of the sub request that has ended just now.
    std::string resolved_host;  // The addresses that follow are its.
    std::map<std::string, std::vector<std::string>> addresses;
  };

  // Each reads the rest of a record of one kind.
  void TakeBegin(const LogRecord& record, std::string_view text, ThreadState& state);
  void TakeHttpDNSIsOff(const LogRecord& record, std::string_view text, ThreadState& state);
  void TakeUrlList(const LogRecord& record, std::string_view text, ThreadState& state);
  void TakeNoUrl(const LogRecord& record, std::string_view text, ThreadState& state);
  void TakeStart(const LogRecord& record, std::string_view text, ThreadState& state);
  void TakeSlow(const LogRecord& record, std::string_view text, ThreadState& state);
  void TakeSwitchAfterHeadStart(const LogRecord& record, std::string_view text, ThreadState& state);
  void TakeSwitchAfterFailure(const LogRecord& record, std::string_view text, ThreadState& state);
  void TakeCode(const LogRecord& record, std::string_view text, ThreadState& state);
  void TakeGood(const LogRecord& record, std::string_view text, ThreadState& state);
  void TakeBad(const LogRecord& record, std::string_view text, ThreadState& state);
  void TakeReason(const LogRecord& record, std::string_view text, ThreadState& state);
  void TakeAllFailed(const LogRecord& record, std::string_view text, ThreadState& state);
  void TakeCancelled(const LogRecord& record, std::string_view text, ThreadState& state);
  void TakeVerdict(const LogRecord& record, std::string_view text, bool good, ThreadState& state);
  void TakeSecondTry(std::string_view text, ThreadState& state);

  Place Open(Request& request, Walk& walk, const LogRecord& record,
             std::vector<std::string_view> urls);
  void End(Place walk, std::int64_t at, Outcome outcome, ThreadState& state);
  Request& RequestOf(const std::vector<std::string>& hosts, ThreadState& state);

  std::deque<Request> requests_;  // In the order of their begin; they stay where they are.
  std::list<OpenWalk> open_;
  std::list<OpenWalk> ended_;  // Threads may refer to them still.
  std::map<std::string_view, ThreadState> threads_;
  // On the way to a second try: the first one has failed, its result has come to the agent, and
  // HTTPDNS is asked.
  std::deque<Request*> failed_;
  Request* returned_ = nullptr;
  std::deque<Request*> awaiting_addresses_;
};

}  // namespace tarvel_inspect
