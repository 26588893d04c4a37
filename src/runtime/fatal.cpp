// FatalError raises a plain SEH exception rather than a C++ throw: with mingw an uncaught
// throw ends in std::terminate and never reaches the unhandled-exception filter, while a
// raised exception reaches it from any thread, with MSVC and mingw alike.
#include "runtime/fatal.h"

#include <windows.h>
#include <exception>

void FatalError(uint32_t code)
{
    ULONG_PTR value = code;
    for (;;)
        RaiseException(kFatalErrorException, EXCEPTION_NONCONTINUABLE, 1, &value);
}

namespace {

// An exception that escapes a thread or a noexcept function lands here; hand it to the filter.
[[noreturn]] void OnTerminate()
{
    uint32_t code = 0xE4E7E4E7;
    if (std::exception_ptr pending = std::current_exception()) {
        try {
            std::rethrow_exception(pending);
        } catch (uint32_t thrown) {
            code = thrown;
        } catch (...) {
        }
    }
    FatalError(code);
}

}  // namespace

void InstallTerminateHandler()
{
    std::set_terminate(OnTerminate);
}
