// The query log's thread: it sleeps while no burst is open and looks every kGapMs while one is.
#include "peer/query_log.h"
#include "runtime/clock.h"
#include "runtime/logger.h"
#include "runtime/text.h"

#include <windows.h>

#include <vector>

QueryLog::QueryLog() = default;

QueryLog::~QueryLog()
{
    // Stopped here, while Loop and End still belong to this class.
    Stop();
}

void QueryLog::Add(uint32_t address, uint16_t port, uint32_t asked, uint32_t answered)
{
    bool first;
    {
        ExclusiveLock adding(lock);
        first = bursts.empty();
        Burst& burst = bursts[uint64_t(address) << 16 | port];
        burst.asked += asked;
        burst.answered += answered;
        burst.last = PerformanceMilliseconds();
    }
    // Only the first datagram wakes the thread: waking it for each would cost the answer path.
    if (first)
        SetEvent(wakeEvent.Get());
}

bool QueryLog::Flush(bool all)
{
    struct Line {
        uint64_t sender;
        Burst burst;
    };
    std::vector<Line> ended;
    uint64_t now = PerformanceMilliseconds();
    bool left;
    {
        ExclusiveLock taking(lock);
        for (auto at = bursts.begin(); at != bursts.end();) {
            if (all || now - at->second.last >= kGapMs) {
                ended.push_back({at->first, at->second});
                at = bursts.erase(at);
            } else {
                ++at;
            }
        }
        left = !bursts.empty();
    }
    for (const Line& line : ended) {
        LogW(L"Query from %s:%u: %u records asked, %u answered",
             FormatIPv4(static_cast<uint32_t>(line.sender >> 16)).c_str(), static_cast<unsigned>(line.sender & 0xFFFF),
             line.burst.asked, line.burst.answered);
    }
    return left;
}

bool QueryLog::Loop()
{
    bool open = Flush(false);
    WaitForSingleObject(wakeEvent.Get(), open ? static_cast<DWORD>(kGapMs) : INFINITE);
    return true;
}

void QueryLog::End()
{
    Flush(true);
}
