#include "tools/inspect/failure_kinds.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "tools/inspect/log_texts.h"

namespace tarvel_inspect {
namespace {

enum class About { kHost, kServer, kUrl };

// A text in a reason, and what it means. The first one that is found counts.
struct Row {
  std::string_view text;
  About about;
  std::string_view title;
  std::string_view advice;
};

constexpr std::string_view kCompareAnswer = "Compare the answer of this URL with docs/protocol.md.";

constexpr Row kRows[] = {
    {"Could not resolve", About::kHost, "The name server knows no address of ",
     "Look the name up on the device, and check its name server."},
    {"SSL certificate problem", About::kServer, "The certificate is not trusted: ",
     "Check the server's chain, the device's trust store and its clock. A proxy that reads traffic "
     "shows a certificate of its own, too."},
    {"no alternative certificate subject name", About::kServer,
     "The certificate is for another name: ",
     "Add the name to the server's certificate, or ask the server by the name that it has."},
    {"wrong version number", About::kServer,
     "What answers there is not TLS: ", "Check the port: https may be sent to a port for http."},
    {"SSL", About::kServer, "The TLS handshake fails: ",
     "Check the server's TLS versions and ciphers, and whether a middlebox cuts TLS."},
    {"Connection timed out", About::kServer, "No connection comes about in time: ",
     "Check routes and firewalls, and whether the host is up: packets are dropped, or the server "
     "takes no more connections."},
    {"Resolving timed out", About::kHost, "The name server is silent about ",
     "Check the device's name server and the way to it."},
    {"Couldn't connect", About::kServer, "The connection is refused, or there is no route: ",
     "Check that the server runs and listens on this port, and that the device has a way to it."},
    {"timed out", About::kServer, "The server is connected but silent: ",
     "The server hangs, is overloaded, or needs longer than the time-out. Look at its log at this "
     "time."},
    {"Connection reset", About::kServer, "The connection is reset: ",
     "The server has crashed or refuses the client, or a middlebox cuts the connection."},
    {"Empty reply", About::kServer, "The connection ends without an answer: ",
     "Check the port: http may be sent to a port for https. Or the server has crashed."},
    {"transfer closed", About::kServer,
     "The answer breaks off: ", "The server or a middlebox ends connections too early."},
    {"json parse error", About::kUrl, "The answer is no JSON: ",
     "See what this URL answers. The login page of a network is such an answer, too."},
    {"json common not find", About::kUrl, "The answer has no object \"common\": ", kCompareAnswer},
    {"json common link error", About::kUrl,
     "The answer has no usable address in \"link\": ", kCompareAnswer},
    {"json common default link error", About::kUrl,
     "The answer has no usable address in \"link.default\": ", kCompareAnswer},
    {"json common lbs url error", About::kUrl,
     "The answer has no usable URL in \"lbs\": ", kCompareAnswer},
    {"business token", About::kUrl, "The application key was changed during the request: ",
     "No fault: the update of the new key follows."},
};

std::string Subject(About about, const Attempt& attempt, const std::string& other_host) {
  if (about == About::kHost) return HostOf(attempt.url);
  const std::string subject = about == About::kUrl ? attempt.url : ServerOf(attempt.url);
  return other_host.empty() ? subject : subject + " for " + other_host;
}

}  // namespace

FailureKind KindOf(const Attempt& attempt, const std::string& other_host) {
  if (!attempt.end || attempt.good) return {};
  const std::string url = Subject(About::kUrl, attempt, other_host);
  if (attempt.code != 0 && attempt.code != 200) {
    return {"The server answers with status " + std::to_string(attempt.code) + ": ", url,
            attempt.code < 500
                ? "Check the path of the URL, and the application key that the client was given."
                : "Look at the server's log at this time."};
  }
  const auto* const row =
      std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& candidate) {
        return attempt.reason.find(candidate.text) != std::string::npos;
      });
  if (row == std::end(kRows)) {
    const std::string reason = attempt.reason.empty() ? "for no logged reason" : attempt.reason;
    return {"The attempt fails (" + reason + "): ", url, ""};
  }
  return {std::string(row->title), Subject(row->about, attempt, other_host),
          std::string(row->advice)};
}

}  // namespace tarvel_inspect
