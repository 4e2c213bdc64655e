#include "network/curl/transfer.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "base/text/strings.h"
#include "network/curl/no_proxy.h"
#include "network/curl/redirect.h"
#include "network/http/http_response.h"
#include "network/http/transfer_limits.h"

namespace WQBASE::network {
namespace {

// An answer of a service fits, and libcurl allocates the buffer anew for each handle: 16 KiB, its
// own choice, cost 0.8 us more.
constexpr long kReadBuffer = 4L * 1024;
// libcurl 7.88 stalls an HTTP/2 answer with a head or frame that doesn't fit into the buffer, or
// takes it for HTTP/0.9. It keeps heads up to this length.
constexpr long kReadBufferForHttp2 = 128L * 1024;

constexpr char kNotRepeated[] = "The connection broke under a request that is not to be repeated";

// libcurl reads 0 as "no limit".
std::chrono::milliseconds TimeLimit(std::int32_t time_out) {
  return std::chrono::milliseconds(std::max(1, time_out));
}

// Whether the request may be sent again although the server may have carried it out.
bool IsIdempotent(const Hop& hop) {
  const bool is_get = hop.verb == "GET" || (hop.verb.empty() && !hop.sends_body);
  return is_get || hop.verb == "PUT" || hop.verb == "DELETE";
}

// For libcurl a header without a value ends in a semicolon.
std::string LineOf(const Headers::Header& header) {
  const auto& [name, value] = header;
  const bool empty = value.find_first_not_of(" \t") == std::string::npos;
  return empty ? name + ';' : name + ": " + value;
}

// Leaves the list unchanged when memory is short.
void Append(Transfer::Lines& lines, const std::string& line) {
  curl_slist* const longer = curl_slist_append(lines.get(), line.c_str());
  if (longer == nullptr) return;
  static_cast<void>(lines.release());
  lines.reset(longer);
}

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
    Fail(error);
  }
}

// Each hop has an easy handle of its own: libcurl 7.88 keeps a pointer into the freed header lines
// of the last answer when a handle is reset, and follows it when the next answer begins with a
// folded line.
CURL* Transfer::BeginHop() {
  easy_ = OpenEasyHandle();
  if (easy_ != nullptr) Prepare(easy_.get());
  return easy_.get();
}

void Transfer::Prepare(CURL* easy) {
  answer_.Attach(easy);
  error_[0] = '\0';
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now());
  curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, std::max(1L, static_cast<long>(left.count())));
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, error_);
  curl_easy_setopt(easy, CURLOPT_BUFFERSIZE,
                   hop_.address.https ? kReadBufferForHttp2 : kReadBuffer);
  curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);  // A lookup without an answer holds nobody up.
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");  // All that libcurl can decode.
  curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L);
  curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  curl_easy_setopt(easy, CURLOPT_FRESH_CONNECT, repeated_ ? 1L : 0L);
  attempts_ = 0;
  curl_easy_setopt(easy, CURLOPT_PREREQFUNCTION, OnAttempt);
  curl_easy_setopt(easy, CURLOPT_PREREQDATA, this);
  PrepareVerb(easy);
  PrepareHeaders(easy);
  PrepareServer(easy);
  if (hop_.address.https) PrepareTrust(easy);
}

// Called before the request is sent on an established connection. When a pooled connection breaks,
// libcurl sends any request again, but the server may have carried the first one out.
int Transfer::OnAttempt(void* transfer, char*, char*, int, int) {
  auto* const self = static_cast<Transfer*>(transfer);
  const bool allowed = ++self->attempts_ == 1 || IsIdempotent(self->hop_);
  return allowed ? CURL_PREREQFUNC_OK : CURL_PREREQFUNC_ABORT;
}

// libcurl doesn't copy the body, which `request_` owns.
void Transfer::PrepareVerb(CURL* easy) {
  if (hop_.verb == "GET") {
    curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
    return;
  }
  if (hop_.sends_body || hop_.verb == "POST" || hop_.verb == "PUT") {
    const auto size = hop_.sends_body ? request_->body.size() : 0;
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(size));
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS,
                     size == 0 ? "" : reinterpret_cast<const char*>(request_->body.data()));
  }
  if (!hop_.verb.empty()) curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, hop_.verb.c_str());
}

void Transfer::PrepareHeaders(CURL* easy) {
  header_lines_.reset();
  Append(header_lines_, "Expect:");  // Removes the header, which would cost a round trip.
  for (const auto& header : hop_.headers) Append(header_lines_, LineOf(header));
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, header_lines_.get());
}

