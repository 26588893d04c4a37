// The refresher's pass: the shared manifest fetch over a freshly shuffled ring, then the catalogue.
#include "peer/refresher.h"
#include "json/value.h"
#include "peer/catalogue.h"
#include "runtime/clock.h"
#include "runtime/logger.h"
#include "runtime/random_pick.h"
#include "release/manifest_source.h"

#include <windows.h>

Refresher::Refresher(Catalogue& catalogue, std::vector<std::wstring> domains, std::wstring pathAndQuery)
    : catalogue(catalogue), domains(std::move(domains)), pathAndQuery(std::move(pathAndQuery))
{
}

Refresher::~Refresher()
{
    // Stopped here, while Loop still belongs to this class.
    Stop();
}

void Refresher::RefreshNow()
{
    RandomPick ring;
    ring.Assign(domains);
    bool fetched = WalkDomainRing(ring, [this](const std::wstring& domain) {
        // The peer refetches every few minutes: its log keeps the outcome, not the document.
        wJsonObject* manifest = FetchManifestObject(pathAndQuery, domain, false);
        if (!manifest)
            return false;
        std::vector<ManifestFile> files;
        ReadManifestFiles(*manifest, files);
        manifest->Release();
        uint64_t start = PerformanceMilliseconds();
        size_t shared = catalogue.Refresh(files);
        LogW(L"Manifest from %s: %u files listed, %u shared (%I64u ms)", domain.c_str(),
             static_cast<unsigned>(files.size()), static_cast<unsigned>(shared), PerformanceMilliseconds() - start);
        return true;
    });
    if (!fetched)
        LogA("No server answered; still sharing %u files of the last manifest.",
             static_cast<unsigned>(catalogue.SharedCount()));
}

bool Refresher::Loop()
{
    RefreshNow();
    WaitForSingleObject(wakeEvent.Get(), kEveryMs);
    return true;
}
