// The catalogue: listed files checked against the disk with a digest cache keyed by size and
// last-write time, the attributes checked again for every record asked, and the file checked
// again right before it is served.
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

Catalogue::Catalogue(std::wstring root)
    : root(std::move(root)), staleEvent(CreateEventW(nullptr, FALSE, FALSE, nullptr))
{
}

Catalogue::DiskState Catalogue::ReadDiskState(const std::wstring& path)
{
    DiskState state;
    WIN32_FILE_ATTRIBUTE_DATA attributes;
    if (GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &attributes) &&
        !(attributes.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
        state.file = true;
        state.size = Join(attributes.nFileSizeHigh, attributes.nFileSizeLow);
        state.writeTime = Join(attributes.ftLastWriteTime.dwHighDateTime, attributes.ftLastWriteTime.dwLowDateTime);
    }
    return state;
}

bool Catalogue::IsCurrent(const Entry& entry)
{
    return entry.disk.file && entry.disk.size == entry.size && entry.digest == BytesToHex(entry.hash, 20);
}

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
            std::wstring path = root + file.name;
            // A listed file that is missing keeps its entry, so that it is hashed once it appears.
            entry.disk = ReadDiskState(path);
            auto known = entries.find(file.name);
            // A digest made under another limit (the manifest changed format) is not reused.
            if (known != entries.end() && known->second.disk == entry.disk &&
                known->second.hashLimit == entry.hashLimit) {
                entry.digest = known->second.digest;
            } else if (entry.disk.file) {
                changed.push_back(file.name);
                paths.push_back(std::move(path));
            }
            next.emplace(file.name, std::move(entry));
        }
    }

    // The size and time were read before hashing: a file that changes in between is hashed again
    // when it is next asked for or served, or at the next refresh.
    // The files of one manifest are all of its format, and so share one limit.
    uint64_t limit = files.empty() ? kMaxHashedSize : files.front().objects.HashLimit();
    std::vector<FileDigest> digests = HashFiles(paths, kHashThreads, limit);
    for (size_t i = 0; i < changed.size(); ++i)
        next[changed[i]].digest = std::move(digests[i].hash);
    size_t count = 0;
    for (auto& named : next) {
        Entry& entry = named.second;
        entry.current = IsCurrent(entry);
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

bool Catalogue::Matches(const std::wstring& name, const uint8_t hash[20], uint64_t size)
{
    DiskState hashed;
    bool current;
    {
        SharedLock reading(lock);
        auto found = entries.find(name);
        if (found == entries.end() || found->second.size != size || memcmp(found->second.hash, hash, 20) != 0)
            return false;
        hashed = found->second.disk;
        current = found->second.current;
    }
    // Read outside the lock: the attributes of a thousand records must not hold up a refresh.
    if (ReadDiskState(root + name) == hashed)
        return current;
    {
        CriticalSectionLock queueing(staleLock);
        stale.insert(name);
    }
    SetEvent(staleEvent.Get());
    return false;
}

void Catalogue::HashStale()
{
    std::vector<std::wstring> names;
    {
        CriticalSectionLock taking(staleLock);
        names.assign(stale.begin(), stale.end());
        stale.clear();
    }
    for (const std::wstring& name : names) {
        std::wstring path = root + name;
        DiskState before = ReadDiskState(path);
        uint64_t limit;
        {
            // Queued again by a query that came while it was being hashed: already done.
            SharedLock reading(lock);
            auto found = entries.find(name);
            if (found == entries.end() || found->second.disk == before)
                continue;
            limit = found->second.hashLimit;
        }
        FileDigest digest = before.file ? HashFile(path, limit) : FileDigest();
        // A file that changed while it was read is left as it was: its attributes still differ,
        // so the next query that asks for it queues it again.
        if (ReadDiskState(path) == before)
            Store(name, before, digest.size == before.size ? std::move(digest.hash) : std::wstring(kNoDigest));
    }
}

bool Catalogue::Store(const std::wstring& name, const DiskState& disk, std::wstring digest)
{
    ExclusiveLock storing(lock);
    auto found = entries.find(name);
    if (found == entries.end())
        return false;
    Entry& entry = found->second;
    entry.disk = disk;
    entry.digest = std::move(digest);
    bool current = IsCurrent(entry);
    if (entry.current != current) {
        entry.current = current;
        shared = current ? shared + 1 : shared - 1;
    }
    return current;
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
    DiskState disk;
    disk.file = true;
    disk.size = Join(information.nFileSizeHigh, information.nFileSizeLow);
    disk.writeTime = Join(information.ftLastWriteTime.dwHighDateTime, information.ftLastWriteTime.dwLowDateTime);
    bool current = entry.current;
    if (!(disk == entry.disk)) {
        // Changed since it was hashed: hashed again while this handle keeps writers out.
        FileDigest digest = HashFile(path, entry.hashLimit);
        current = Store(name, disk, digest.size == disk.size ? std::move(digest.hash) : std::wstring(kNoDigest));
    }
    if (!current)
        return UniqueHandle();
    size = disk.size;
    return file;
}
