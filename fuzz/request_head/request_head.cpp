// Fuzz target of the share peer's request reader: the input is the request as received, in a block
// of exactly its size. A complete head ends with its blank line within the head limit, is GET or
// HEAD with a target starting with '/', and the name taken from that target is empty or safe to
// join to the shared folder. An incomplete head has no blank line and no over-long request line; a
// refused one carries one of the statuses the reader documents.
#include "http_server/request_head.h"
#include "runtime/safe_name.h"
#include "http_server/target.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace {

[[noreturn]] void Fail(const char* what)
{
    std::fprintf(stderr, "request head: %s\n", what);
    std::abort();
}

bool DocumentedRefusal(uint32_t status)
{
    return status == 400 || status == 405 || status == 414 || status == 431 || status == 505;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    auto bytes = std::make_unique<char[]>(size);
    if (size)
        std::memcpy(bytes.get(), data, size);
    std::string_view received(bytes.get(), size);
    RequestHead head;
    int64_t used = ParseRequestHead(bytes.get(), size, head);
    if (used < 0) {
        if (used != -1 || !DocumentedRefusal(head.refusal))
            Fail("a refusal with an undocumented result");
        return 0;
    }
    if (head.refusal != 0)
        Fail("a refusal status on a head not refused");
    if (used == 0) {
        if (received.find("\r\n\r\n") != std::string_view::npos)
            Fail("an incomplete head holding its blank line");
        if (size > kMaxRequestLine + 1 && received.find("\r\n") == std::string_view::npos)
            Fail("an over-long request line still awaited");
        return 0;
    }
    if (static_cast<size_t>(used) > kMaxRequestHead || received.substr(static_cast<size_t>(used) - 4, 4) != "\r\n\r\n" ||
        received.find("\r\n\r\n") != static_cast<size_t>(used) - 4)
        Fail("a head that does not end at its first blank line");
    if ((head.method != "GET" && head.method != "HEAD") || head.target.empty() || head.target[0] != '/')
        Fail("an accepted head with a refused method or target");
    std::wstring name = NameFromTarget(head.target);
    if (!name.empty() && (!IsSafeRelativeName(name) || name.find(L'/') != std::wstring::npos))
        Fail("a target that names an unsafe file");
    return 0;
}
