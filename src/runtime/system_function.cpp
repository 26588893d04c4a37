// SystemFunction: LoadLibraryExW restricted to the system folder, then GetProcAddress.
#include "runtime/system_function.h"
#include "runtime/fatal.h"

#include <windows.h>
#include <shlobj.h>

void* SystemFunction(const wchar_t* library, const char* name)
{
    HMODULE module = LoadLibraryExW(library, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    FARPROC function = module ? GetProcAddress(module, name) : nullptr;
    if (!function)
        FatalError(0x5F4C4F41);
    return reinterpret_cast<void*>(function);
}

uint32_t CreateDirectoryPath(const std::wstring& path)
{
    static const auto create = SystemFunctionOf<decltype(&SHCreateDirectoryExW)>(L"shell32.dll", "SHCreateDirectoryExW");
    return static_cast<uint32_t>(create(nullptr, path.c_str(), nullptr));
}
