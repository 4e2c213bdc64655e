#pragma once

#include <curl/curl.h>

namespace WQBASE::network {

// The client's children must inherit none of the transport's descriptors. Sockets to servers are
// opened by us, with the flag. libcurl opens two kinds of socket pairs by itself, without it: one
// for each multi handle, and one for each lookup of a name. These functions find them.
//
// A pair is told by what passes through it at our command, so that no descriptor of the client is
// touched. A child that is forked in the moment between the opening and the marking inherits it.

// Opens a socket that children don't inherit, for CURLOPT_OPENSOCKETFUNCTION.
curl_socket_t OpenSocket(void* unused, curlsocktype purpose, curl_sockaddr* address);

// Marks the pair that curl_multi_wakeup writes to. No transfer may have been added yet.
void MarkWakeupPair(CURLM* multi);

// Marks `socket`, which libcurl has told us to watch, and its partner, unless we opened it
// ourselves.
void MarkWatchedSocket(curl_socket_t socket);

}  // namespace WQBASE::network
