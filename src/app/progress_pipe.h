// ProgressPipe: the client end of a launcher's named pipe, written without ever waiting on the
// launcher. One write at a time is in flight; lines that come meanwhile wait in a small queue and
// go out together once it is done; a line that finds the queue full is dropped whole and counted.
// Every write holds whole lines only and is never cut short, so the launcher reads whole lines.
// A launcher that disconnects ends the writing, with one log line.
#pragma once
#include "runtime/handles.h"

#include <cstdint>
#include <memory>
#include <string>

class ProgressPipe {
public:
    // Bytes of lines that may wait behind the write in flight.
    static constexpr size_t kQueueLimit = 4096;

    ProgressPipe();
    ~ProgressPipe();
    ProgressPipe(const ProgressPipe&) = delete;
    ProgressPipe& operator=(const ProgressPipe&) = delete;

    // Connects to the pipe at `path` ("\\.\pipe\NAME"): 0, or the Windows error code.
    uint32_t Open(const std::wstring& path);
    bool IsOpen() const { return static_cast<bool>(pipe); }
    // Writes the line and its "\n", queues it, or drops it when the queue is full.
    void Send(const std::string& line);
    // Sends the last line, waits at most `waitMs` for everything to be written, and closes. What
    // is still unwritten then is dropped.
    void Finish(const std::string& line, uint32_t waitMs);

    uint32_t Dropped() const { return dropped; }
    uint32_t Lines() const { return lines; }

private:
    struct Write;
    // Takes note of a write that has completed; false while one is still in flight.
    bool Settle();
    // Starts writing the queue when no write is in flight.
    void Flush();
    // The launcher has gone: one log line, and no more writing.
    void Lost(uint32_t error);
    // Closes the pipe; a write still in flight is cancelled and its lines count as dropped.
    void Close();

    std::wstring path;
    UniqueHandle pipe;
    std::unique_ptr<Write> write;
    std::string queue;  // whole lines, each ended by "\n"
    uint32_t dropped = 0;
    uint32_t lines = 0;  // lines offered, the dropped included
};
