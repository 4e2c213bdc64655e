#include "network/http_client.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <utility>

#include "tests/support/event.h"
#include "tests/support/http_server.h"

namespace {

using namespace std::string_literals;
using namespace test_support;
using WQBASE::network::HttpClientEx;
using WQBASE::network::HttpRequestUser;
using WQBASE::network::HttpResponseUser;

TEST(HttpClientTest, HandsOverOnItsThreadTheResponseOfARequestThatWasSentBeforeTheStart) {
  HttpServer server;
  server.Answer("/", [](const SeenRequest&) {
    return ServerAnswer{404, {{"A", "1"}}, std::string("a\0b", 3)};
  });
  const auto client = std::make_shared<HttpClientEx>();
  client->Connect<>(zo_base::SIG_InternalBegin, [&] { client->init(); });
  Event done;
  const auto request = std::make_shared<HttpRequestUser>();
  request->url = server.url("/");
  request->callback = [&](const std::shared_ptr<HttpResponseUser>& response, std::int32_t code) {
    EXPECT_TRUE(client->IsCurrentThread());
    EXPECT_EQ(code, 0);
    EXPECT_EQ(response->request, request.get());
    EXPECT_FALSE(response->success);
    EXPECT_EQ(response->status, 404);
    EXPECT_EQ(response->headers.front(), std::pair("A"s, "1"s));
    EXPECT_THAT(response->body, testing::ElementsAre('a', '\0', 'b'));
    EXPECT_EQ(response->body_text, "a");  // As C code would read it.
    done.Set();
  };
  client->send(request);
  EXPECT_EQ(HttpRequestUser().id, request->id + 1);
  client->Start();
  EXPECT_TRUE(done.Await());
  client->Stop();
}

TEST(HttpClientTest, DropsRequestsWithoutARequestor) {
  const auto without = std::make_shared<HttpClientEx>([](HttpClientEx&) { return nullptr; });
  without->Connect<>(zo_base::SIG_InternalBegin, [&] { without->init(); });
  const auto request = std::make_shared<HttpRequestUser>();
  request->callback = [](const auto&, std::int32_t) { ADD_FAILURE(); };
  without->send(request);
  Event later;
  without->PostTask([&] { later.Set(); });
  without->Start();
  EXPECT_TRUE(later.Await());
  without->Stop();
}

}  // namespace
