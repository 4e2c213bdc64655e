#include "network/curl/answer_collector.h"

#include "network/curl/header_list.h"

namespace WQBASE::network {

void AnswerCollector::Attach(CURL* easy) {
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, OnHeader);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, OnBody);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
}

void AnswerCollector::Clear() {
  headers.clear();
  body.clear();
  header_bytes = 0;
  error.clear();
}

// libcurl takes any count but the one it gave for a failure.
std::size_t AnswerCollector::OnHeader(char* data, std::size_t size, std::size_t count,
                                      void* collector) {
  const std::string_view line(data, size * count);
  return static_cast<AnswerCollector*>(collector)->TakeHeaderLine(line) ? line.size() : 0;
}

std::size_t AnswerCollector::OnBody(char* data, std::size_t size, std::size_t count,
                                    void* collector) {
  const std::string_view bytes(data, size * count);
  return static_cast<AnswerCollector*>(collector)->TakeBody(bytes) ? bytes.size() : 0;
}

bool AnswerCollector::TakeHeaderLine(std::string_view line) {
  header_bytes += line.size();
  if (header_bytes > kLongestHeaders) {
    error = "The answer's headers are longer than 262144 bytes";
    return false;
  }
  if (!body.empty()) return true;                  // A trailer.
  if (line.starts_with("HTTP/")) headers.clear();  // What came before was an interim answer.
  AppendHeaderLine(headers, line);
  return true;
}

bool AnswerCollector::TakeBody(std::string_view bytes) {
  if (bytes.size() > kLongestBody - body.size()) {
    error = "The answer's body is longer than 8388608 bytes";
    return false;
  }
  body.insert(body.end(), bytes.begin(), bytes.end());
  return true;
}

}  // namespace WQBASE::network
