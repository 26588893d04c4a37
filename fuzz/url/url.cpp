// Fuzz target of the URL parser: the input decoded from UTF-8; an accepted URL must hold a port
// in range and a request target that is its path, then its query after the first '?'. (The host
// may be empty after its port is split off, as in "http://:80/": emptiness is checked first.)
#include "http/url.h"
#include "runtime/text.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    HttpUrl url;
    if (!url.Parse(Utf8ToWide(reinterpret_cast<const char*>(data), static_cast<ptrdiff_t>(size))))
        return 0;
    std::wstring joined = url.query.empty() && url.pathAndQuery.find(L'?') == std::wstring::npos
                              ? url.path
                              : url.path + L"?" + url.query;
    if (url.pathAndQuery.empty() || joined != url.pathAndQuery || url.port > 65535) {
        std::fprintf(stderr, "url: accepted with an inconsistent record\n");
        std::abort();
    }
    return 0;
}
