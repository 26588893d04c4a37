// Benchmark harness: HashFile of one file, set up as the updater sets it up (pool and completion
// port), with the time of the call, the process's peak working set and its working set before the
// call printed on one line. With --sha256, the SHA-256 that signed releases check instead.
#include "runtime/iocp.h"
#include "runtime/pool.h"
#include "runtime/text.h"
#include "release/digest.h"
#include "release/sha256_file.h"
#include "release/signature.h"

#include <windows.h>
#include <psapi.h>
#include <cstdio>

int wmain(int argc, wchar_t** argv)
{
    bool sha256 = argc == 3 && std::wstring(argv[1]) == L"--sha256";
    if (argc < 2 || (argc == 3 && !sha256)) {
        std::fprintf(stderr, "usage: hash_bench.exe [--sha256] PATH\n");
        return 2;
    }
    PoolInit();
    IocpStart();
    PROCESS_MEMORY_COUNTERS memory{};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory));
    SIZE_T before = memory.WorkingSetSize;
    LARGE_INTEGER frequency, start, end;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&start);
    FileDigest digest;
    if (sha256) {
        uint8_t bytes[kSha256DigestSize];
        WIN32_FILE_ATTRIBUTE_DATA attributes;
        if (Sha256OfFile(argv[2], bytes) && GetFileAttributesExW(argv[2], GetFileExInfoStandard, &attributes)) {
            digest.hash = Sha256ToText(bytes);
            digest.size = (uint64_t(attributes.nFileSizeHigh) << 32) | attributes.nFileSizeLow;
        }
    } else {
        digest = HashFile(argv[1]);
    }
    QueryPerformanceCounter(&end);
    IocpShutdown();
    K32GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory));
    std::fprintf(stderr, "hash %s size %llu seconds %.6f peak %llu before %llu\n", WideToUtf8(digest.hash).c_str(),
                static_cast<unsigned long long>(digest.size),
                double(end.QuadPart - start.QuadPart) / double(frequency.QuadPart),
                static_cast<unsigned long long>(memory.PeakWorkingSetSize), static_cast<unsigned long long>(before));
    return 0;
}
