#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "network/http_request.h"

namespace WQBASE::network {

// What a server may send at most. More ends the transfer: an answer is a server's word, and memory
// is the client's.
inline constexpr std::size_t kLongestBody = std::size_t{8} * 1024 * 1024;  // Decoded.
inline constexpr std::size_t kLongestHeaders =
    std::size_t{256} * 1024;  // Of one hop, with interim answers.

// Takes in the answer of one hop.
//
// Threads: the transport's. Ownership: one in each transfer; outlives its use by the easy handle.
class AnswerCollector {
 public:
  // Has `easy` deliver to this.
  void Attach(CURL* easy);
  void Clear();

  HeaderList headers;  // Of the last answer, without trailers.
  std::vector<std::uint8_t> body;
  std::size_t header_bytes = 0;
  std::string error;  // Set when the answer was too large.

 private:
  enum class Next { kStatusLine, kHeader, kTrailer };

  static std::size_t OnHeader(char* data, std::size_t size, std::size_t count, void* collector);
  static std::size_t OnBody(char* data, std::size_t size, std::size_t count, void* collector);
  void TakeHeaderLine(std::string_view line);
  bool TakeBody(std::string_view bytes);

  Next next_ = Next::kStatusLine;
  bool is_interim_ = false;  // A better answer will follow.
};

}  // namespace WQBASE::network
