#include "tarvel/http_agent/http_tools/http_tool.h"

#include <atomic>
#include <utility>

#include "base/log/log.h"
#include "base/text/strings.h"
#include "base/thread/thread_info.h"
#include "network/url/url.h"

namespace zo_tarvel {
namespace {

using zo_base::TrueOrFalse;

namespace network = WQBASE::network;
using network::HttpRequestUser;
using network::HttpResponseUser;

std::atomic<HttpClientGetter> client_getter{nullptr};

std::shared_ptr<network::HttpClientEx> Client() {
  const auto getter = client_getter.load(std::memory_order_acquire);
  return getter == nullptr ? nullptr : getter();
}

// Which host a request is for, and how its URL reaches that host.
struct Target {
  explicit Target(const HttpRequest& request)
      : url(request.url), host(request.host.empty() ? url.host() : request.host) {}

  bool wants_sni() const { return url.is_on_ip() && url.is_https(); }

  const network::Url& url;
  const std::string host;
};

std::int32_t PortOf(const network::Url& url) {
  if (const std::int32_t port = url.port(); port != 0) return port;
  return url.is_https() ? 443 : 80;
}

std::shared_ptr<HttpRequestUser> ToClientRequest(const HttpRequest& request, const Target& target) {
  auto result = std::make_shared<HttpRequestUser>();
  result->setUrl(request.url.text());
  result->setMethod(request.type == 0 ? network::kMethodGet : network::kMethodPost);
  result->setTimeOut(request.time_out);
  auto headers = network::Headers::FromLines(request.headers);
  if (!headers.Has("Host")) headers.Add("Host", target.host);
  result->setHeaders(std::move(headers));
  if (target.url.is_on_ip()) {
    result->setIP(std::string(target.url.host()));
    result->setPort(PortOf(target.url));
    result->setHost(target.host);
  }
  if (target.wants_sni()) result->setSNI(true);
  if (result->method == network::kMethodPost) {
    result->setBody(zo_base::BytesOf(request.body));
  }
  return result;
}

void LogRequest(const HttpRequestUser& request, const Target& target) {
  if (zo_base::GetLogWriterFor(zo_base::kLogApp) == nullptr) return;
  std::string text;
  const auto line = [&text](const std::string& content) { text.append(content).append("\r\n"); };
  line("url:" + request.url);
  line(std::string("type:") + network::VerbOf(request.method));
  line("time_out:" + std::to_string(request.time_out));
  line("host_from tarvel:" + target.host);
  line(std::string("host_is_ip:") + TrueOrFalse(target.url.is_on_ip()));
  line(std::string("is_https_url:") + TrueOrFalse(target.url.is_https()));
  if (target.url.is_on_ip()) {
    line("host_is_ip is true && host not empty set request host and port \r\n{");
    line("    call req->setIP:" + request.ip);
    line("    call req->setPort:" + std::to_string(request.port));
    line("    call req->setHost:" + request.host);
    line("}");
  }
  if (target.wants_sni()) line("call req->setSNI:true");
  line("Heads:");
  for (const auto& [name, value] : request.headers) {
    text.append("    ").append(name).append(":").append(value).append("\r\n");
  }
  ZO_LOG << "[http tool]Post request to http lib info:\r\n" << text;
}

// The client has cut the texts at their first NUL.
void Deliver(const HttpRequest::Callback& callback, const HttpResponseUser& response) {
  if (!callback) return;
  const auto status = static_cast<std::int32_t>(response.status);
  const std::string headers = response.headers.ToText();
  if (!response.body_text.empty()) {
    callback(status, headers, response.body_text);
  } else if (response.success) {
    callback(status, headers, std::string(zo_base::TextIn(response.body)));
  } else {
    callback(status, headers, response.error_text);
  }
}

}  // namespace

void HttpTool::PostRequest(const HttpRequest& request,
                           const std::weak_ptr<zo_base::ITaskLoop>& caller_loop) {
  const Target target(request);
  const auto client_request = ToClientRequest(request, target);
  LogRequest(*client_request, target);
  client_request->callback = [callback = request.callback, caller_loop](
                                 const std::shared_ptr<HttpResponseUser>& response, std::int32_t) {
    if (const auto loop = caller_loop.lock()) {
      loop->PostTask([callback, response] { Deliver(callback, *response); });
    } else {
      Deliver(callback, *response);
    }
  };
  const auto client = Client();
  const auto failure = std::make_shared<HttpResponseUser>();
  failure->error_text = client == nullptr ? "No HTTP client" : client->StartIfPossible();
  if (failure->error_text.empty()) {
    client->send(client_request);
  } else {
    client_request->callback(failure, 0);
  }
}

void SetHttpClientGetter(HttpClientGetter getter) {
  client_getter.store(getter, std::memory_order_release);
}

}  // namespace zo_tarvel
