#pragma once

#include <curl/curl.h>

namespace WQBASE::network {

// The client's children must inherit none of the transport's descriptors. Sockets to servers are
// opened by us, with the flag. libcurl opens two kinds of socket pairs by itself, without it: one
// for each multi handle, and one for each lookup of a name. These functions find them.
//
// A pair is told by what passes through it at our command, so that no descriptor of the client is
// touched. A child that is forked in the moment between the opening and the marking inherits it.

// Opens a socket to a server.
curl_socket_t OpenSocket(const curl_sockaddr& address);

// curl_multi_init, with the pair that curl_multi_wakeup writes to.
CURLM* OpenMulti();

// Marks `socket`, which libcurl has told us to watch, and its partner, unless we opened it
// ourselves.
void MarkWatchedSocket(curl_socket_t socket);

}  // namespace WQBASE::network
