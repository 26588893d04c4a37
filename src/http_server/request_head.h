// The request-head reader of a small file server: it reads only the bytes it is given, as they
// arrive, and says whether the head is still incomplete, complete, or refused with which status.
#pragma once
#include "http/response_head.h"

#include <cstddef>
#include <cstdint>
#include <string>

struct RequestHead {
    std::string method;   // "GET" or "HEAD"
    std::string target;   // as sent: "/" and the path, perhaps a query; visible ASCII only
    uint32_t minorVersion = 0;  // HTTP/1.x
    HttpHeaders headers;  // names as sent, values without surrounding blanks; the last of a repeated name
    uint32_t refusal = 0;  // the status of a refused head
};

// Longest request line (without its CRLF) and longest head (with its closing blank line), in bytes.
constexpr size_t kMaxRequestLine = 8192;
constexpr size_t kMaxRequestHead = 8192;

// 0 while the head has not all arrived; the head's length in bytes once "\r\n\r\n" has; -1 for a
// refused head, with the status in head.refusal. Lines end with CRLF only: a CR or LF on its own
// is refused at once. The rules in the order the head is read, so the first broken one decides:
// - 414: the request line is longer than kMaxRequestLine;
// - 400: the request line is not method SP target SP "HTTP/" digit "." digit, the method not a
//   token, or the target not visible ASCII;
// - 505: a version other than 1.x;
// - 405: a method other than GET and HEAD (case-sensitive);
// - 400: a target that does not start with '/' or holds a '%' without two hexadecimal digits;
// - 431: the head does not end within kMaxRequestHead;
// - 400: a header line that is not token ":" value (no blank before the colon, no folded line,
//   no control character in the value), a second Host, and at the end no Host in HTTP/1.1.
// The request line is judged as soon as it is complete, each header line likewise. A body is
// never read: the server answers one request per connection and then closes it.
int64_t ParseRequestHead(const char* bytes, size_t count, RequestHead& head);
