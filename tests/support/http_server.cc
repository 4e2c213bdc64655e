#include "tests/support/http_server.h"

#include <strings.h>

#include <sstream>

namespace test_support {

namespace {

SeenRequest Parse(const std::string& text) {
  const std::size_t head_end = text.find("\r\n\r\n") + 2;
  SeenRequest seen;
  std::istringstream lines(text.substr(0, head_end));
  std::string line;
  std::getline(lines, line);
  std::istringstream(line) >> seen.method >> seen.target;
  while (std::getline(lines, line)) {
    line.pop_back();  // The carriage return.
    const std::size_t colon = line.find(':');
    const std::size_t value = line.find_first_not_of(" \t", colon + 1);
    seen.headers.emplace_back(line.substr(0, colon),
                              value == std::string::npos ? "" : line.substr(value));
  }
  seen.body = text.substr(head_end + 2);
  return seen;
}

}  // namespace

std::string SeenRequest::header(std::string_view name) const {
  for (const auto& [own_name, value] : headers) {
    if (own_name.size() == name.size() &&
        strncasecmp(own_name.data(), name.data(), name.size()) == 0) {
      return value;
    }
  }
  return {};
}

HttpServer::HttpServer(const std::string& address)
    : server_([this](RawConnection& connection) { Converse(connection); }, address) {}

void HttpServer::Answer(const std::string& path, Handler handler) {
  const std::lock_guard lock(mutex_);
  handlers_[path] = std::move(handler);
}

std::vector<SeenRequest> HttpServer::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

void HttpServer::Converse(RawConnection& connection) {
  std::string text;
  while ((text = connection.ReadRequest()).find("\r\n\r\n") != std::string::npos) {
    const SeenRequest seen = Parse(text);
    const ServerAnswer answer = Record(seen)(seen);
    std::string headers;
    for (const auto& [name, value] : answer.headers) headers += name + ": " + value + "\r\n";
    connection.Send(HttpAnswer(std::to_string(answer.status) + " Said", answer.body, headers));
  }
}

// Its handler.
HttpServer::Handler HttpServer::Record(const SeenRequest& seen) {
  const std::lock_guard lock(mutex_);
  requests_.push_back(seen);
  const auto found = handlers_.find(seen.target.substr(0, seen.target.find('?')));
  if (found != handlers_.end()) return found->second;
  return [](const SeenRequest& request) { return ServerAnswer{200, {}, request.body}; };
}

}  // namespace test_support
