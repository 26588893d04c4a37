// Window owner for the close tests. Arguments: RECORD-FILE [owned].
// By default it shows a main window (visible, top-level, no owner) beside two decoys that must
// not be taken for it: a hidden top-level window and a visible window owned by the main one.
// With "owned" it has only a hidden top-level window and a visible window owned by that.
// Once shown it appends to RECORD-FILE "ready <handle>" (the main window, or with "owned" the
// owned one), then "WM_CLOSE" and "0x6207" as they arrive. WM_CLOSE alone does not destroy the
// window, so the 0x6207 posted after it still arrives; the program ends after 0x6207, or 2 s
// after WM_CLOSE.
#include <windows.h>
#include <cstdint>
#include <cwchar>
#include <string>

namespace {

const wchar_t* recordPath;
HWND mainWindow;

void Record(const std::string& line)
{
    HANDLE file = CreateFileW(recordPath, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    std::string text = line + "\r\n";
    DWORD written;
    WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    CloseHandle(file);
}

LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message) {
    case WM_CLOSE:
        Record("WM_CLOSE");
        SetTimer(window, 1, 2000, nullptr);
        return 0;
    case 0x6207:
        Record("0x6207");
        DestroyWindow(window);
        return 0;
    case WM_TIMER:
        DestroyWindow(window);
        return 0;
    case WM_DESTROY:
        if (window == mainWindow)
            PostQuitMessage(0);
        return 0;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

HWND Make(const wchar_t* title, DWORD style, HWND owner)
{
    return CreateWindowExW(0, L"VeyWindowApp", title, style, 10, 10, 200, 100, owner, nullptr,
                           GetModuleHandleW(nullptr), nullptr);
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 2)
        return 2;
    recordPath = argv[1];
    bool ownedOnly = argc > 2 && !wcscmp(argv[2], L"owned");

    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = Procedure;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = L"VeyWindowApp";
    RegisterClassW(&windowClass);

    HWND shown;
    if (ownedOnly) {
        HWND owner = Make(L"hidden owner", WS_OVERLAPPEDWINDOW, nullptr);
        shown = Make(L"owned", WS_OVERLAPPEDWINDOW | WS_VISIBLE, owner);
        mainWindow = shown;
    } else {
        mainWindow = Make(L"main", WS_OVERLAPPEDWINDOW | WS_VISIBLE, nullptr);
        Make(L"hidden", WS_OVERLAPPEDWINDOW, nullptr);
        Make(L"owned", WS_OVERLAPPEDWINDOW | WS_VISIBLE, mainWindow);
        shown = mainWindow;
    }
    if (!shown)
        return 1;
    Record("ready " + std::to_string(reinterpret_cast<uintptr_t>(shown)));

    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    return static_cast<int>(message.wParam);
}
