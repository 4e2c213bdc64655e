#include "tools/inspect/requests.h"

#include "tools/inspect/log_texts.h"

namespace tarvel_inspect {

const char* NameOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::kAnswered:
      return "answered";
    case Outcome::kFailed:
      return "failed";
    case Outcome::kStopped:
      return "stopped";
    case Outcome::kNoNetwork:
      return "no network";
    case Outcome::kNoURL:
      return "no URL";
    default:
      return "unfinished";
  }
}

std::string PurposeOf(const Request& request) {
  switch (request.purpose) {
    case Request::Purpose::kLBS:
      return "LBS update";
    case Request::Purpose::kServers:
      return "HTTPDNS servers";
    case Request::Purpose::kHosts:
      return "HTTPDNS addresses of " + request.asked_hosts;
    default:
      return "request";
  }
}

std::string OtherHostOf(const Walk& walk, std::size_t index) {
  if (index >= walk.hosts.size() || index >= walk.urls.size()) return "";
  return walk.hosts[index] == HostOf(walk.urls[index]) ? "" : walk.hosts[index];
}

}  // namespace tarvel_inspect
