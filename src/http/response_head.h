// The response-head parser on its own: it reads only the bytes it is given and touches no
// request, so it can be tested and fuzzed by itself.
#pragma once
#include "runtime/text.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

using HttpHeaders = std::map<std::wstring, std::wstring, NoCaseLess>;

struct ResponseHead {
    uint32_t status = 0;
    HttpHeaders headers;          // names and values trimmed; a repeated name keeps its last value
    int64_t expected = INT64_MAX;  // "Content-Length", or INT64_MAX without one
    bool deflate = false;
    bool chunked = false;
};

// 0 while "\r\n\r\n" has not arrived, -1 for a response that is refused (bad status line, a line
// without ':', a "Content-Length" that does not print back as itself, "deflate", "chunked"),
// otherwise the number of bytes the head took.
int64_t ParseResponseHead(const char* bytes, size_t count, ResponseHead& head);
