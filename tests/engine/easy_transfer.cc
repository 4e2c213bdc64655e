#include "tests/engine/easy_transfer.h"

#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>

#include "base/text/strings.h"
#include "network/curl/curl_library.h"
#include "network/curl/redirect.h"
#include "network/http/transfer_limits.h"

namespace test_support {
namespace {

using namespace WQBASE::network;
using Lines = std::unique_ptr<curl_slist, void (*)(curl_slist*)>;

void Append(Lines& lines, const std::string& line) {
  curl_slist* const longer = curl_slist_append(lines.get(), line.c_str());
  if (longer == nullptr) return;
  static_cast<void>(lines.release());
  lines.reset(longer);
}

// For libcurl a header without a value ends in a semicolon.
Lines HeaderLines(const Headers& headers) {
  Lines lines(nullptr, curl_slist_free_all);
  Append(lines, "Expect:");  // Not sent: it would cost a round trip.
  for (const auto& [name, value] : headers) {
    Append(lines, name + (zo_base::Trim(value).empty() ? ";" : ": " + value));
  }
  return lines;
}

Lines ConnectTo(const std::optional<PinnedServer>& pinned, const WebAddress& address) {
  Lines lines(nullptr, curl_slist_free_all);
  if (pinned && address.SameServer(pinned->name)) {
    Append(lines, "::" + pinned->literal + ':' + address.port);
  }
  return lines;
}

}  // namespace

EasyTransfer::EasyTransfer(const HttpRequest& request, const TrustSettings& trust,
                           const std::atomic<bool>& ending)
    : request_(request),
      trust_(trust),
      ending_(ending),
      deadline_(Clock::now() + std::chrono::milliseconds(std::max(1, request.time_out))) {}

HttpResponse EasyTransfer::Run() {
  std::string error;
  auto first = MakeFirstHop(request_, error);
  if (!first) return ResponseWith(error);
  hop_ = std::move(first->hop);
  pinned_ = std::move(first->pinned);
  for (int redirects = 0; redirects <= kMostRedirects; ++redirects) {
    Exchange();
    if (!FollowsRedirect(error)) return ResponseWith(error);
  }
  return ResponseWith("Maximum (20) redirects followed");
}

void EasyTransfer::Exchange() {
  result_ = CURLE_OUT_OF_MEMORY;
  status_ = 0;
  char error[CURL_ERROR_SIZE] = {};
  const Lines headers = HeaderLines(hop_.headers);
  const Lines connect_to = ConnectTo(pinned_, hop_.address);
  if (const EasyHandle easy = OpenEasyHandle()) {
    curl_easy_setopt(easy.get(), CURLOPT_ERRORBUFFER, error);
    curl_easy_setopt(easy.get(), CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(easy.get(), CURLOPT_CONNECT_TO, connect_to.get());
    SetUp(easy.get());
    result_ = curl_easy_perform(easy.get());
    curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &status_);
  }
  error_text_ = error[0] != '\0' ? error : curl_easy_strerror(result_);
}

void EasyTransfer::SetUp(CURL* easy) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now());
  curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, std::max(1L, static_cast<long>(left.count())));
  curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);  // The end waits for no name server.
  curl_easy_setopt(easy, CURLOPT_PROXY, "");
  curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
  curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");  // All that libcurl can decode.
  curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L);
  curl_easy_setopt(easy, CURLOPT_CURLU, hop_.address.parsed.get());
  curl_easy_setopt(
      easy, CURLOPT_OPENSOCKETFUNCTION, +[](void*, curlsocktype, curl_sockaddr* address) {
        return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
      });
  curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(easy, CURLOPT_XFERINFODATA, &ending_);
  curl_easy_setopt(
      easy, CURLOPT_XFERINFOFUNCTION,
      +[](void* ending, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
        return static_cast<const std::atomic<bool>*>(ending)->load() ? 1 : 0;
      });
  answer_.Attach(easy);
  SetVerb(easy);
  SetTrust(easy);
}

void EasyTransfer::SetVerb(CURL* easy) {
  if (hop_.verb == "GET") return;
  if (hop_.sends_body || hop_.verb == "POST" || hop_.verb == "PUT") {
    const std::string_view body = hop_.sends_body ? zo_base::TextIn(request_.body) : "";
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
  }
  if (!hop_.verb.empty()) curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, hop_.verb.c_str());
}

void EasyTransfer::SetTrust(CURL* easy) {
  const bool checks = request_.sni || trust_.verify_always;
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, checks ? 1L : 0L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, checks ? 2L : 0L);
  if (trust_.trust_store.empty()) return;
  curl_easy_setopt(easy, CURLOPT_CAINFO, trust_.trust_store.c_str());
  curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
}

// A redirect needs only its head.
bool EasyTransfer::FollowsRedirect(std::string& error) {
  return answer_.has_whole_head() && result_ != CURLE_OPERATION_TIMEDOUT &&
         FollowRedirect(hop_, status_, answer_.headers, error);
}

// An answer that broke off is delivered unless its status promises a whole one.
HttpResponse EasyTransfer::ResponseWith(const std::string& error) {
  HttpResponse response;
  const bool is_whole = result_ == CURLE_OK;
  if (is_whole || status_ > kHttpOk) {
    response.status = status_;
    response.headers = std::move(answer_.headers);
    response.body_text = zo_base::TextIn(answer_.body);
    response.body = std::move(answer_.body);
  }
  response.success = response.status == kHttpOk;
  if (response.success) return response;
  response.error_text = is_whole ? error : error_text_;
  if (!answer_.error.empty()) response.error_text = answer_.error;
  if (response.error_text.empty()) {
    response.error_text = "The requested URL returned error: " + std::to_string(status_);
  }
  return response;
}

}  // namespace test_support
