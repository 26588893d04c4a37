// The body sink: bytes up to the announced length go to the output file at their offset or to the
// memory block, each piece first admitted by the sliding-window rate meter. Pieces for the file are
// gathered and written a batch at a time, so the file receives the same bytes at the same offsets
// with a fraction of the writes; a batch is also written before every wait for the network or the
// meter, so the file still grows as the body arrives.
#include "http/request.h"
#include "runtime/clock.h"
#include "runtime/pool.h"

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
            if (!WriteBatch())
                return -1;
            Sleep(1);
            continue;
        }
        if (!outputPath.empty() && !GatherForFile(bytes + taken, piece))
            return -1;
        if (workBody)
            std::memcpy(static_cast<char*>(workBody) + received, bytes + taken, piece);
        received += static_cast<int64_t>(piece);
        taken += piece;
    }
    if (!outputPath.empty() && received >= expected && !WriteBatch())
        return -1;
    return static_cast<int64_t>(taken);
}

bool HttpRequest::GatherForFile(const char* bytes, size_t count)
{
    if (!writeBatch)
        writeBatch = static_cast<char*>(PoolAlloc(PoolClassFor(kWriteBatchSize)));
    while (count > 0) {
        size_t part = kWriteBatchSize - writeBatchLength;
        if (count < part)
            part = count;
        std::memcpy(writeBatch + writeBatchLength, bytes, part);
        writeBatchLength += static_cast<uint32_t>(part);
        bytes += part;
        count -= part;
        if (writeBatchLength == kWriteBatchSize && !WriteBatch())
            return false;
    }
    return true;
}

bool HttpRequest::WriteBatch()
{
    if (writeBatchLength == 0)
        return true;
    IoResult written = file.Write(writeBatchOffset, writeBatch, writeBatchLength);
    bool whole = written.error == 0 && written.bytes == writeBatchLength;
    writeBatchOffset += writeBatchLength;
    writeBatchLength = 0;
    return whole;
}

void HttpRequest::EndBody()
{
    if (file.IsOpen())
        WriteBatch();
    PoolFree(writeBatch);
    writeBatch = nullptr;
    writeBatchLength = 0;
}
