// BodySink: the head's claim on memory, and the body into memory or into file batches at the
// pace the rate meter allows. A batch is also written before every wait for the network or the
// meter, so the file still grows as the body arrives.
#include "http/body_sink.h"
#include "runtime/pool.h"

#include <windows.h>
#include <cstring>
#include <utility>

namespace {

// A body kept in memory takes one pooled block of the next power of two, allocated up front from
// the announced length. 256 MiB, the largest file the program ever hashes, keeps that block within
// the pool's classes and stops a hostile length from exhausting memory. Bodies written to a file
// have no bound.
constexpr int64_t kMaxMemoryBody = 256 * 1024 * 1024;

}  // namespace

BodySink::~BodySink()
{
    End();
}

void BodySink::Begin(const std::wstring& path, bool headRequest, int64_t limit, WrittenBody* written,
                     BodyStream* streamed)
{
    stream = streamed;
    outputPath = path;
    headOnly = headRequest;
    bodyLimit = limit;
    watcher = written;
    head = ResponseHead();
    received = 0;
    writeBatchLength = 0;
    writeBatchOffset = 0;
}

int64_t BodySink::TakeHead(const char* bytes, size_t count)
{
    ResponseHead parsed;
    int64_t used = ParseResponseHead(bytes, count, parsed);
    if (used == 0)
        return 0;
    head = std::move(parsed);
    if (used < 0 || (bodyLimit >= 0 && !headOnly && head.expected > bodyLimit))
        return -1;
    bool announced = head.headers.count(L"Content-Length") != 0;
    if (announced && head.expected > 0 && outputPath.empty() && !stream && !headOnly) {
        if (head.expected > kMaxMemoryBody)
            return -1;
        body = PoolAlloc(PoolClassFor(static_cast<uint64_t>(head.expected)));
    }
    return used;
}

int64_t BodySink::TakeBody(const char* bytes, size_t count)
{
    if (!outputPath.empty() && !file.IsOpen()) {
        // Written on this thread: under Wine a write through the completion port costs five more
        // calls into the system and two thread wake-ups, for the same bytes at the same moment.
        if (file.Open(outputPath, false, true, false, CREATE_ALWAYS, FileIo::Direct) != 0)
            return -1;
        if (watcher)
            watcher->Restart();
    }
    size_t taken = 0;
    while (taken < count && received < head.expected) {
        size_t piece = count - taken;
        if (static_cast<uint64_t>(head.expected - received) < piece)
            piece = static_cast<size_t>(head.expected - received);
        piece = meter.Allowance(piece);
        meter.Count(piece);

        if (piece == 0) {
            if (!WriteBatch())
                return -1;
            Sleep(1);
            continue;
        }
        if (!outputPath.empty() && !GatherForFile(bytes + taken, piece))
            return -1;
        if (stream && head.status == 200 && !stream->Take(bytes + taken, piece))
            return -1;
        if (body)
            std::memcpy(static_cast<char*>(body) + received, bytes + taken, piece);
        received += static_cast<int64_t>(piece);
        taken += piece;
    }
    if (!outputPath.empty() && received >= head.expected && !WriteBatch())
        return -1;
    return static_cast<int64_t>(taken);
}

bool BodySink::GatherForFile(const char* bytes, size_t count)
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

bool BodySink::WriteBatch()
{
    if (writeBatchLength == 0)
        return true;
    IoResult written = file.Write(writeBatchOffset, writeBatch, writeBatchLength);
    bool whole = written.error == 0 && written.bytes == writeBatchLength;
    // After a failed write the file no longer holds the body's bytes in order: the watcher sees
    // nothing more, so what it has seen falls short of the body.
    if (!whole)
        watcher = nullptr;
    else if (watcher)
        watcher->Take(writeBatch, writeBatchLength);
    writeBatchOffset += writeBatchLength;
    writeBatchLength = 0;
    return whole;
}

void BodySink::End()
{
    if (file.IsOpen())
        WriteBatch();
    PoolFree(writeBatch);
    writeBatch = nullptr;
    writeBatchLength = 0;
    file.Close();
    PoolFree(body);
    body = nullptr;
}
