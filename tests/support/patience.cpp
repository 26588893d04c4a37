// The unit tests' patience, read once from the environment.
#include "support/patience.h"

#include <windows.h>

#include <cwchar>

uint32_t PatienceMs()
{
    static const uint32_t patience = [] {
        wchar_t text[32];
        DWORD length = GetEnvironmentVariableW(L"VEY_TEST_PATIENCE", text, 32);
        unsigned long seconds = length > 0 && length < 32 ? wcstoul(text, nullptr, 10) : 0;
        return static_cast<uint32_t>((seconds ? seconds : 120) * 1000);
    }();
    return patience;
}

bool WaitUntil(const std::function<bool()>& done)
{
    for (DWORD start = GetTickCount(); !done(); Sleep(10))
        if (GetTickCount() - start > PatienceMs())
            return done();
    return true;
}
