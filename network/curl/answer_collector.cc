#include "network/curl/answer_collector.h"

#include "network/http/transfer_limits.h"

namespace WQBASE::network {
namespace {

// Asks libcurl, so that both agree on where the next head begins.
bool IsInterim(CURL* easy) {
  long status = 0;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  return status / 100 == 1;
}

}  // namespace

void AnswerCollector::Attach(CURL* easy) {
  *this = {};
  easy_ = easy;
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, OnHeader);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, OnBody);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
}

// libcurl takes any other number than the line's size for a failure.
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
  auto* const self = static_cast<AnswerCollector*>(collector);
  if (bytes.size() > kLongestBody - self->body.size()) {
    self->error = "The answer's body is longer than 8388608 bytes";
    return 0;
  }
  const auto* const first = reinterpret_cast<const std::uint8_t*>(bytes.data());
  self->body.insert(self->body.end(), first, first + bytes.size());
  return bytes.size();
}

// As in libcurl, a line that begins with CR or LF ends the head, whatever else is in it.
void AnswerCollector::TakeHeaderLine(std::string_view line) {
  if (next_ == Next::kTrailer) return;
  if (next_ == Next::kStatusLine) {
    headers.clear();
    is_interim_ = IsInterim(easy_);
    next_ = Next::kHeader;
  } else if (line.starts_with('\r') || line.starts_with('\n')) {
    next_ = is_interim_ ? Next::kStatusLine : Next::kTrailer;
  } else {
    const std::string_view value = headers.AddLine(line);
    if (!value.empty()) codings_ += CodingsIn(headers.back().first, value);
  }
}

}  // namespace WQBASE::network
