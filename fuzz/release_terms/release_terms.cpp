// Fuzz target of the signed-release terms: the input read as an applied version (raw bytes) and,
// decoded from UTF-8, as an expiry time and a signature path. What is accepted must format back
// to itself, and an expiry must lie between 1970 and the end of year 9999.
#include "runtime/text.h"
#include "release/release_terms.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

void Fail(const char* what)
{
    std::fprintf(stderr, "release_terms: %s\n", what);
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    uint64_t version = 0;
    if (ReadAppliedVersion(data, size, version)) {
        std::string text = FormatAppliedVersion(version);
        std::string input(reinterpret_cast<const char*>(data), size);
        if (text != input && text != input + "\r\n")
            Fail("an applied version that does not format back to its text");
    }
    std::wstring text = Utf8ToWide(reinterpret_cast<const char*>(data), static_cast<ptrdiff_t>(size));
    int64_t seconds = -1;
    if (ReadExpiryTime(text, seconds) && (seconds < 0 || seconds > 253402300799))
        Fail("an expiry time outside the years 1970 to 9999");
    std::wstring path = SignaturePath(text);
    if (path.size() != text.size() + 4)
        Fail("a signature path that is not the path with .sig added");
    return 0;
}
