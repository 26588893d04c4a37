// Fuzz target of the updater's argument as a launcher passes it: URL-decoded, parsed as a JSON
// object, and its pipe name read as the updater reads it. A pipe path, when one is made, must stay
// in the pipe folder; every pool block must come back.
#include "app/pipe_name.h"
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
    std::wstring decoded = UrlDecode(Utf8ToWide(reinterpret_cast<const char*>(data), static_cast<ptrdiff_t>(size)));
    const wchar_t* cursor = decoded.c_str();
    if (wJsonObject* argument = wJsonObject::Parse(cursor)) {
        std::wstring path = PipePath(argument->GetString(L"progressPipe"));
        const std::wstring folder = L"\\\\.\\pipe\\";
        if (!path.empty() && (path.compare(0, folder.size(), folder) != 0 ||
                              path.find_first_of(L"\\/", folder.size()) != std::wstring::npos || path.size() > 256)) {
            std::fprintf(stderr, "argument: a pipe path outside the pipe folder\n");
            std::abort();
        }
        argument->Release();
    }
    if (PoolOutstanding() != baseline) {
        std::fprintf(stderr, "argument: pool blocks not returned\n");
        std::abort();
    }
    return 0;
}
