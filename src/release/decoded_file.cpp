// StagingOutput: whole writes at positions on the calling thread, reads through a view.
#include "release/decoded_file.h"
#include "http/body_sink.h"

#include <windows.h>

uint32_t StagingOutput::Create(const std::wstring& path)
{
    view.Close();
    size = 0;
    digest.Restart();
    return file.Open(path, true, true, false, CREATE_ALWAYS, FileIo::Direct);
}

bool StagingOutput::Write(const void* data, size_t length)
{
    if (file.WriteAll(size, data, length) != 0)
        return false;
    digest.Take(data, length);
    size += length;
    return true;
}

bool StagingOutput::ReadAt(uint64_t position, void* buffer, size_t length)
{
    if (position > size || length > size - position)
        return false;
    return view.Read(file, size, position, buffer, length) || file.ReadAll(position, buffer, length) == 0;
}
