// SystemFunction: LoadLibraryExW restricted to the system folder, then GetProcAddress.
#include "runtime/system_function.h"
#include "runtime/fatal.h"

#include <windows.h>

void* SystemFunction(const wchar_t* library, const char* name)
{
    HMODULE module = LoadLibraryExW(library, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    FARPROC function = module ? GetProcAddress(module, name) : nullptr;
    if (!function)
        FatalError(kFatalSystemFunction);
    return reinterpret_cast<void*>(function);
}
