#include "network/curl/transfer.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "network/curl/close_on_exec.h"
#include "network/curl/redirect.h"

namespace WQBASE::network {
namespace {

constexpr long kOk = 200;

// libcurl reads 0 as "no limit".
std::chrono::milliseconds TimeLimit(std::int32_t time_out) {
  return std::chrono::milliseconds(std::max(1, time_out));
}

// Whether a repetition does no harm if the first request was carried out after all.
bool IsIdempotent(const Hop& hop) {
  const bool is_get = hop.verb == "GET" || (hop.verb.empty() && !hop.sends_body);
  return is_get || hop.verb == "PUT" || hop.verb == "DELETE";
}

// How a connection ends under a request.
bool IsBrokenConnection(CURLcode result) {
  return result == CURLE_SEND_ERROR || result == CURLE_RECV_ERROR || result == CURLE_GOT_NOTHING ||
         result == CURLE_HTTP2 || result == CURLE_HTTP2_STREAM;
}

}  // namespace

Transfer::Transfer(std::shared_ptr<const HttpRequest> request,
                   IHttpRequestor::Completion completion, const TrustSettings& trust)
    : request_(std::move(request)),
      completion_(std::move(completion)),
      trust_(trust),
      deadline_(Clock::now() + TimeLimit(request_->time_out)) {
  std::string error;
  if (auto first = MakeFirstHop(*request_, error)) {
    hop_ = std::move(first->hop);
    pinned_ = std::move(first->pinned);
  } else {
    EndWith(0, error);
  }
}

Transfer::~Transfer() = default;

void Transfer::Prepare(CURL* easy) {
  answer_.Clear();
  answer_.Attach(easy);
  error_[0] = '\0';
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now());
  curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, std::max(1L, static_cast<long>(left.count())));
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, error_);
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);  // A lookup without an answer holds nobody up.
  curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, OpenSocket);
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");  // All that libcurl can decode.
  curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L);
  curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  curl_easy_setopt(easy, CURLOPT_FRESH_CONNECT, repeated_ ? 1L : 0L);
  PrepareVerb(easy);
  PrepareHeaders(easy);
  PrepareServer(easy);
  PrepareTrust(easy);
}

// The body stays in the request, which this holds.
void Transfer::PrepareVerb(CURL* easy) {
  if (hop_.verb == "GET") {
    curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
    return;
  }
  const bool announces_length = hop_.sends_body || hop_.verb == "POST" || hop_.verb == "PUT";
  if (announces_length) {
    const auto size = hop_.sends_body ? request_->body.size() : 0;
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(size));
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS,
                     size == 0 ? "" : reinterpret_cast<const char*>(request_->body.data()));
  }
  if (!hop_.verb.empty()) curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, hop_.verb.c_str());
}

void Transfer::PrepareHeaders(CURL* easy) {
  header_lines_.reset();
  const auto append = [this](const std::string& line) {
    header_lines_.reset(curl_slist_append(header_lines_.release(), line.c_str()));
  };
  append("Expect:");  // None: it would cost a round trip.
  for (const auto& [name, value] : hop_.headers) {
    const bool empty = value.find_first_not_of(" \t") == std::string::npos;
    append(empty ? name + ';' : name + ": " + value);
  }
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, header_lines_.get());
}

void Transfer::PrepareServer(CURL* easy) {
  curl_easy_setopt(easy, CURLOPT_URL, hop_.address.url.c_str());
  connect_to_.reset();
  if (!pinned_ || !hop_.address.SameServer(pinned_->name)) return;
  const std::string server = hop_.address.host + ':' + hop_.address.port;
  const std::string literal = pinned_->literal + ':' + hop_.address.port;
  connect_to_.reset(curl_slist_append(nullptr, (server + ':' + literal).c_str()));
  curl_easy_setopt(easy, CURLOPT_CONNECT_TO, connect_to_.get());
}

bool Transfer::ChecksPeer() const { return request_->sni || trust_.verify_always; }

// Without a check no authorities are loaded. With one, they come from one file, since libcurl keeps
// only that in memory for the next connection.
void Transfer::PrepareTrust(CURL* easy) {
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, ChecksPeer() ? 1L : 0L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, ChecksPeer() ? 2L : 0L);
  curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
  if (!ChecksPeer()) {
    curl_easy_setopt(easy, CURLOPT_CAINFO, nullptr);
  } else if (!trust_.trust_store.empty()) {
    curl_easy_setopt(easy, CURLOPT_CAINFO, trust_.trust_store.c_str());
  }
}

void Transfer::FinishHop(CURL* easy, CURLcode result) {
  if (result == CURLE_OK) {
    Succeed(easy);
  } else if (MayRepeat(easy, result)) {
    repeated_ = true;
  } else {
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    const char* text = error_[0] != '\0' ? error_ : curl_easy_strerror(result);
    EndWith(status == kOk ? 0 : status, answer_.error.empty() ? text : answer_.error);
  }
}

// The server closed the pooled connection at the moment when it was taken up again.
bool Transfer::MayRepeat(CURL* easy, CURLcode result) const {
  long new_connections = 0;
  curl_easy_getinfo(easy, CURLINFO_NUM_CONNECTS, &new_connections);
  return !repeated_ && new_connections == 0 && answer_.header_bytes == 0 &&
         IsBrokenConnection(result) && IsIdempotent(hop_) && Clock::now() < deadline_;
}

void Transfer::Succeed(CURL* easy) {
  long status = 0;
  const char* target = nullptr;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  curl_easy_getinfo(easy, CURLINFO_REDIRECT_URL, &target);
  std::string error = "The requested URL returned error: " + std::to_string(status);
  if (status == kOk) error.clear();

  const auto redirect =
      FollowRedirect(hop_, status, answer_.headers, target == nullptr ? "" : target, error);
  if (redirect == Redirect::kFollow && ++redirects_ <= kMostRedirects) return;
  if (redirect == Redirect::kFollow) error = "Maximum (20) redirects followed";
  response_->headers = std::move(answer_.headers);
  response_->body_text.assign(answer_.body.begin(), answer_.body.end());
  response_->body = std::move(answer_.body);
  EndWith(status, error);
}

void Transfer::Fail(const std::string& error) { EndWith(0, error); }

void Transfer::EndWith(long status, const std::string& error) {
  response_->status = status;
  response_->success = status == kOk;
  response_->error_text = error;
  needs_hop_ = false;
}

void Transfer::Complete() { completion_(response_); }

}  // namespace WQBASE::network
