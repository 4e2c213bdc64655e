#pragma once

#include <string>
#include <string_view>

#include "network/http/http_request.h"

namespace WQBASE::network {

// Operations on the headers of one message. Names compare without regard to case.

bool SameName(std::string_view a, std::string_view b);

// Replaces the first header of this name, or appends one.
void SetHeader(HeaderList& headers, const std::string& name, const std::string& value);
void RemoveHeader(HeaderList& headers, const std::string& name);
// The value of the first header of this name that has one; null when there is none.
const std::string* FindHeader(const HeaderList& headers, const std::string& name);

// Those of `headers` that may go out, each name once, with its last value. Left out, with a log
// line each, are those that would break the message: a name that is no token, a value with CR, LF
// or NUL, and the lengths, which are the transport's business.
HeaderList HeadersToSend(const HeaderList& headers);

// Adds a line of an answer's head to `headers`, or to the last of them when it continues that one.
// Returns the value in the line; empty for a line that is no header and adds nothing.
std::string_view AppendHeaderLine(HeaderList& headers, std::string_view line);

// Without the blanks and line ends around it.
std::string_view Trim(std::string_view text);

}  // namespace WQBASE::network
