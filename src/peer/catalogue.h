// The catalogue: which of the release's files are current under the root (listed in the last good
// manifest, present, with the manifest's size and SHA-1) and so may be announced and served.
#pragma once
#include "runtime/handles.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
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
    // True when `name` is shared with this SHA-1 and size.
    bool Matches(const std::wstring& name, const uint8_t hash[20], uint64_t size) const;
    // Opens a listed file for reading, denying writers while it is held, and checks it once more:
    // a size or last-write time that changed since it was hashed makes it hashed again (so a file
    // can stop or start being shared here), and only a file that has the manifest's SHA-1 and size
    // is returned, with that size. Otherwise no handle.
    UniqueHandle OpenCurrent(const std::wstring& name, uint64_t& size);

private:
    struct Entry {
        uint8_t hash[20];       // the manifest's SHA-1
        uint64_t size = 0;      // the manifest's size
        uint64_t hashLimit = 0;  // the largest file hashed (any size in the objects format)
        std::wstring digest;    // SHA-1 text of the file when last hashed
        uint64_t diskSize = 0;  // its size and last-write time then
        uint64_t writeTime = 0;
        bool current = false;
    };

    const std::wstring root;
    mutable SrwLock lock;
    std::unordered_map<std::wstring, Entry> entries;  // every listed file, by manifest name
    size_t shared = 0;
};
