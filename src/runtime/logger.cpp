// wLogger: ring buffer, writer thread and daily log file.
#include "runtime/logger.h"
#include "runtime/fatal.h"
#include "runtime/folder.h"
#include "runtime/status_line.h"
#include "runtime/text.h"

#include <windows.h>
#include <atomic>
#include <cstring>
#include <cwchar>
#include <new>

namespace {

wLogger* instance = nullptr;

const char kOverflowMarker[] = "[Buffer Overflow]\r\n";
const unsigned char kByteOrderMark[] = {0xEF, 0xBB, 0xBF};

void WriteAll(HANDLE file, const void* data, DWORD length)
{
    DWORD written = 0;
    WriteFile(file, data, length, &written, nullptr);
}

// The entry (prefix and message) as one console line ending in "\n": one write, so that the lines
// of different threads do not interleave, made without copying the message when the output is not
// a console.
void Echo(std::string& entry)
{
    HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
    if (!out || out == INVALID_HANDLE_VALUE)
        return;
    if (IsConsoleHandle(out)) {
        int length = entry.empty() ? 0
                                   : MultiByteToWideChar(CP_UTF8, 0, entry.data(), static_cast<int>(entry.size()),
                                                         nullptr, 0);
        std::wstring line(static_cast<size_t>(length > 0 ? length : 0) + 1, L'\n');
        if (length > 0)
            MultiByteToWideChar(CP_UTF8, 0, entry.data(), static_cast<int>(entry.size()), &line[0], length);
        WriteConsoleEntry(out, line);
    } else {
        entry.push_back('\n');
        WriteAll(out, entry.data(), static_cast<DWORD>(entry.size()));
        entry.pop_back();
    }
}

// A new entry: kPrefixRoom bytes for the prefix, then room for a message of `length` bytes and for
// the line end that the echo adds.
std::string NewEntry(size_t length)
{
    std::string entry;
    entry.reserve(wLogger::kPrefixRoom + length + 1);
    entry.resize(wLogger::kPrefixRoom + length);
    return entry;
}

}  // namespace

void (*wLogger::localTime)(_SYSTEMTIME* time) = GetLocalTime;

wLogger::wLogger() : flushDone(CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    LARGE_INTEGER value;
    QueryPerformanceFrequency(&value);
    frequency = value.QuadPart;
    QueryPerformanceCounter(&value);
    startCounter = lastCounter = value.QuadPart;
    writeBuffer = static_cast<unsigned char*>(malloc(kBufferSize));
    if (!writeBuffer)
        FatalError(kFatalLogBuffer);
    std::wstring module = GetModulePath();
    size_t slash = module.rfind(L'\\');
    programName = slash == std::wstring::npos ? module : module.substr(slash + 1);
    if (programName.empty())
        programName = FormatW(L"wLogger_%p", this);
    logDirectory = GetDirectoryPart(module) + L"\\_logs\\";
    ring = static_cast<unsigned char*>(malloc(kBufferSize));
    if (!ring)
        FatalError(kFatalLogRing);
}

wLogger::~wLogger()
{
    free(writeBuffer);
    free(ring);
}

void wLogger::Create()
{
    instance = new (std::nothrow) wLogger;
    if (!instance)
        FatalError(kFatalLogger);
    instance->wThread::Start("_wLogger", kFatalLoggerRunning, kFatalLoggerThread);
}

void wLogger::Stop()
{
    wLogger* logger = instance;
    if (!logger)
        return;
    logger->flushRequested = true;
    SetEvent(logger->wakeEvent.Get());
    WaitForSingleObject(logger->flushDone.Get(), INFINITE);
    ResetEvent(logger->flushDone.Get());
    logger->wThread::Stop();
    instance = nullptr;
    delete logger;
}

wLogger* wLogger::Instance()
{
    return instance;
}

std::wstring wLogger::FileNameFor(const _SYSTEMTIME& date) const
{
    return FormatW(L"%s%s %04d-%02d-%02d.log", logDirectory.c_str(), programName.c_str(), date.wYear, date.wMonth,
                   date.wDay);
}

std::string FormatLogPrefix(const _SYSTEMTIME& time, uint64_t elapsedMicros)
{
    if (elapsedMicros >= 10000000000ull)
        elapsedMicros = 9999999999ull;
    char prefix[64];
    int length = snprintf(prefix, sizeof(prefix), "%02d:%02d:%02d.%03d %04llu.%03llu.%03llu ", time.wHour, time.wMinute,
                          time.wSecond, time.wMilliseconds, elapsedMicros / 1000000, elapsedMicros / 1000 % 1000,
                          elapsedMicros % 1000);
    return std::string(prefix, static_cast<size_t>(length));
}

void wLogger::Append(std::string& entry)
{
    SYSTEMTIME now;
    localTime(&now);
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    uint64_t delta = static_cast<uint64_t>(counter.QuadPart - lastCounter) * 1000000 / static_cast<uint64_t>(frequency);
    lastCounter = counter.QuadPart;
    entry.replace(0, kPrefixRoom, FormatLogPrefix(now, delta));
    if (echo)
        Echo(entry);

    PutInRing(entry);
    // Signalling an event that is already signalled changes nothing, yet costs a call into the
    // system (a trip to Wine's server, under Wine).
    if (!wakePending.exchange(true))
        SetEvent(wakeEvent.Get());
}

