// StagingOutput: whole writes at positions on the calling thread, reads through a view.
#include "release/decoded_file.h"
#include "http/body_sink.h"

#include <windows.h>

namespace {

// Longest single read or write; a longer one goes in pieces.
constexpr size_t kMaxPiece = size_t(1) << 30;

// True when all `length` bytes at `position` were read.
bool ReadWhole(wFile& file, uint64_t position, void* buffer, size_t length)
{
    auto* bytes = static_cast<char*>(buffer);
    while (length > 0) {
        uint32_t piece = static_cast<uint32_t>(length < kMaxPiece ? length : kMaxPiece);
        IoResult read = file.Read(position, bytes, piece);
        if (read.error != 0 || read.bytes != piece)
            return false;
        position += piece;
        bytes += piece;
        length -= piece;
    }
    return true;
}

}  // namespace

uint32_t StagingOutput::Create(const std::wstring& path)
{
    view.Close();
    size = 0;
    digest.Restart();
    return file.Open(path, true, true, false, CREATE_ALWAYS, FileIo::Direct);
}

bool StagingOutput::Write(const void* data, size_t length)
{
    const auto* bytes = static_cast<const char*>(data);
    while (length > 0) {
        uint32_t piece = static_cast<uint32_t>(length < kMaxPiece ? length : kMaxPiece);
        IoResult written = file.Write(size, bytes, piece);
        if (written.error != 0 || written.bytes != piece)
            return false;
        digest.Take(bytes, piece);
        size += piece;
        bytes += piece;
        length -= piece;
    }
    return true;
}

bool StagingOutput::ReadAt(uint64_t position, void* buffer, size_t length)
{
    if (position > size || length > size - position)
        return false;
    return view.Read(file, size, position, buffer, length) || ReadWhole(file, position, buffer, length);
}
