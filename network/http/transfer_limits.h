#pragma once

#include <cstddef>
#include <string_view>

namespace WQBASE::network {

// The limits that every engine holds a server to. Exceeding one ends the transfer, since a hostile
// server must not exhaust the client's memory.

// A transfer follows at most so many redirects.
inline constexpr int kMostRedirects = 20;

// Of the answer to one request, before its redirect.
inline constexpr std::size_t kLongestBody = std::size_t{8} * 1024 * 1024;  // Decoded.
inline constexpr std::size_t kLongestHeaders = std::size_t{256} * 1024;    // With interim answers.
// Codings other than "identity" and "chunked", counted over all interim answers, as libraries may
// keep their decoders too. kLongestBody limits only what the last decoder writes: with two of them,
// a few kilobytes could inflate to gigabytes.
inline constexpr std::size_t kMostCodings = 1;

// How many codings a header of this name and value lists.
std::size_t CodingsIn(std::string_view name, std::string_view value);

}  // namespace WQBASE::network
