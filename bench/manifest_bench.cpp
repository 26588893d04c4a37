// Benchmark harness: a manifest fetched over HTTP, then parsed and logged back by the updater's
// own ParseManifestBody (UTF-8 body to text, JSON parse, the re-serialised document as one log
// entry), then released. Prints the times of the fetch, of parsing and logging, and of the
// logger's final flush, with the working set after the fetch (the body held) and the peak.
#include "http/request.h"
#include "json/value.h"
#include "runtime/clock.h"
#include "runtime/iocp.h"
#include "runtime/logger.h"
#include "runtime/pool.h"
#include "release/manifest_source.h"

#include <winsock2.h>
#include <windows.h>
#include <psapi.h>
#include <cstdio>

namespace {

double Seconds()
{
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    return double(counter.QuadPart) / double(PerformanceFrequency());
}

PROCESS_MEMORY_COUNTERS Memory()
{
    PROCESS_MEMORY_COUNTERS memory{};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory));
    return memory;
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: manifest_bench.exe URL\n");
        return 2;
    }
    PoolInit();
    InitPerformanceFrequency();
    wLogger::Create();
    IocpStart();
    WSADATA data;
    WSAStartup(0x0202, &data);

    double start = Seconds();
    HttpRequest request;
    request.Execute(argv[1]);
    double fetched = Seconds();
    if (request.status != 200) {
        std::fprintf(stderr, "status %u\n", request.status);
        return 1;
    }
    SIZE_T held = Memory().WorkingSetSize;

    wJsonObject* manifest = ParseManifestBody(request.responseBody, static_cast<size_t>(request.responseBodyLength));
    if (!manifest) {
        std::fprintf(stderr, "parse failed\n");
        return 1;
    }
    uint32_t entries = manifest->GetArray(L"files") ? manifest->GetArray(L"files")->Count() : 0;
    manifest->Release();
    double logged = Seconds();
    wLogger::Stop();
    double flushed = Seconds();

    WSACleanup();
    IocpShutdown();
    std::fprintf(stderr, "entries %u body %lld fetch %.6f parse_log %.6f flush %.6f held %llu peak %llu\n", entries,
                 static_cast<long long>(request.responseBodyLength), fetched - start, logged - fetched,
                 flushed - logged, static_cast<unsigned long long>(held),
                 static_cast<unsigned long long>(Memory().PeakWorkingSetSize));
    return 0;
}
