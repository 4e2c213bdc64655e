#include "bench/curl_walk.h"

#include <curl/curl.h>

#include <chrono>
#include <cstddef>
#include <list>
#include <memory>
#include <thread>

namespace tarvel_bench {
namespace {

using Clock = std::chrono::steady_clock;

// One request. None checks the server's certificate.
class Get {
 public:
  Get(const std::string& url, const std::string& doh_url) {
    curl_easy_setopt(easy(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy(), CURLOPT_TIMEOUT_MS, kTimeOutMs);
    curl_easy_setopt(easy(), CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(easy(), CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(easy(), CURLOPT_WRITEDATA, &body_);
    curl_easy_setopt(
        easy(), CURLOPT_WRITEFUNCTION, +[](char* data, std::size_t size, std::size_t n, void* to) {
          static_cast<std::string*>(to)->append(data, size * n);
          return size * n;
        });
    if (doh_url.empty()) return;
    curl_easy_setopt(easy(), CURLOPT_DOH_URL, doh_url.c_str());
    curl_easy_setopt(easy(), CURLOPT_DOH_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(easy(), CURLOPT_DOH_SSL_VERIFYHOST, 0L);
  }

  CURL* easy() const { return easy_.get(); }
  bool IsGoodAfter(CURLcode result) const {
    long status = 0;
    curl_easy_getinfo(easy(), CURLINFO_RESPONSE_CODE, &status);
    return result == CURLE_OK && IsGood(status, body_);
  }

 private:
  std::string body_;
  const std::unique_ptr<CURL, void (*)(CURL*)> easy_{curl_easy_init(), curl_easy_cleanup};
};

class Walk {
 public:
  Walk(const std::vector<std::string>& urls, const std::string& doh_url)
      : urls_(urls), doh_url_(doh_url) {}
  ~Walk() {
    for (const Get& get : gets_) curl_multi_remove_handle(multi_.get(), get.easy());
  }
  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;

  bool FindGood() {
    StartNext();
    while (unfinished_ > 0 || next_ < urls_.size()) {
      int running = 0;
      curl_multi_perform(multi_.get(), &running);
      if (TakeGood()) return true;
      if (next_ < urls_.size() && Clock::now() >= next_start_) StartNext();
      curl_multi_poll(multi_.get(), nullptr, 0, kLookMs, nullptr);
    }
    return false;
  }

 private:
  static constexpr int kLookMs = 10;

  void StartNext() {
    if (next_ == urls_.size()) return;
    curl_multi_add_handle(multi_.get(), gets_.emplace_back(urls_[next_++], doh_url_).easy());
    ++unfinished_;
    next_start_ = Clock::now() + std::chrono::milliseconds(kHeadStartMs);
  }
  bool TakeGood() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
      for (const Get& get : gets_) {
        if (get.easy() == message->easy_handle && get.IsGoodAfter(message->data.result))
          return true;
      }
      --unfinished_;
      StartNext();
    }
    return false;
  }

  const std::vector<std::string>& urls_;
  const std::string& doh_url_;
  std::size_t next_ = 0;
  int unfinished_ = 0;
  Clock::time_point next_start_;
  const std::unique_ptr<CURLM, CURLMcode (*)(CURLM*)> multi_{curl_multi_init(), curl_multi_cleanup};
  std::list<Get> gets_;  // Before `multi_` ends.
};

}  // namespace

bool IsGood(long status, const std::string& body) { return status == 200 && !body.empty(); }

bool WalkWithMulti(const std::vector<std::string>& urls, const std::string& doh_url) {
  return Walk(urls, doh_url).FindGood();
}

bool GetDownTheList(const std::vector<std::string>& urls, int tries) {
  for (const std::string& url : urls) {
    std::chrono::seconds pause{1};
    for (int left = tries; left > 0; --left) {
      const Get get(url, "");
      if (get.IsGoodAfter(curl_easy_perform(get.easy()))) return true;
      if (left == 1) break;
      std::this_thread::sleep_for(pause);
      pause *= 2;
    }
  }
  return false;
}

}  // namespace tarvel_bench
