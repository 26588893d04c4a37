// Fuzz target of the response-head parser and the framing of the body behind it. The first input
// byte says whether the request was HEAD (bit 0); the rest is the response as received, in a
// block of exactly its size. The head must end just past the first blank line and must not be
// complete one byte earlier (the receive loop parses every partial fill); the record must carry
// the announced length as printed or none. The body is then framed from the record as the body
// sink frames it: nothing for HEAD, the announced length copied into a block of exactly that
// size, or everything until the connection closes without one.
#include "http/response_head.h"

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
    std::fprintf(stderr, "response head: %s\n", what);
    std::abort();
}

// The largest announced body copied here: enough for every framing case, small for the fuzzer.
constexpr int64_t kCopyAtMost = 1 << 20;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    bool headOnly = data[0] & 1;
    size_t count = size - 1;
    auto bytes = std::make_unique<char[]>(count);
    if (count)
        std::memcpy(bytes.get(), data + 1, count);

    ResponseHead head;
    int64_t used = ParseResponseHead(bytes.get(), count, head);
    size_t blank = std::string_view(bytes.get(), count).find("\r\n\r\n");
    if (blank == std::string_view::npos) {
        if (used != 0)
            Fail("a head without its blank line");
        return 0;
    }
    ResponseHead partial;
    if (ParseResponseHead(bytes.get(), blank + 3, partial) != 0)
        Fail("a head complete before its blank line");
    if (used < 0)
        return 0;
    if (static_cast<size_t>(used) != blank + 4)
        Fail("the head does not end just past its blank line");

    auto length = head.headers.find(L"Content-Length");
    if (length == head.headers.end() ? head.expected != INT64_MAX
                                     : head.expected < 0 || FormatW(L"%lld", head.expected) != length->second)
        Fail("the announced length is not what the record carries");
    if (head.deflate || head.chunked)
        Fail("a refused encoding in an accepted head");

    size_t rest = count - static_cast<size_t>(used);
    if (headOnly || length == head.headers.end())
        return 0;
    if (head.expected > kCopyAtMost)
        return 0;
    size_t take = rest < static_cast<uint64_t>(head.expected) ? rest : static_cast<size_t>(head.expected);
    auto body = std::make_unique<char[]>(static_cast<size_t>(head.expected));
    if (take)
        std::memcpy(body.get(), bytes.get() + used, take);
    return 0;
}
