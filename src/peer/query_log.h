// The query log: one line per query rather than per datagram. An updater sends its query as a
// burst of datagrams; those from one sender that arrive less than kGapMs apart are summed and
// logged together once the burst is over, so that answering a burst does not wait on the logger.
#pragma once
#include "runtime/handles.h"
#include "runtime/thread.h"

#include <cstdint>
#include <map>

class QueryLog : public wThread {
public:
    static constexpr uint64_t kGapMs = 50;

    QueryLog();
    // Logs what is still pending.
    ~QueryLog();

    // Counts one answered datagram of the sender (address in network order, port in host order).
    void Add(uint32_t address, uint16_t port, uint32_t asked, uint32_t answered);

protected:
    // Logs the bursts that have ended, then waits for the next one.
    bool Loop() override;
    void End() override;

private:
    struct Burst {
        uint32_t asked = 0;
        uint32_t answered = 0;
        uint64_t last = 0;  // milliseconds
    };
    // Logs and forgets the bursts whose last datagram is kGapMs old, or all of them; true when
    // some are left.
    bool Flush(bool all);

    SrwLock lock;
    std::map<uint64_t, Burst> bursts;  // by address << 16 | port
};
