// GrowingView, FileSink and MappedHistory.
#include "zstd/file_io.h"

#include <windows.h>

#include <cstring>

bool GrowingView::Read(const wFile& file, uint64_t written, uint64_t position, void* buffer, size_t length)
{
    if (position > written || length > written - position)
        return false;
    if (length == 0)
        return true;
    if (position + length > mapped) {
        Close();
        mapping.Reset(CreateFileMappingW(file.Handle(), nullptr, PAGE_READONLY, static_cast<DWORD>(written >> 32),
                                         static_cast<DWORD>(written), nullptr));
        if (!mapping)
            return false;
        view = static_cast<const uint8_t*>(MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0));
        if (!view) {
            mapping.Reset();
            return false;
        }
        mapped = written;
    }
    std::memcpy(buffer, view + position, length);
    return true;
}

void GrowingView::Close()
{
    if (view)
        UnmapViewOfFile(view);
    view = nullptr;
    mapping.Reset();
    mapped = 0;
}

bool FileSink::Write(const void* data, size_t length)
{
    lastError = file.WriteAll(start + written, data, length);
    if (lastError)
        return false;
    written += length;
    return true;
}

bool FileSink::ReadAt(uint64_t position, void* buffer, size_t length)
{
    if (position > written || length > written - position)
        return false;
    if (view.Read(file, start + written, start + position, buffer, length))
        return true;
    lastError = file.ReadAll(start + position, buffer, length);
    return lastError == 0;
}

MappedHistory::~MappedHistory()
{
    if (view)
        UnmapViewOfFile(view);
}

uint32_t MappedHistory::Open(const std::wstring& path)
{
    UniqueHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
        return GetLastError();
    LARGE_INTEGER fileSize;
    if (!GetFileSizeEx(file.Get(), &fileSize))
        return GetLastError();
    if (fileSize.QuadPart == 0)
        return 0;
    mapping.Reset(CreateFileMappingW(file.Get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
    if (!mapping)
        return GetLastError();
    view = static_cast<const uint8_t*>(MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0));
    if (!view)
        return GetLastError();
    size = static_cast<uint64_t>(fileSize.QuadPart);
    return 0;
}

bool MappedHistory::ReadAt(uint64_t position, void* buffer, size_t length)
{
    if (position > size || length > size - position)
        return false;
    std::memcpy(buffer, view + position, length);
    return true;
}
