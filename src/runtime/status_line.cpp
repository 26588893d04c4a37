// The status line and the console echo share one lock, so that a log line echoed on another
// thread never lands in the middle of the status line.
#include "runtime/status_line.h"
#include "runtime/handles.h"

#include <windows.h>
#include <atomic>

namespace {

SrwLock consoleLock;
size_t shownLength = 0;  // characters of the status line on screen; 0 when none is shown

void Write(HANDLE out, const std::wstring& text)
{
    DWORD written;
    WriteConsoleW(out, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

// The text that takes the shown line off the screen and leaves the cursor at its start.
std::wstring Clearing()
{
    return L"\r" + std::wstring(shownLength, L' ') + L"\r";
}

HANDLE ConsoleOutput()
{
    HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
    return out && out != INVALID_HANDLE_VALUE && IsConsoleHandle(out) ? out : nullptr;
}

}  // namespace

// The answer is kept for the handle (in the low bit beside its value, which is a multiple of 4),
// since each question is a trip to the system (to Wine's server, under Wine) and the program's
// standard output stays the same handle for its whole run.
bool IsConsoleHandle(void* handle)
{
    static std::atomic<uintptr_t> known{0};
    uintptr_t value = reinterpret_cast<uintptr_t>(handle);
    uintptr_t kept = known.load(std::memory_order_relaxed);
    if ((kept & ~uintptr_t(1)) == value)
        return (kept & 1) != 0;
    DWORD mode;
    bool console = GetConsoleMode(handle, &mode) != FALSE;
    known.store(value | (console ? 1 : 0), std::memory_order_relaxed);
    return console;
}

void ShowStatusLine(const std::wstring& text)
{
    HANDLE out = ConsoleOutput();
    if (!out)
        return;
    // A line as wide as the console would wrap, and a carriage return goes back to the start of
    // its last row only: the text stays one character short of the width.
    std::wstring line = text;
    CONSOLE_SCREEN_BUFFER_INFO info;
    if (GetConsoleScreenBufferInfo(out, &info) && info.dwSize.X > 1 && line.size() >= size_t(info.dwSize.X))
        line.resize(size_t(info.dwSize.X) - 1);
    ExclusiveLock writing(consoleLock);
    std::wstring screen = L"\r" + line;
    if (shownLength > line.size())
        screen += std::wstring(shownLength - line.size(), L' ') + L"\r" + line;
    Write(out, screen);
    shownLength = line.size();
}

void ClearStatusLine()
{
    HANDLE out = ConsoleOutput();
    if (!out)
        return;
    ExclusiveLock writing(consoleLock);
    if (shownLength == 0)
        return;
    Write(out, Clearing());
    shownLength = 0;
}

void WriteConsoleEntry(void* out, const std::wstring& line)
{
    ExclusiveLock writing(consoleLock);
    if (shownLength > 0) {
        Write(out, Clearing() + line);
        shownLength = 0;
    } else {
        Write(out, line);
    }
}
