// The run sequence: completion port and Winsock up (and what finding peers needs, loaded ahead),
// the domain ring walked once, all down again.
#include "app/config.h"
#include "app/entry.h"
#include "app/manifest.h"
#include "runtime/fatal.h"
#include "runtime/iocp.h"
#include "discovery/broadcaster.h"
#include "release/manifest_source.h"

#include <winsock2.h>

void RunUpdate(const std::wstring& pathAndQuery)
{
    IocpStart();
    WSADATA data;
    if (WSAStartup(0x0202, &data) != 0)
        FatalError(0x89437291);

    UpdaterConfig& config = *updaterConfig;
    // Loaded on a worker instead, iphlpapi was often still loading when a quick run began its
    // discovery, and the discovery waited for it.
    if (config.httpSharePort != 0)
        PrepareBroadcaster();
    config.domainRing.Assign(config.domains);
    config.domains = config.domainRing.items;
    // The walk goes over a copy of the domains: downloads later reuse the ring for their host lists.
    WalkDomainRing(config.domainRing,
                   [&pathAndQuery](const std::wstring& domain) { return FetchManifest(pathAndQuery, domain); });

    WSACleanup();
    IocpShutdown();
}
