#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "network/http/headers.h"

namespace WQBASE::network {

// Collects the answer of one hop, within the limits of a transfer. Two codings would be decoded
// inside one call of libcurl, while all other transfers wait.
//
// Threads: the transport's only. Ownership: part of a transfer; must outlive the easy handle's use
// of it.
class AnswerCollector {
 public:
  // Forgets the answer before, and makes `easy` deliver the next one here.
  void Attach(CURL* easy);

  // Whether the whole head of the final answer has come.
  bool has_whole_head() const { return next_ == Next::kTrailer; }

  Headers headers;  // Of the last answer, without trailers.
  std::vector<std::uint8_t> body;
  std::size_t header_bytes = 0;
  std::string error;  // Set when a limit was exceeded.

 private:
  enum class Next { kStatusLine, kHeader, kTrailer };

  static std::size_t OnHeader(char* data, std::size_t size, std::size_t count, void* collector);
  static std::size_t OnBody(char* data, std::size_t size, std::size_t count, void* collector);
  void TakeHeaderLine(std::string_view line);

  CURL* easy_ = nullptr;
  Next next_ = Next::kStatusLine;
  std::size_t codings_ = 0;
  bool is_interim_ = false;  // The answer has a status 1xx; another one follows.
};

}  // namespace WQBASE::network