bool wLogger::Begin()
{
    // The folder is there on every run but the first; creating it would load shell32.
    DWORD attributes = GetFileAttributesW(logDirectory.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY))
        CreateDirectoryPath(logDirectory);
    return true;
}

bool wLogger::Loop()
{
    WaitForSingleObject(wakeEvent.Get(), INFINITE);
    // A flush asked for during this pass is served by the next one, which its wake-up starts.
    bool flushing = flushRequested;

    SYSTEMTIME now;
    localTime(&now);
    if (file && (fileYear != now.wYear || fileMonth != now.wMonth || fileDay != now.wDay))
        CloseFile();
    if (!file) {
        file.Reset(CreateFileW(FileNameFor(now).c_str(), FILE_APPEND_DATA,
                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                               FILE_ATTRIBUTE_NORMAL, nullptr));
        if (file) {
            LARGE_INTEGER size;
            if (GetFileSizeEx(file.Get(), &size) && size.QuadPart == 0)
                WriteAll(file.Get(), kByteOrderMark, sizeof(kByteOrderMark));
            fileYear = now.wYear;
            fileMonth = now.wMonth;
            fileDay = now.wDay;
        }
    }
    // Cleared after the file is opened, or failed to open, and before the ring is read: entries
    // appended since the wake-up are in the ring when this pass reads it, without a signal (and
    // a pass) of their own; an entry that finds the flag clear signals again.
    wakePending = false;
    if (file) {
        // Text stays in the ring while no file can be opened.
        while (uint32_t n = TakeFromRing())
            WriteAll(file.Get(), writeBuffer, n);
        bool dropped;
        {
            CriticalSectionLock reading(lock);
            dropped = overflow;
            overflow = false;
        }
        if (dropped)
            WriteAll(file.Get(), kOverflowMarker, sizeof(kOverflowMarker) - 1);
    }
    // The file is never held open between passes, so other programs may read, move or delete it.
    CloseFile();
    if (flushing) {
        flushRequested = false;
        SetEvent(flushDone.Get());
    }
    return true;
}

void wLogger::End()
{
    CloseFile();
}

void wLogger::PutInRing(const std::string& entry)
{
    auto put = [this](const void* data, size_t count) {
        auto* bytes = static_cast<const unsigned char*>(data);
        uint32_t tail = (readOffset + used) % capacity;
        size_t first = count < capacity - tail ? count : capacity - tail;
        memcpy(ring + tail, bytes, first);
        memcpy(ring, bytes + first, count - first);
        used += static_cast<uint32_t>(count);
    };
    uint64_t size = entry.size() + 2;
    CriticalSectionLock writing(lock);
    if (size <= capacity - used) {
        put(entry.data(), entry.size());
        put("\r\n", 2);
    } else {
        overflow = true;
    }
}

uint32_t wLogger::TakeFromRing()
{
    CriticalSectionLock reading(lock);
    uint32_t n = used < kBufferSize ? used : kBufferSize;
    if (n == 0)
        return 0;
    uint32_t first = n < capacity - readOffset ? n : capacity - readOffset;
    memcpy(writeBuffer, ring + readOffset, first);
    memcpy(writeBuffer + first, ring, n - first);
    used -= n;
    readOffset = used == 0 ? 0 : (readOffset + n) % capacity;
    return n;
}

void wLogger::CloseFile()
{
    file.Reset();
    fileYear = fileMonth = fileDay = 0;
}

// The message is formatted straight into the entry, behind the room for the prefix.
void LogA(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    va_list counting;
    va_copy(counting, args);
    int length = _vscprintf(format, counting);
    va_end(counting);
    std::string entry = NewEntry(length > 0 ? static_cast<size_t>(length) : 0);
    if (length > 0)
        _vsnprintf(&entry[wLogger::kPrefixRoom], static_cast<size_t>(length), format, args);
    va_end(args);
    if (wLogger* logger = wLogger::Instance())
        logger->Append(entry);
}

namespace {

// The entry of a wide message of `count` code units, converted to UTF-8 behind the room for the prefix.
std::string WideEntry(const wchar_t* message, size_t count)
{
    int length = count == 0 ? 0
                            : WideCharToMultiByte(CP_UTF8, 0, message, static_cast<int>(count), nullptr, 0, nullptr,
                                                  nullptr);
    std::string entry = NewEntry(length > 0 ? static_cast<size_t>(length) : 0);
    if (length > 0)
        WideCharToMultiByte(CP_UTF8, 0, message, static_cast<int>(count), &entry[wLogger::kPrefixRoom], length,
                            nullptr, nullptr);
    return entry;
}

}  // namespace

// The wide message is converted into the entry and dropped before the entry is appended, so a
// large message is never held in both forms while it is echoed and buffered.
void LogW(const wchar_t* format, ...)
{
    std::string entry;
    {
        va_list args;
        va_start(args, format);
        std::wstring message = FormatWV(format, args);
        va_end(args);
        entry = WideEntry(message.data(), message.size());
    }
    if (wLogger* logger = wLogger::Instance())
        logger->Append(entry);
}

void LogWideText(const std::wstring& text)
{
    std::string entry = WideEntry(text.c_str(), wcslen(text.c_str()));
    if (wLogger* logger = wLogger::Instance())
        logger->Append(entry);
}
