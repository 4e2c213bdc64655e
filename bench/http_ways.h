#pragma once

#include <curl/curl.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bench/relay.h"
#include "network/http/http_client.h"
#include "network/http/http_request.h"
#include "network/http/http_response.h"

// The contenders that get one URL over and over. Each is set up as an expert would do it; none
// checks the server's certificate.
//
// `GetAll` gets `count` answers, keeping the given number in flight, and returns how many were
// whole. `Begin` starts `count` requests; `Work`, called over and over, makes progress on them.
namespace tarvel_bench {

inline constexpr std::size_t kAnswerSize = 2048;

// The library's client. Each callback sends the next request.
class Client {
 public:
  Client(std::string url, std::size_t in_flight) : url_(std::move(url)), in_flight_(in_flight) {
    client_->Connect<>(zo_base::SIG_InternalBegin, [raw = client_.get()] { raw->init(); });
    client_->Start();
  }
  ~Client() {
    client_->Stop();
    client_->ReleaseRequestor();
  }

  std::size_t GetAll(std::size_t count) {
    Begin(count, std::min(in_flight_, count));
    done_.Take();
    return whole_;
  }

  void Begin(std::size_t count) { Begin(count, count); }
  void Work() {}  // The client's own threads work.

 private:
  using Request = WQBASE::network::HttpRequestUser;
  using Response = WQBASE::network::HttpResponseUser;

  void Begin(std::size_t count, std::size_t at_once) {
    whole_ = 0;
    unanswered_ = count;
    unsent_ = count - at_once;
    for (std::size_t i = 0; i < at_once; ++i) Send();
  }
  void Send() {
    auto request = std::make_shared<Request>();
    request->setMethod(WQBASE::network::kMethodGet);
    request->setUrl(url_);
    request->callback = [this](const std::shared_ptr<Response>& response, std::int32_t) {
      OnAnswer(*response);
    };
    client_->send(std::move(request));
  }
  void OnAnswer(const Response& response) {
    if (response.success && response.body.size() == kAnswerSize) ++whole_;
    if (unsent_ > 0) {
      --unsent_;
      Send();
    }
    if (--unanswered_ == 0) done_.Put(true);
  }

  const std::string url_;
  const std::size_t in_flight_;
  // Not locked: set before the first request is sent, then touched on the client's thread only,
  // until that has put `done_`.
  std::size_t unsent_ = 0;
  std::size_t unanswered_ = 0;
  std::size_t whole_ = 0;
  Mailbox<bool> done_;
  const std::shared_ptr<WQBASE::network::HttpClientEx> client_ =
      std::make_shared<WQBASE::network::HttpClientEx>();
};

// A libcurl handle that is set up once and fills the same buffer each time.
class ReusedHandle {
 public:
  explicit ReusedHandle(const std::string& url) : easy_(curl_easy_init()) {
    curl_easy_setopt(easy_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy_, CURLOPT_PRIVATE, this);
    curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy_, CURLOPT_TIMEOUT_MS, 30'000L);
    curl_easy_setopt(easy_, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(easy_, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(easy_, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(easy_, CURLOPT_CAINFO, nullptr);  // Loads no authorities.
    curl_easy_setopt(easy_, CURLOPT_CAPATH, nullptr);
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, Append);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, &body_);
  }
  ~ReusedHandle() { curl_easy_cleanup(easy_); }
  ReusedHandle(const ReusedHandle&) = delete;
  ReusedHandle& operator=(const ReusedHandle&) = delete;

  CURL* get() const { return easy_; }
  void Clear() { body_.clear(); }
  bool IsWhole(CURLcode result) const {
    long status = 0;
    curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
    return result == CURLE_OK && status == 200 && body_.size() == kAnswerSize;
  }

 private:
  static std::size_t Append(char* data, std::size_t size, std::size_t count, void* body) {
    static_cast<std::string*>(body)->append(data, size * count);
    return size * count;
  }

  std::string body_;
  CURL* const easy_;
};

// One transfer after the other, on the caller's thread.
class CurlEasy {
 public:
  CurlEasy(const std::string& url, std::size_t /*in_flight*/) : handle_(url) {}

  std::size_t GetAll(std::size_t count) {
    std::size_t whole = 0;
    for (std::size_t i = 0; i < count; ++i) {
      handle_.Clear();
      if (handle_.IsWhole(curl_easy_perform(handle_.get()))) ++whole;
    }
    return whole;
  }

 private:
  ReusedHandle handle_;
};

// One loop for all transfers, on the caller's thread. With `kWaits`, transfers wait for a
// connection that is being opened if it may turn out to carry several.
template <bool kWaits>
class CurlMultiLoop {
 public:
  CurlMultiLoop(const std::string& url, std::size_t in_flight) : multi_(curl_multi_init()) {
    for (std::size_t i = 0; i < in_flight; ++i) {
      const auto& handle = handles_.emplace_back(std::make_unique<ReusedHandle>(url));
      curl_easy_setopt(handle->get(), CURLOPT_PIPEWAIT, kWaits ? 1L : 0L);
    }
  }
  ~CurlMultiLoop() {
    for (const auto& handle : handles_) curl_multi_remove_handle(multi_, handle->get());
    handles_.clear();
    curl_multi_cleanup(multi_);
  }
  CurlMultiLoop(const CurlMultiLoop&) = delete;
  CurlMultiLoop& operator=(const CurlMultiLoop&) = delete;

  std::size_t GetAll(std::size_t count) {
    Begin(count);
    while (unanswered_ > 0) Work();
    return whole_;
  }

  void Begin(std::size_t count) {
    const std::size_t at_once = std::min(handles_.size(), count);
    whole_ = 0;
    unanswered_ = count;
    unsent_ = count - at_once;
    for (std::size_t i = 0; i < at_once; ++i) Add(*handles_[i]);
  }

  void Work() {
    int running = 0;
    curl_multi_perform(multi_, &running);
    if (!TakeFinished()) curl_multi_poll(multi_, nullptr, 0, kPatienceMs, nullptr);
  }

 private:
  static constexpr int kPatienceMs = 10;  // Far more than an answer takes.

  void Add(ReusedHandle& handle) {
    handle.Clear();
    curl_multi_add_handle(multi_, handle.get());
  }
  bool TakeFinished() {
    bool some = false;
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
      OnFinished(message->easy_handle, message->data.result);
      some = true;
    }
    return some;
  }
  void OnFinished(CURL* easy, CURLcode result) {
    ReusedHandle* handle = nullptr;
    curl_easy_getinfo(easy, CURLINFO_PRIVATE, &handle);
    curl_multi_remove_handle(multi_, easy);
    if (handle->IsWhole(result)) ++whole_;
    --unanswered_;
    if (unsent_ == 0) return;
    --unsent_;
    Add(*handle);
  }

  CURLM* const multi_;
  std::vector<std::unique_ptr<ReusedHandle>> handles_;
  std::size_t unsent_ = 0;
  std::size_t unanswered_ = 0;
  std::size_t whole_ = 0;
};

using CurlMulti = CurlMultiLoop<false>;
using CurlMultiWaiting = CurlMultiLoop<true>;

}  // namespace tarvel_bench
