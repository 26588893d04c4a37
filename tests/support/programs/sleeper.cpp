// A process that only waits, for the kill tests. Argument: milliseconds (default 60000), so
// that a copy left behind by a failed test ends by itself.
#include <windows.h>
#include <cwchar>

int wmain(int argc, wchar_t** argv)
{
    Sleep(argc > 1 ? wcstoul(argv[1], nullptr, 10) : 60000);
    return 0;
}
