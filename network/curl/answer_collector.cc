#include "network/curl/answer_collector.h"

#include "network/curl/header_list.h"

namespace WQBASE::network {
namespace {

// "HTTP/1.1 103 Early Hints"
bool IsInterim(std::string_view status_line) {
  const auto blank = status_line.find(' ');
  return blank != std::string_view::npos && status_line.substr(blank + 1).starts_with('1');
}

}  // namespace

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
  next_ = Next::kStatusLine;
  error.clear();
}

// libcurl takes any count but the one it gave for a failure.
std::size_t AnswerCollector::OnHeader(char* data, std::size_t size, std::size_t count,
                                      void* collector) {
  const std::string_view line(data, size * count);
  auto* const self = static_cast<AnswerCollector*>(collector);
  self->header_bytes += line.size();
  if (self->header_bytes > kLongestHeaders) {
    self->error = "The answer's headers are longer than 262144 bytes";
    return 0;
  }
  self->TakeHeaderLine(line);
  return line.size();
}

std::size_t AnswerCollector::OnBody(char* data, std::size_t size, std::size_t count,
                                    void* collector) {
  const std::string_view bytes(data, size * count);
  return static_cast<AnswerCollector*>(collector)->TakeBody(bytes) ? bytes.size() : 0;
}

void AnswerCollector::TakeHeaderLine(std::string_view line) {
  switch (next_) {
    case Next::kStatusLine:
      headers.clear();
      is_interim_ = IsInterim(line);
      next_ = Next::kHeader;
      break;
    case Next::kHeader:
      if (line == "\r\n" || line == "\n") {
        next_ = is_interim_ ? Next::kStatusLine : Next::kTrailer;
      } else {
        AppendHeaderLine(headers, line);
      }
      break;
    case Next::kTrailer:
      break;
  }
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
