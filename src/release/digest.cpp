// HashFile: a small file in one synchronous read, a larger one in bounded pieces that a
// completion-port worker reads while this thread hashes the piece before.
#include "release/digest.h"
#include "runtime/handles.h"
#include "runtime/iocp.h"
#include "runtime/io_request.h"
#include "runtime/text.h"
#include "crypto/sha1.h"

#include <windows.h>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <new>
#include <system_error>
#include <thread>

const wchar_t kNoDigest[] = L"________________________________________";

namespace {

// Files up to kWholeSize are read in one call on the calling thread: a handle that is not bound
// to the completion port costs three calls into the system per file (open, the read's first use
// of the handle, close), where a read completed through the port cost ten under Wine.
// Larger files go through kPieceCount buffers of kPieceSize bytes, so HashFile never holds more
// than kPieceCount * kPieceSize bytes whatever the file's size. Four pieces of 1 MiB hashed
// 256 MiB 6 to 9% faster under Wine than two of 4 MiB (medians 213 against 235 ms, 224 against
// 238 ms).
constexpr uint32_t kWholeSize = kHashPieceSize;
constexpr uint32_t kPieceSize = 1u << 20;
constexpr unsigned kPieceCount = 4;

// The work left on the calling thread above which HashFiles starts its helpers, judged once the
// thread has worked long enough for its pace to be known (the first files of a run are slower).
constexpr std::chrono::milliseconds kHelpersAfter{20};
constexpr std::chrono::milliseconds kPaceAfter{5};

// Reads `length` bytes from the file's current position; false when the file ends first or the
// read fails.
bool ReadFully(HANDLE file, unsigned char* buffer, uint32_t length)
{
    while (length > 0) {
        DWORD got = 0;
        if (!ReadFile(file, buffer, length, &got, nullptr) || got == 0)
            return false;
        buffer += got;
        length -= got;
    }
    return true;
}

// A file read piece by piece on a worker into a ring of buffers, hashed on the caller's thread.
// The two threads meet on a condition variable, which waits in the process without calls into
// the system while the other side is quick.
struct PieceRing {
    HANDLE file;
    uint64_t length;
    unsigned char* buffers[kPieceCount];
    SrwLock lock;
    ConditionVariable changed;
    uint64_t read = 0;    // pieces in the buffers so far
    uint64_t hashed = 0;  // pieces hashed so far; their buffers are free again
    bool failed = false;  // a read failed or the file ended early
    bool done = false;    // the worker has stopped reading the file
    // Both threads hold the ring; the last one to let go frees it and the buffers, so neither
    // touches memory that the other has freed.
    std::atomic<int> holders{2};

