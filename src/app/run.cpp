// The run sequence: completion port and Winsock up, the domain ring walked once, all down again.
#include "app/config.h"
#include "app/entry.h"
#include "app/manifest.h"
#include "runtime/fatal.h"
#include "runtime/iocp.h"

#include <winsock2.h>

void RunUpdate(const std::wstring& pathAndQuery)
{
    IocpStart();
    WSADATA data;
    if (WSAStartup(0x0202, &data) != 0)
        FatalError(0x89437291);

    UpdaterConfig& config = *updaterConfig;
    config.domainRing.Assign(config.domains);
    config.domains = config.domainRing.items;
    // A copy: downloads later reuse the ring for their own host lists.
    std::vector<std::wstring> ring = config.domainRing.items;
    size_t count = ring.size();
    size_t i = config.domainRing.index;
    for (size_t tried = 0; tried < count; ++tried) {
        config.domainRing.index = static_cast<uint32_t>(i);
        if (FetchManifest(pathAndQuery, ring[i]))
            break;
        i = (i + 1) % count;
    }

    WSACleanup();
    IocpShutdown();
}
