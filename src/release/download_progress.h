// DownloadProgress: what a download tells whoever shows its progress. Downloads run one at a time
// on one thread, so the calls come in order: an attempt, its bytes, its end.
#pragma once
#include <cstdint>
#include <string>

struct UpdateItem;

class DownloadProgress {
public:
    // An attempt at the item from one host begins; `isServer` is false for a peer.
    virtual void Attempt(const UpdateItem& item, const std::wstring& host, bool isServer) = 0;
    // The attempt's file was created anew (again after a redirect): its bytes so far are void.
    virtual void Restart() = 0;
    // `count` more bytes of the attempt are on disk.
    virtual void Received(uint64_t count) = 0;
    // The attempt is over; the bytes of one that is not valid no longer count as done.
    virtual void Ended(bool valid) = 0;

protected:
    ~DownloadProgress() = default;
};
