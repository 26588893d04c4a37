// ProgressPipe over an overlapped handle. Measured under Wine 8 with a launcher that never reads:
// an overlapped write that does not fit the pipe's buffer stays pending with none of its bytes in
// the pipe, and cancelling it leaves the pipe as it was (a buffer of 4096 bytes took forty writes
// of 100 bytes, the 41st pended, and the launcher could read exactly 4000 bytes after the cancel);
// with a buffer of 0 every write pends until the launcher reads. A handle set to PIPE_NOWAIT
// writes nothing of a line that does not fit under Wine, but Windows writes part of it in byte
// mode, which would cut a line in two: hence overlapped writes that are never cut short, one at
// a time, with the lines that come meanwhile held in a bounded queue.
#include "app/progress_pipe.h"
#include "runtime/logger.h"

#include <windows.h>
#include <algorithm>

struct ProgressPipe::Write {
    OVERLAPPED overlapped = {};
    UniqueHandle done{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    std::string bytes;  // the lines in flight; empty when no write is
};

ProgressPipe::ProgressPipe() : write(new Write) {}

ProgressPipe::~ProgressPipe()
{
    Close();
}

uint32_t ProgressPipe::Open(const std::wstring& pipePath)
{
    path = pipePath;
    pipe.Reset(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    return pipe ? 0 : GetLastError();
}

bool ProgressPipe::Settle()
{
    if (write->bytes.empty())
        return true;
    DWORD transferred = 0;
    if (!GetOverlappedResult(pipe.Get(), &write->overlapped, &transferred, FALSE)) {
        uint32_t error = GetLastError();
        if (error == ERROR_IO_INCOMPLETE)
            return false;
        write->bytes.clear();
        Lost(error);
        return true;
    }
    write->bytes.clear();
    return true;
}

void ProgressPipe::Flush()
{
    if (!pipe || !write->bytes.empty() || queue.empty())
        return;
    write->bytes.swap(queue);
    write->overlapped = OVERLAPPED();
    write->overlapped.hEvent = write->done.Get();
    if (WriteFile(pipe.Get(), write->bytes.data(), static_cast<DWORD>(write->bytes.size()), nullptr,
                  &write->overlapped)) {
        write->bytes.clear();
        return;
    }
    uint32_t error = GetLastError();
    if (error != ERROR_IO_PENDING) {
        write->bytes.clear();
        Lost(error);
    }
}

void ProgressPipe::Send(const std::string& line)
{
    if (!pipe)
        return;
    ++lines;
    Settle();
    if (!pipe)
        return;
    if (!queue.empty() && queue.size() + line.size() + 1 > kQueueLimit) {
        ++dropped;
        return;
    }
    queue += line;
    queue.push_back('\n');
    Flush();
}

void ProgressPipe::Finish(const std::string& line, uint32_t waitMs)
{
    if (!pipe)
        return;
    ++lines;
    ULONGLONG deadline = GetTickCount64() + waitMs;
    bool queued = false;
    while (pipe) {
        Settle();
        if (!pipe)
            break;
        if (!queued && (queue.empty() || queue.size() + line.size() + 1 <= kQueueLimit)) {
            queue += line;
            queue.push_back('\n');
            queued = true;
        }
        Flush();
        if (!pipe || (queued && queue.empty() && write->bytes.empty()))
            break;
        ULONGLONG now = GetTickCount64();
        if (now >= deadline)
            break;
        WaitForSingleObject(write->done.Get(), static_cast<DWORD>(deadline - now));
    }
    if (!queued && pipe)
        ++dropped;
    Close();
}

void ProgressPipe::Lost(uint32_t error)
{
    LogW(L"The progress pipe was closed by the launcher. (0x%08X) %s", error, path.c_str());
    queue.clear();
    pipe.Reset();
}

void ProgressPipe::Close()
{
    if (!pipe)
        return;
    if (!write->bytes.empty()) {
        CancelIoEx(pipe.Get(), &write->overlapped);
        DWORD transferred = 0;
        if (!GetOverlappedResult(pipe.Get(), &write->overlapped, &transferred, TRUE))
            dropped += static_cast<uint32_t>(std::count(write->bytes.begin(), write->bytes.end(), '\n'));
        write->bytes.clear();
    }
    dropped += static_cast<uint32_t>(std::count(queue.begin(), queue.end(), '\n'));
    queue.clear();
    pipe.Reset();
}
