#include "network/curl/answer_collector.h"

#include <algorithm>

#include "base/text/strings.h"

namespace WQBASE::network {
namespace {

// Of the status that libcurl has read, so that both agree on where the next head begins.
bool IsInterim(CURL* easy) {
  long status = 0;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  return status / 100 == 1;
}

bool ListsCodings(const std::string& name) {
  return zo_base::EqualIgnoringCase(name, "Content-Encoding") ||
         zo_base::EqualIgnoringCase(name, "Transfer-Encoding");
}

std::size_t CountCodings(std::string_view list) {
  const auto pieces = zo_base::Split(list, ",");
  return static_cast<std::size_t>(
      std::count_if(pieces.begin(), pieces.end(), [](const std::string& piece) {
        const std::string_view coding = zo_base::Trim(piece);
        return !coding.empty() && !zo_base::EqualIgnoringCase(coding, "identity") &&
               !zo_base::EqualIgnoringCase(coding, "chunked");
      }));
}

}  // namespace

void AnswerCollector::Attach(CURL* easy) {
  easy_ = easy;
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
  codings_ = 0;
  error.clear();
}

// libcurl takes any count but the one it gave for a failure.
std::size_t AnswerCollector::OnHeader(char* data, std::size_t size, std::size_t count,
                                      void* collector) {
  const std::string_view line(data, size * count);
  auto* const self = static_cast<AnswerCollector*>(collector);
  self->header_bytes += line.size();
  self->TakeHeaderLine(line);
  if (self->codings_ > kMostCodings) self->error = "The answer has more than one content coding";
  if (self->header_bytes > kLongestHeaders) {
    self->error = "The answer's headers are longer than 262144 bytes";
  }
  return self->error.empty() ? line.size() : 0;
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
      is_interim_ = IsInterim(easy_);
      next_ = Next::kHeader;
      break;
    case Next::kHeader:
      TakeHeader(line);
      break;
    case Next::kTrailer:
      break;
  }
}

// As in libcurl, a line that begins with a line end ends the head, whatever else is in it.
void AnswerCollector::TakeHeader(std::string_view line) {
  if (line.starts_with('\r') || line.starts_with('\n')) {
    next_ = is_interim_ ? Next::kStatusLine : Next::kTrailer;
    return;
  }
  const std::string_view value = headers.AddLine(line);
  if (!value.empty() && ListsCodings(headers.back().first)) codings_ += CountCodings(value);
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
