#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "network/http/http_request.h"

namespace WQBASE::network {

// The limits of an answer. One that exceeds them ends the transfer: a hostile server must not
// exhaust the client's memory.
inline constexpr std::size_t kLongestBody = std::size_t{8} * 1024 * 1024;  // Decoded.
inline constexpr std::size_t kLongestHeaders =
    std::size_t{256} * 1024;  // Of one hop, with interim answers.
// Beside "identity" and "chunked", of one hop, with interim answers, whose decoders libcurl keeps.
// kLongestBody limits only what the last decoder writes: with two of them, a few kilobytes could
// inflate to gigabytes inside one call of libcurl, while all other transfers wait.
inline constexpr std::size_t kMostCodings = 1;

// Takes in the answer of one hop.
//
// Threads: the transport's. Ownership: one in each transfer; outlives its use by the easy handle.
class AnswerCollector {
 public:
  // Has `easy` deliver to this.
  void Attach(CURL* easy);
  void Clear();

  // Whether the head of the last answer has been received to its end.
  bool has_whole_head() const { return next_ == Next::kTrailer; }

  Headers headers;  // Of the last answer, without trailers.
  std::vector<std::uint8_t> body;
  std::size_t header_bytes = 0;
  std::string error;  // Set when the answer exceeded a limit.

 private:
  enum class Next { kStatusLine, kHeader, kTrailer };

  static std::size_t OnHeader(char* data, std::size_t size, std::size_t count, void* collector);
  static std::size_t OnBody(char* data, std::size_t size, std::size_t count, void* collector);
  void TakeHeaderLine(std::string_view line);
  void TakeHeader(std::string_view line);
  bool TakeBody(std::string_view bytes);

  CURL* easy_ = nullptr;
  Next next_ = Next::kStatusLine;
  std::size_t codings_ = 0;
  bool is_interim_ = false;  // A better answer will follow.
};

}  // namespace WQBASE::network
