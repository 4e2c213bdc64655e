#include "network/http_client.h"

#include <gmock/gmock.h>

#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/event.h"

namespace {

using namespace std::string_literals;
using test_support::Event;
using WQBASE::network::HttpClientEx;
using WQBASE::network::HttpRequest;
using WQBASE::network::HttpRequestUser;
using WQBASE::network::HttpResponse;
using WQBASE::network::HttpResponseUser;
using WQBASE::network::IHttpRequestor;

// Keeps what it is sent, for the test to complete.
class HeldRequestor final : public IHttpRequestor {
 public:
  void Send(std::shared_ptr<const HttpRequest>, Completion completion) override {
    completion_ = std::move(completion);
    sent_.Set();
  }
  void RetireConnections() override {}

  [[nodiscard]] bool AwaitSent() { return sent_.Await(); }
  [[nodiscard]] bool Complete(const HttpResponse& response) {
    if (!AwaitSent()) return false;
    completion_(std::make_shared<HttpResponse>(response));
    return true;
  }

 private:
  Event sent_;
  Completion completion_;
};

class HttpClientTest : public testing::Test {
 protected:
  ~HttpClientTest() override { client_->Stop(); }

  void Start() {
    client_->Connect<>(zo_base::SIG_InternalBegin, [this] { client_->init(); });
    client_->Start();
  }
  // A request that notes what it is told.
  std::shared_ptr<HttpRequestUser> Request() {
    auto request = std::make_shared<HttpRequestUser>();
    request->callback = [this](const std::shared_ptr<HttpResponseUser>& response,
                               std::int32_t code) {
      EXPECT_TRUE(client_->IsCurrentThread());
      EXPECT_EQ(code, 0);
      response_ = response;
      id_ = response->request->id;
      done_.Set();
    };
    return request;
  }

  const std::shared_ptr<HeldRequestor> requestor_ = std::make_shared<HeldRequestor>();
  std::shared_ptr<IHttpRequestor> created_ = requestor_;
  const std::shared_ptr<HttpClientEx> client_ =
      std::make_shared<HttpClientEx>([this](HttpClientEx&) { return created_; });
  Event done_;
  std::shared_ptr<HttpResponseUser> response_;
  std::uint64_t id_ = 0;
};

TEST_F(HttpClientTest, NumbersRequestsInARow) {
  const HttpRequestUser first;
  const HttpRequest second;
  EXPECT_EQ(second.id, first.id + 1);
  EXPECT_GE(first.id, 1U);
}

TEST_F(HttpClientTest, HandsOverAResponseOfARequestThatWasSentBeforeTheStart) {
  const auto request = Request();
  client_->send(request);
  Start();
  HttpResponse response;
  response.status = 404;
  response.headers = {{"A", "x\0y"s}, {"A", "2"}};
  response.body = {'a', 0, 'b'};
  response.body_text = "a\0b"s;
  response.error_text = "e\0f"s;
  ASSERT_TRUE(requestor_->Complete(response));
  ASSERT_TRUE(done_.Await());
  EXPECT_EQ(id_, request->id);
  EXPECT_FALSE(response_->success);
  EXPECT_EQ(response_->status, 404);
  EXPECT_EQ(response_->headers, response.headers);
  EXPECT_EQ(response_->body, response.body);
  EXPECT_EQ(response_->body_text, "a");
  EXPECT_EQ(response_->error_text, "e");
}

TEST_F(HttpClientTest, CallsNobodyAfterItsStop) {
  Start();
  client_->send(Request());
  ASSERT_TRUE(requestor_->AwaitSent());
  client_->Stop();
  ASSERT_TRUE(requestor_->Complete({}));
  EXPECT_EQ(response_, nullptr);
}

TEST_F(HttpClientTest, DropsRequestsWithoutARequestor) {
  created_ = nullptr;
  Start();
  client_->send(Request());
  Event later;
  client_->PostTask([&] { later.Set(); });
  ASSERT_TRUE(later.Await());
  client_->Stop();
  EXPECT_EQ(response_, nullptr);
}

}  // namespace