    uint64_t Pieces() const { return (length + kPieceSize - 1) / kPieceSize; }
    uint32_t PieceLength(uint64_t piece) const
    {
        return static_cast<uint32_t>(std::min<uint64_t>(kPieceSize, length - piece * kPieceSize));
    }
    void Release()
    {
        if (--holders == 0) {
            free(buffers[0]);
            delete this;
        }
    }
};

void ReadPieces(IoRequest* request)
{
    auto* ring = static_cast<PieceRing*>(request->context);
    uint64_t pieces = ring->Pieces();
    for (uint64_t piece = 0; piece < pieces; ++piece) {
        {
            ExclusiveLock held(ring->lock);
            while (piece - ring->hashed >= kPieceCount)
                ring->changed.Wait(ring->lock);
        }
        bool ok = ReadFully(ring->file, ring->buffers[piece % kPieceCount], ring->PieceLength(piece));
        {
            ExclusiveLock held(ring->lock);
            if (ok)
                ring->read = piece + 1;
            else
                ring->failed = true;
        }
        ring->changed.WakeAll();
        if (!ok)
            break;
    }
    {
        ExclusiveLock held(ring->lock);
        ring->done = true;
    }
    ring->changed.WakeAll();
    ring->Release();
}

// Hashes the file's `length` bytes with the reads of the next piece running beside the hashing
// of the current one; false when a read failed or the file ended before `length` bytes.
bool HashPieces(HANDLE file, uint64_t length, Sha1Context& sha1)
{
    auto* memory = static_cast<unsigned char*>(malloc(size_t(kPieceSize) * kPieceCount));
    if (!memory)
        return false;
    auto* ring = new (std::nothrow) PieceRing;
    if (!ring) {
        free(memory);
        return false;
    }
    ring->file = file;
    ring->length = length;
    for (unsigned i = 0; i < kPieceCount; ++i)
        ring->buffers[i] = memory + size_t(kPieceSize) * i;

    IoRequest* request = NewIoRequest();
    request->refCount = 1;
    request->context = ring;
    request->callback = ReadPieces;
    IocpPost(CompleteIoRequest, &request->overlapped, 0);

    uint64_t pieces = ring->Pieces();
    for (uint64_t piece = 0; piece < pieces; ++piece) {
        {
            ExclusiveLock held(ring->lock);
            while (ring->read <= piece && !ring->failed)
                ring->changed.Wait(ring->lock);
            if (ring->read <= piece)
                break;
        }
        Sha1Update(sha1, ring->buffers[piece % kPieceCount], ring->PieceLength(piece));
        {
            ExclusiveLock held(ring->lock);
            ring->hashed = piece + 1;
        }
        ring->changed.WakeAll();
    }
    // The caller closes the handle once the worker has stopped reading it.
    bool complete;
    {
        ExclusiveLock held(ring->lock);
        while (!ring->done)
            ring->changed.Wait(ring->lock);
        complete = !ring->failed;
    }
    ring->Release();
    return complete;
}

// `scratch` holds kWholeSize bytes, or is null for a buffer of the file's own size.
bool HashWhole(HANDLE file, uint32_t length, Sha1Context& sha1, unsigned char* scratch)
{
    // One extra byte keeps the allocation valid for an empty file.
    auto* buffer = scratch ? scratch : static_cast<unsigned char*>(malloc(size_t(length) + 1));
    if (!buffer)
        return false;
    bool ok = ReadFully(file, buffer, length);
    if (ok)
        Sha1Update(sha1, buffer, length);
    if (!scratch)
        free(buffer);
    return ok;
}

// HashFile with a buffer of kWholeSize bytes for the small files, or null. The attributes come
// first: asking for them costs no trip to Wine's server, so a missing file costs none at all.
FileDigest HashPath(const std::wstring& path, uint64_t limit, unsigned char* scratch)
{
    FileDigest digest;
    WIN32_FILE_ATTRIBUTE_DATA attributes;
    if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &attributes))
        return digest;
    if (attributes.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
        return digest;
    digest.size = (uint64_t(attributes.nFileSizeHigh) << 32) | attributes.nFileSizeLow;
    if (digest.size > limit)
        return digest;

    UniqueHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!file)
        return digest;
    // The digest covers the `size` bytes that the attributes reported. A file that shrinks before
    // they are read gives the underscores; one that grows has its first `size` bytes hashed.
    Sha1Context sha1;
    Sha1Init(sha1);
    bool ok = digest.size <= kWholeSize
                  ? HashWhole(file.Get(), static_cast<uint32_t>(digest.size), sha1, scratch)
                  : HashPieces(file.Get(), digest.size, sha1);
    file.Reset();
    if (ok) {
        uint8_t bytes[kSha1DigestSize];
        Sha1Final(sha1, bytes);
        digest.hash = BytesToHex(bytes, sizeof(bytes));
    }
    return digest;
}

}  // namespace

FileDigest HashFile(const std::wstring& path, uint64_t limit)
{
    return HashPath(path, limit, nullptr);
}

std::vector<FileDigest> HashFiles(const std::vector<std::wstring>& paths, unsigned threads, uint64_t limit)
{
    std::vector<FileDigest> digests(paths.size());
    std::atomic<size_t> next{0};
    // Each thread reads its small files into one buffer of its own: a buffer allocated per file
    // was committed and released again every time, each a change of the address space that every
    // thread of the process sees.
    auto work = [&] {
        auto* scratch = static_cast<unsigned char*>(malloc(kWholeSize));
        for (size_t i = next++; i < paths.size(); i = next++)
            digests[i] = HashPath(paths[i], limit, scratch);
        free(scratch);
    };

    // This thread starts at once. The helpers are started only once the files left would keep it
    // busy for longer than kHelpersAfter, judged by its pace so far: under Wine a new thread
    // starts running 5 to 20 ms after it is created, longer than one thread takes over the
    // 50 small files of a launcher's usual start.
    std::vector<std::thread> running;
    bool decided = threads < 2 || paths.size() < 2;
    auto* scratch = static_cast<unsigned char*>(malloc(kWholeSize));
    auto start = std::chrono::steady_clock::now();
    size_t done = 0;
    for (size_t i = next++; i < paths.size(); i = next++) {
        digests[i] = HashPath(paths[i], limit, scratch);
        ++done;
        size_t taken = std::min(next.load(), paths.size());
        if (decided || taken == paths.size())
            continue;
        auto spent = std::chrono::steady_clock::now() - start;
        if (spent < kPaceAfter ||
            spent * static_cast<int64_t>(paths.size() - taken) / static_cast<int64_t>(done) < kHelpersAfter)
            continue;
        decided = true;
        size_t helpers = std::min<size_t>(threads - 1, paths.size() - taken);
        running.reserve(helpers);
        try {
            for (size_t n = 0; n < helpers; ++n)
                running.emplace_back(work);
        } catch (const std::system_error&) {
            // Fewer threads only take longer: whatever they leave, this one hashes.
        }
    }
    free(scratch);
    for (std::thread& thread : running)
        thread.join();
    return digests;
}
