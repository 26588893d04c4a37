// The body sink: bytes up to the announced length go to the output file at their offset or to the
// memory block, each piece first admitted by the sliding-window rate meter.
#include "http/request.h"
#include "runtime/clock.h"

#include <windows.h>
#include <cstring>

int64_t HttpRequest::TakeBody(const char* bytes, size_t count)
{
    if (!outputPath.empty() && !file.IsOpen() && file.Open(outputPath, false, true, false, CREATE_ALWAYS) != 0)
        return -1;
    size_t taken = 0;
    while (taken < count && received < expected) {
        size_t piece = count - taken;
        if (static_cast<uint64_t>(expected - received) < piece)
            piece = static_cast<size_t>(expected - received);

        if (rateActiveLimit) {
            EnterCriticalSection(RateLock());
            uint32_t windowSeconds = rateSlotCount / (1000 / rateSlotMs);
            uint32_t rate = (rateSum + rateSlotBytes - rateSlots[rateSlotIndex]) / windowSeconds;
            LeaveCriticalSection(RateLock());
            size_t allowance = rate < rateActiveLimit ? rateActiveLimit - rate : 0;
            if (allowance < piece)
                piece = allowance;
        }

        // The meter runs also without a limit, so that it can be read while a transfer runs.
        auto now = static_cast<uint32_t>(PerformanceMilliseconds());
        EnterCriticalSection(RateLock());
        if (rateSlotStart == 0)
            rateSlotStart = now;
        while (now - rateSlotStart >= rateSlotMs) {
            rateSum += rateSlotBytes - rateSlots[rateSlotIndex];
            rateSlots[rateSlotIndex] = rateSlotBytes;
            rateSlotStart += rateSlotMs;
            rateSlotIndex = (rateSlotIndex + 1) % rateSlotCount;
            rateSlotBytes = 0;
        }
        rateSlotBytes += static_cast<uint32_t>(piece);
        LeaveCriticalSection(RateLock());

        if (piece == 0) {
            Sleep(1);
            continue;
        }
        if (!outputPath.empty()) {
            IoResult written = file.Write(static_cast<uint64_t>(received), bytes + taken, static_cast<uint32_t>(piece));
            if (written.error != 0 || written.bytes != piece)
                return -1;
        }
        if (workBody)
            std::memcpy(static_cast<char*>(workBody) + received, bytes + taken, piece);
        received += static_cast<int64_t>(piece);
        taken += piece;
    }
    return static_cast<int64_t>(taken);
}