void Transfer::PrepareServer(CURL* easy) {
  curl_easy_setopt(easy, CURLOPT_URL, hop_.address.url.c_str());
  curl_easy_setopt(easy, CURLOPT_CURLU, hop_.address.parsed.get());
  connect_to_.reset();
  if (!pinned_ || !hop_.address.SameServer(pinned_->name)) return;
  Append(connect_to_, "::" + pinned_->literal + ':' + hop_.address.port);  // For any host and port.
  curl_easy_setopt(easy, CURLOPT_CONNECT_TO, connect_to_.get());
  // libcurl itself compares no_proxy with the name in the URL.
  if (NoProxyLists(pinned_->literal)) curl_easy_setopt(easy, CURLOPT_NOPROXY, "*");
}

// Loads no authorities when nothing is checked. Otherwise prefers a single file to a directory,
// since libcurl caches only a file between connections.
void Transfer::PrepareTrust(CURL* easy) {
  // Forbid key exchange over a prime of the server's choice, since a large one blocks the thread
  // for seconds. Other TLS libraries limit the prime, and have another syntax for this list.
  static const bool is_openssl = [] {
    const char* const tls = curl_version_info(CURLVERSION_NOW)->ssl_version;
    return tls != nullptr && std::string_view(tls).starts_with("OpenSSL");
  }();
  if (is_openssl) {
    curl_easy_setopt(easy, CURLOPT_SSL_CIPHER_LIST, "DEFAULT:!kDHE");
  }
  const bool checks_peer = request_->sni || trust_.verify_always;
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, checks_peer ? 1L : 0L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, checks_peer ? 2L : 0L);
  if (!checks_peer) {
    curl_easy_setopt(easy, CURLOPT_CAINFO, nullptr);
  } else if (!trust_.trust_store.empty()) {
    curl_easy_setopt(easy, CURLOPT_CAINFO, trust_.trust_store.c_str());
  }
  const char* file = nullptr;
  curl_easy_getinfo(easy, CURLINFO_CAINFO, &file);
  if (file != nullptr || !checks_peer) curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
}

void Transfer::FinishHop(CURLcode result) {
  TakeResult(result);
  easy_.reset();
}

// A redirect needs only its head, so it is followed even when its body fails.
void Transfer::TakeResult(CURLcode result) {
  if (result != CURLE_OK && MayRepeat(result)) {
    repeated_ = true;
    return;
  }
  long status = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
  const bool timed_out = result == CURLE_OPERATION_TIMEDOUT;
  std::string error;
  if (answer_.has_whole_head() && !timed_out && Follows(status, error)) {
    repeated_ = false;
  } else if (result == CURLE_OK) {
    EndWithAnswer(status, error);
  } else {
    connection_went_silent_ = timed_out && HeardNothingOnPooledConnection();
    EndBroken(result, status);
  }
}

// In its lookup or handshake a transfer has no new connection either, but no attempt was made yet.
bool Transfer::HeardNothingOnPooledConnection() const {
  long new_connections = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_NUM_CONNECTS, &new_connections);
  return attempts_ > 0 && new_connections == 0 && answer_.header_bytes == 0;
}

// True when the server seems to have closed the pooled connection just before this use.
bool Transfer::MayRepeat(CURLcode result) const {
  return !repeated_ && HeardNothingOnPooledConnection() && IsBrokenConnection(result) &&
         IsIdempotent(hop_) && Clock::now() < deadline_;
}

// When the transfer ends with this answer, returns false, and `error` may say why.
bool Transfer::Follows(long status, std::string& error) {
  if (!FollowRedirect(hop_, status, answer_.headers, error)) return false;
  if (++redirects_ <= kMostRedirects) return true;
  error = "Maximum (20) redirects followed";
  return false;
}

void Transfer::EndWithAnswer(long status, const std::string& error) {
  TakeAnswer();
  const bool needs_text = status != kHttpOk && error.empty();
  End(status, needs_text ? "The requested URL returned error: " + std::to_string(status) : error);
}

// A partial answer is delivered unless its status is 200.
void Transfer::EndBroken(CURLcode result, long status) {
  const bool delivers = status > kHttpOk;  // Lower ones belong to interim answers.
  if (delivers) TakeAnswer();
  const char* text = error_[0] != '\0' ? error_ : curl_easy_strerror(result);
  if (result == CURLE_ABORTED_BY_CALLBACK) text = kNotRepeated;
  End(delivers ? status : 0, answer_.error.empty() ? text : answer_.error);
}

void Transfer::TakeAnswer() {
  response_->headers = std::move(answer_.headers);
  response_->body_text = zo_base::TextIn(answer_.body);
  response_->body = std::move(answer_.body);
}

void Transfer::End(long status, const std::string& error) {
  response_->status = status;
  response_->success = status == kHttpOk;
  response_->error_text = error;
  needs_hop_ = false;
}

void Transfer::Complete() { completion_(std::exchange(response_, nullptr)); }

}  // namespace WQBASE::network
