// Times the share peer's catalogue refresh over a release folder: the manifest read from a file,
// a first refresh that hashes every listed file, then refreshes over the unchanged files, which
// look only at sizes and last-write times. Prints "first MS shared N" and one "again MS" per run.
#include "json/value.h"
#include "peer/catalogue.h"
#include "runtime/clock.h"
#include "runtime/iocp.h"
#include "runtime/logger.h"
#include "runtime/pool.h"
#include "release/manifest_source.h"

#include <windows.h>

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
        result = 0;
    }
    IocpShutdown();
    wLogger::Stop();
    return result;
}
