// The catalogue: listed files checked against the disk with a digest cache keyed by size and
// last-write time, and the check made again right before a file is served.
#include "peer/catalogue.h"
#include "runtime/text.h"
#include "release/digest.h"
#include "release/manifest_source.h"
#include "runtime/safe_name.h"

#include <windows.h>

#include <cstring>

namespace {

// Threads that hash changed files at once, as the updater's manifest step does.
constexpr unsigned kHashThreads = 4;

uint64_t Join(DWORD high, DWORD low)
{
    return (uint64_t(high) << 32) | low;
}

// The manifest's hash text as 20 bytes; false when it is not 40 hexadecimal digits.
bool HashBytes(const std::wstring& text, uint8_t bytes[20])
{
    if (text.size() != 40)
        return false;
    for (size_t i = 0; i < 20; ++i) {
        int high = HexDigitValue(text[2 * i]), low = HexDigitValue(text[2 * i + 1]);
        if (high < 0 || low < 0)
            return false;
        bytes[i] = static_cast<uint8_t>(high << 4 | low);
    }
    return true;
}

}  // namespace

Catalogue::Catalogue(std::wstring root) : root(std::move(root)) {}

size_t Catalogue::Refresh(const std::vector<ManifestFile>& files)
{
    std::unordered_map<std::wstring, Entry> next;
    std::vector<std::wstring> changed;  // names to hash
    std::vector<std::wstring> paths;
    {
        SharedLock reading(lock);
        for (const ManifestFile& file : files) {
            Entry entry;
            if (!IsSafeRelativeName(file.name) || !HashBytes(file.hash, entry.hash) || next.count(file.name))
                continue;
            entry.size = file.size;
            entry.hashLimit = file.objects.HashLimit();
            WIN32_FILE_ATTRIBUTE_DATA attributes;
            std::wstring path = root + file.name;
            if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &attributes) ||
                (attributes.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
                continue;
            entry.diskSize = Join(attributes.nFileSizeHigh, attributes.nFileSizeLow);
            entry.writeTime = Join(attributes.ftLastWriteTime.dwHighDateTime, attributes.ftLastWriteTime.dwLowDateTime);
            auto known = entries.find(file.name);
            // A digest made under another limit (the manifest changed format) is not reused.
            if (known != entries.end() && known->second.diskSize == entry.diskSize &&
                known->second.writeTime == entry.writeTime && known->second.hashLimit == entry.hashLimit) {
                entry.digest = known->second.digest;
            } else {
                changed.push_back(file.name);
                paths.push_back(std::move(path));
            }
            next.emplace(file.name, std::move(entry));
        }
    }

    // The size and time were read before hashing: a file that changes in between is hashed again
    // at the next refresh, or when it is served.
    // The files of one manifest are all of its format, and so share one limit.
    uint64_t limit = files.empty() ? kMaxHashedSize : files.front().objects.HashLimit();
    std::vector<FileDigest> digests = HashFiles(paths, kHashThreads, limit);
    for (size_t i = 0; i < changed.size(); ++i)
        next[changed[i]].digest = std::move(digests[i].hash);
    size_t count = 0;
    for (auto& named : next) {
        Entry& entry = named.second;
        entry.current = entry.diskSize == entry.size && entry.digest == BytesToHex(entry.hash, 20);
        count += entry.current;
    }
    ExclusiveLock replacing(lock);
    entries.swap(next);
    shared = count;
    return count;
}

size_t Catalogue::SharedCount() const
{
    SharedLock reading(lock);
    return shared;
}

bool Catalogue::Matches(const std::wstring& name, const uint8_t hash[20], uint64_t size) const
{
    SharedLock reading(lock);
    auto found = entries.find(name);
    return found != entries.end() && found->second.current && found->second.size == size &&
           memcmp(found->second.hash, hash, 20) == 0;
}

UniqueHandle Catalogue::OpenCurrent(const std::wstring& name, uint64_t& size)
{
    Entry entry;
    {
        SharedLock reading(lock);
        auto found = entries.find(name);
        if (found == entries.end())
            return UniqueHandle();
        entry = found->second;
    }

    // Writers are kept out while the file is served; a replacement by rename is not, and leaves
    // this handle reading the file that was checked.
    std::wstring path = root + name;
    UniqueHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    BY_HANDLE_FILE_INFORMATION information;
    if (!file || !GetFileInformationByHandle(file.Get(), &information))
        return UniqueHandle();
    uint64_t diskSize = Join(information.nFileSizeHigh, information.nFileSizeLow);
    uint64_t writeTime = Join(information.ftLastWriteTime.dwHighDateTime, information.ftLastWriteTime.dwLowDateTime);
    bool current = entry.current;
    if (diskSize != entry.diskSize || writeTime != entry.writeTime) {
        // Changed since it was hashed: hashed again while this handle keeps writers out.
        FileDigest digest = HashFile(path, entry.hashLimit);
        bool still = diskSize == entry.size && digest.size == diskSize && digest.hash == BytesToHex(entry.hash, 20);
        ExclusiveLock storing(lock);
        auto again = entries.find(name);
        if (again != entries.end()) {
            Entry& stored = again->second;
            stored.digest = digest.hash;
            stored.diskSize = diskSize;
            stored.writeTime = writeTime;
            if (stored.current != still) {
                stored.current = still;
                shared = still ? shared + 1 : shared - 1;
            }
        }
        current = still;
    }
    if (!current)
        return UniqueHandle();
    size = diskSize;
    return file;
}
