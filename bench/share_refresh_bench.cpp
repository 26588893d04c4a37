// Times the share peer's catalogue over a release folder: the manifest read from a file, a first
// refresh that hashes every listed file, then refreshes over the unchanged files, which look only
// at sizes and last-write times, and the match of every listed file as a query asks for it (its
// attributes read). Prints "first MS shared N", one "again MS" per run, then one "match US
// matched N" per run (microseconds for all files).
#include "json/value.h"
#include "peer/catalogue.h"
#include "runtime/clock.h"
#include "runtime/iocp.h"
#include "runtime/logger.h"
#include "runtime/pool.h"
#include "runtime/text.h"
#include "release/manifest_source.h"

#include <windows.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

std::string ReadWhole(const wchar_t* path)
{
    std::string bytes;
    FILE* file = _wfopen(path, L"rb");
    if (!file)
        return bytes;
    char piece[65536];
    size_t count;
    while ((count = fread(piece, 1, sizeof(piece), file)) > 0)
        bytes.append(piece, count);
    fclose(file);
    return bytes;
}

// The manifest's 40 hexadecimal digits as the 20 bytes a query carries.
void HashBytes(const std::wstring& text, uint8_t bytes[20])
{
    for (size_t i = 0; i < 20 && 2 * i + 1 < text.size(); ++i)
        bytes[i] = static_cast<uint8_t>(HexDigitValue(text[2 * i]) << 4 | HexDigitValue(text[2 * i + 1]));
}

uint64_t Microseconds()
{
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    return static_cast<uint64_t>(counter.QuadPart) * 1000000 / PerformanceFrequency();
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 3) {
        fputs("usage: share_refresh_bench ROOT\\ MANIFEST [RUNS]\n", stderr);
        return 2;
    }
    int runs = argc > 3 ? _wtoi(argv[3]) : 5;
    InitPerformanceFrequency();
    PoolInit();
    wLogger::Create();
    IocpStart();
    int result = 1;
    std::string body = ReadWhole(argv[2]);
    if (wJsonObject* manifest = ParseManifestBody(body.data(), body.size(), false)) {
        std::vector<ManifestFile> files;
        ReadManifestFiles(*manifest, files);
        manifest->Release();
        Catalogue catalogue(argv[1]);
        uint64_t start = PerformanceMilliseconds();
        size_t shared = catalogue.Refresh(files);
        printf("first %llu shared %u\n", static_cast<unsigned long long>(PerformanceMilliseconds() - start),
               static_cast<unsigned>(shared));
        for (int i = 0; i < runs; ++i) {
            start = PerformanceMilliseconds();
            catalogue.Refresh(files);
            printf("again %llu\n", static_cast<unsigned long long>(PerformanceMilliseconds() - start));
        }
        std::vector<std::array<uint8_t, 20>> hashes(files.size());
        for (size_t j = 0; j < files.size(); ++j)
            HashBytes(files[j].hash, hashes[j].data());
        for (int i = 0; i < runs; ++i) {
            uint64_t begin = Microseconds();
            size_t matched = 0;
            for (size_t j = 0; j < files.size(); ++j)
                matched += catalogue.Matches(files[j].name, hashes[j].data(), files[j].size);
            printf("match %llu matched %u\n", static_cast<unsigned long long>(Microseconds() - begin),
                   static_cast<unsigned>(matched));
        }
        result = 0;
    }
    IocpShutdown();
    wLogger::Stop();
    return result;
}
