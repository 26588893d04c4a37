// The catalogue: which of the release's files are current under the root (listed in the last good
// manifest, present, with the manifest's size and SHA-1) and so may be announced and served. A
// file is announced only while its size and last-write time are still those it was hashed with;
// one that changed is queued to be hashed again by a thread of its own.
#pragma once
#include "runtime/handles.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

struct ManifestFile;

class Catalogue {
public:
    explicit Catalogue(std::wstring root);
    Catalogue(const Catalogue&) = delete;
    Catalogue& operator=(const Catalogue&) = delete;

    // Compares the manifest's files with the disk and shares the current ones from now on. A file
    // is hashed again only when its size or last-write time changed since it was last hashed, so a
    // refresh over unchanged files reads none of them. Names that would leave the root are never
    // shared. Returns the number of files shared.
    size_t Refresh(const std::vector<ManifestFile>& files);
    size_t SharedCount() const;
    // True when `name` is shared with this SHA-1 and size and its file still has the size and
    // last-write time it was hashed with (its attributes are read, the file is not). A file whose
    // attributes differ is not matched and is queued for HashStale; StaleEvent is then signalled.
    bool Matches(const std::wstring& name, const uint8_t hash[20], uint64_t size);
    // Hashes the queued files again and shares each from now on if it is current.
    void HashStale();
    // Auto-reset event signalled when a file is queued for HashStale.
    void* StaleEvent() const { return staleEvent.Get(); }
    // Opens a listed file for reading, denying writers while it is held, and checks it once more:
    // a size or last-write time that changed since it was hashed makes it hashed again (so a file
    // can stop or start being shared here), and only a file that has the manifest's SHA-1 and size
    // is returned, with that size. Otherwise no handle.
    UniqueHandle OpenCurrent(const std::wstring& name, uint64_t& size);

private:
    // What the attributes tell of a path: a file with its size and last-write time, or no file.
    struct DiskState {
        bool file = false;
        uint64_t size = 0;
        uint64_t writeTime = 0;
        bool operator==(const DiskState& other) const
        {
            return file == other.file && size == other.size && writeTime == other.writeTime;
        }
    };
    struct Entry {
        uint8_t hash[20];        // the manifest's SHA-1
        uint64_t size = 0;       // the manifest's size
        uint64_t hashLimit = 0;  // the largest file hashed (any size in the objects format)
        std::wstring digest;     // SHA-1 text of the file when last hashed
        DiskState disk;          // the file's attributes then
        bool current = false;
    };

    static DiskState ReadDiskState(const std::wstring& path);
    static bool IsCurrent(const Entry& entry);
    // Keeps what hashing the file found, if the name is still listed; true when it is current.
    bool Store(const std::wstring& name, const DiskState& disk, std::wstring digest);

    const std::wstring root;
    mutable SrwLock lock;
    std::unordered_map<std::wstring, Entry> entries;  // every listed file, by manifest name
    size_t shared = 0;

    CriticalSection staleLock;
    std::unordered_set<std::wstring> stale;  // names waiting for HashStale
    UniqueHandle staleEvent;
};
