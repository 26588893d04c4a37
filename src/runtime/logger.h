// The process-wide log: callers format and stamp an entry, echo it to the console and append
// it to a ring buffer; the "_wLogger" thread moves the text to a daily UTF-8 file under
// "_logs" beside the program. Callers never wait for the disk.
#pragma once
#include "runtime/handles.h"
#include "runtime/printf_check.h"
#include "runtime/thread.h"

#include <atomic>
#include <cstdint>
#include <string>

struct _SYSTEMTIME;

// Appends one entry; the format is a narrow printf-style format whose text is UTF-8.
void LogA(VEY_FORMAT_STRING const char* format, ...) VEY_PRINTF_A(1, 2);
// Appends one entry from a wide printf-style format ("%s" takes a wide string).
void LogW(VEY_FORMAT_STRING const wchar_t* format, ...);
// Appends the entry that LogW(L"%s", text.c_str()) appends (the text up to its first NUL),
// converted to UTF-8 straight into the entry, without formatting a wide copy of a large text.
void LogWideText(const std::wstring& text);

// "hh:mm:ss.mmm ssss.mmm.uuu ": the local time, then the time since the previous entry,
// clamped to 9999.999.999.
std::string FormatLogPrefix(const _SYSTEMTIME& time, uint64_t elapsedMicros);

class wLogger final : public wThread {
public:
    static constexpr uint32_t kBufferSize = 0x40000;

    // Builds the single instance and starts its thread.
    static void Create();
    // Writes out everything appended so far, stops the thread and frees the instance.
    static void Stop();
    static wLogger* Instance();

    // Room for the prefix in front of a message: LogA and LogW build each entry as this many bytes
    // followed by the UTF-8 message, so the prefix is written in place and the line is echoed and
    // buffered without another copy of the message.
    static constexpr size_t kPrefixRoom = 26;

    // Stamps the entry (kPrefixRoom bytes, then the message), echoes it and buffers it.
    void Append(std::string& entry);
    const std::wstring& LogDirectory() const { return logDirectory; }
    // The file that an entry written at `date` goes to.
    std::wstring FileNameFor(const _SYSTEMTIME& date) const;

    // The clock the logger reads local time from; tests replace it to cross midnight.
    static void (*localTime)(_SYSTEMTIME* time);

private:
    wLogger();
    ~wLogger();
    bool Begin() override;
    bool Loop() override;
    void End() override;
    // Adds the entry and its line end to the ring, or marks an overflow when they do not fit.
    void PutInRing(const std::string& entry);
    // Moves up to kBufferSize bytes from the ring to writeBuffer: their count, 0 when it is empty.
    uint32_t TakeFromRing();
    void CloseFile();

    UniqueHandle file;
    // Year, month and day of the open file; 0 when none is open.
    uint16_t fileYear = 0, fileMonth = 0, fileDay = 0;
    unsigned char* writeBuffer = nullptr;
    std::atomic<bool> overflow{false};
    std::atomic<bool> flushRequested{false};
    // Set by the entry that signals the wake event, cleared by the pass that the signal starts
    // just before it reads the ring: the entries between them need no signal of their own.
    std::atomic<bool> wakePending{false};
    UniqueHandle flushDone;
    std::wstring programName;
    std::wstring logDirectory;
    unsigned char* ring = nullptr;
    uint32_t readOffset = 0;
    uint32_t used = 0;
    uint32_t capacity = kBufferSize;
    CriticalSection lock{0xFFFFFFFF};  // guards the ring and `overflow`
    uint8_t echo = 1;
    int64_t frequency = 0;
    int64_t startCounter = 0;
    int64_t lastCounter = 0;
};
