// The refresher: a thread that fetches the manifest over the domain ring at start and every five
// minutes, and hands its file list to the catalogue. While no server answers, the catalogue keeps
// sharing what the last good manifest listed.
#pragma once
#include "runtime/thread.h"

#include <string>
#include <vector>

class Catalogue;

class Refresher : public wThread {
public:
    static constexpr unsigned long kEveryMs = 5 * 60 * 1000;

    Refresher(Catalogue& catalogue, std::vector<std::wstring> domains, std::wstring pathAndQuery);
    ~Refresher();

    // One refresh: the ring shuffled again, then walked until a server gives a manifest.
    void RefreshNow();

protected:
    bool Loop() override;

private:
    Catalogue& catalogue;
    const std::vector<std::wstring> domains;
    const std::wstring pathAndQuery;
};
