// BodySink: the response of one pass as it arrives. Its head decides where the body goes: into a
// pooled block sized from "Content-Length", or into the file at the output path. Every piece is
// first admitted by the rate meter. Pieces for the file are gathered and written a batch at a
// time, so the file receives the same bytes at the same offsets with a fraction of the writes.
// A watcher may see each batch once it is on disk, so a download can be hashed as it is written.
#pragma once
#include "http/rate_meter.h"
#include "http/response_head.h"
#include "runtime/file.h"

#include <cstddef>
#include <cstdint>
#include <string>

// Sees the body's bytes as they reach the file: Restart when the file is created (again after a
// redirect), then every batch once it was written whole, in file order from the file's start.
class WrittenBody {
public:
    virtual void Restart() = 0;
    virtual void Take(const void* bytes, size_t count) = 0;

protected:
    ~WrittenBody() = default;
};

// Takes the body of a 200 response piece by piece as it arrives, instead of memory or a file;
// false stops the transfer.
class BodyStream {
public:
    virtual bool Take(const void* bytes, size_t count) = 0;

protected:
    ~BodyStream() = default;
};

class BodySink {
public:
    explicit BodySink(RateMeter& meter) : meter(meter) {}
    ~BodySink();
    BodySink(const BodySink&) = delete;
    BodySink& operator=(const BodySink&) = delete;

    // Starts a response once the previous one has ended: its body goes to `outputPath` when that
    // is not empty, else to memory; a response to HEAD has no body. A `bodyLimit` of 0 or more
    // refuses at the head a body that is longer or does not announce its length. `watcher`, when
    // given, sees what is written to the file. A `stream`, when given, takes the body of a 200
    // response instead (any other body is dropped).
    void Begin(const std::wstring& outputPath, bool headOnly, int64_t bodyLimit = -1,
               WrittenBody* watcher = nullptr, BodyStream* stream = nullptr);
    // Reads the head from the first `count` received bytes: 0 while it is not complete, -1 when
    // the response is refused (see ParseResponseHead, a memory body too large to hold, and a body
    // beyond the limit),
    // otherwise the number of bytes the head took. A body kept in memory gets its block here.
    int64_t TakeHead(const char* bytes, size_t count);
    // Delivers body bytes up to the announced length, at the rate allowed: the number taken, or
    // -1 when the file cannot be opened or written. Bytes for the file are gathered into batches
    // of kWriteBatchSize that are written when full and before the body counts as complete.
    int64_t TakeBody(const char* bytes, size_t count);
    // Writes the gathered bytes at their offset; false when the write fails or is short. The
    // client calls it before every wait, so that the file grows as the body arrives.
    bool WriteBatch();
    // The head has arrived, and so has every byte it announced, or the response is to HEAD.
    bool Complete() const { return received >= head.expected || headOnly; }
    // Writes the bytes still gathered, closes the file and releases the batch and a body block
    // that was not taken: a transfer that ends early leaves in the file every byte it received.
    void End();

    bool HeadOnly() const { return headOnly; }
    const wFile& File() const { return file; }

    // The response so far; the client takes them over once it is complete.
    ResponseHead head;
    void* body = nullptr;  // pooled block, when the body is kept in memory
    int64_t received = 0;

private:
    // One write costs far more than copying a piece, so the pieces of a body go to the file in
    // batches of this size.
    static constexpr size_t kWriteBatchSize = size_t(1) << 20;

    // Adds body bytes to the batch, writing each batch that fills up; false when a write fails.
    bool GatherForFile(const char* bytes, size_t count);

    RateMeter& meter;
    std::wstring outputPath;
    bool headOnly = false;
    int64_t bodyLimit = -1;
    WrittenBody* watcher = nullptr;
    BodyStream* stream = nullptr;
    wFile file;
    char* writeBatch = nullptr;     // pooled block of kWriteBatchSize: body bytes not yet written
    uint32_t writeBatchLength = 0;
    uint64_t writeBatchOffset = 0;  // file offset of the batch's first byte
};
