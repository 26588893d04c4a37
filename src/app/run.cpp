// The run sequence: completion port and Winsock up (and what finding peers needs, loaded ahead),
// the domain ring walked once, all down again.
#include "app/run.h"
#include "app/config.h"
#include "app/manifest.h"
#include "runtime/fatal.h"
#include "runtime/iocp.h"
#include "runtime/random_pick.h"
#include "discovery/broadcaster.h"
#include "release/manifest_source.h"

#include <winsock2.h>

void RunUpdate(const UpdaterConfig& config, Progress& progress)
{
    IocpStart();
    WSADATA data;
    if (WSAStartup(0x0202, &data) != 0)
        FatalError(kFatalUpdaterWinsock);

    // Loaded on a worker instead, iphlpapi was often still loading when a quick run began its
    // discovery, and the discovery waited for it.
    if (config.httpSharePort != 0)
        PrepareBroadcaster();
    RandomPick ring;
    ring.Assign(config.domains);
    // The servers in ring order; the downloads take out each one that fails them.
    std::vector<std::wstring> servers = ring.items;
    WalkDomainRing(ring, [&config, &servers, &progress](const std::wstring& domain) {
        return FetchManifest(config, domain, servers, progress);
    });

    WSACleanup();
    IocpShutdown();
}
