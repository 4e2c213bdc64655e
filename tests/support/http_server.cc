#include "tests/support/http_server.h"

#include <strings.h>

#include <iterator>
#include <sstream>

namespace test_support {

namespace {

SeenRequest Parse(const std::string& text) {
  SeenRequest seen;
  std::istringstream in(text);
  std::string line, name;
  in >> seen.method >> seen.target;
  std::getline(in, line);
  while (std::getline(in, line) && line != "\r") {
    std::istringstream header(line);
    std::string value;
    std::getline(header, name, ':');
    std::getline(header >> std::ws, value, '\r');
    seen.headers.emplace_back(name, value);
  }
  seen.body.assign(std::istreambuf_iterator<char>(in), {});
  return seen;
}

}  // namespace

std::string SeenRequest::header(const std::string& name) const {
  for (const auto& [own_name, value] : headers) {
    if (strcasecmp(own_name.c_str(), name.c_str()) == 0) return value;
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
    const Handler handler = Record(seen);
    const ServerAnswer answer = handler ? handler(seen) : ServerAnswer{200, {}, seen.body};
    std::string headers;
    for (const auto& [name, value] : answer.headers) headers += name + ": " + value + "\r\n";
    connection.Send(HttpAnswer(std::to_string(answer.status) + " Said", answer.body, headers));
  }
}

HttpServer::Handler HttpServer::Record(const SeenRequest& seen) {
  const std::lock_guard lock(mutex_);
  requests_.push_back(seen);
  const auto found = handlers_.find(seen.target.substr(0, seen.target.find('?')));
  return found == handlers_.end() ? nullptr : found->second;
}

}  // namespace test_support
