// Fuzz target of the JSON parser: the input, decoded from UTF-8 as a manifest body is, parsed as
// a document; what it accepts is written and released, with every pool block returned. (The
// written text is for the log and need not parse back: keys are written unescaped.)
#include "json/value.h"
#include "runtime/pool.h"
#include "runtime/text.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    long long baseline = PoolOutstanding();
    std::wstring text = Utf8ToWide(reinterpret_cast<const char*>(data), static_cast<ptrdiff_t>(size));
    const wchar_t* cursor = text.c_str();
    if (wJsonObject* root = wJsonObject::Parse(cursor)) {
        if (root->Serialize(0, L"\r\n").empty()) {
            std::fprintf(stderr, "json: an accepted document writes as nothing\n");
            std::abort();
        }
        root->Release();
    }
    if (PoolOutstanding() != baseline) {
        std::fprintf(stderr, "json: pool blocks not returned\n");
        std::abort();
    }
    return 0;
}
