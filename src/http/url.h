// HttpUrl: a URL split into the flat record the HTTP client reads (host, port, request target).
// A deliberately small parser: no user-info, fragments, percent-decoding or bracketed IPv6.
#pragma once
#include "runtime/text.h"

#include <cstdint>
#include <map>
#include <string>

struct HttpUrl {
    std::wstring url;           // the text as given
    std::wstring scheme;        // up to and including "://", lower case; empty without one
    std::wstring host;          // lower case, without the port
    uint32_t port = 0;          // explicit, or 80/443/21 from the scheme, else 0
    std::wstring pathAndQuery;  // the request target, at least "/"
    std::wstring path;          // pathAndQuery before the first '?'
    std::wstring query;         // pathAndQuery after the first '?'
    std::map<std::wstring, std::wstring, NoCaseLess> queryParams;

    // Clears the record and fills it from `text`; false when the URL cannot be used
    // (the fields filled so far are then kept).
    bool Parse(std::wstring text);
    void Clear();
};
