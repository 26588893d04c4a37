// HashFile: the whole file in one read through the completion port, then SHA-1.
#include "share/digest.h"
#include "runtime/file.h"
#include "runtime/text.h"
#include "share/sha1.h"

#include <windows.h>
#include <cstdlib>

const wchar_t kNoDigest[] = L"________________________________________";

FileDigest HashFile(const std::wstring& path)
{
    FileDigest digest;
    WIN32_FILE_ATTRIBUTE_DATA attributes;
    if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &attributes))
        return digest;
    if (attributes.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
        return digest;
    digest.size = (uint64_t(attributes.nFileSizeHigh) << 32) | attributes.nFileSizeLow;
    if (digest.size > kMaxHashedSize)
        return digest;

    wFile file;
    if (file.Open(path, true, false, true, OPEN_EXISTING) != 0)
        return digest;
    LARGE_INTEGER size;
    if (!GetFileSizeEx(file.Handle(), &size) || size.QuadPart < 0 || uint64_t(size.QuadPart) > kMaxHashedSize)
        return digest;
    uint32_t length = static_cast<uint32_t>(size.QuadPart);
    // One extra byte keeps the allocation valid for an empty file.
    auto* buffer = static_cast<unsigned char*>(malloc(size_t(length) + 1));
    if (!buffer)
        return digest;
    IoResult read{0, 0};
    if (length > 0)
        read = file.Read(0, buffer, length);
    file.Close();
    if (read.error != 0) {
        free(buffer);
        return digest;
    }
    uint8_t sha1[kSha1DigestSize];
    Sha1Buffer(buffer, read.bytes, sha1);
    free(buffer);
    digest.hash = BytesToHex(sha1, sizeof(sha1));
    return digest;
}
