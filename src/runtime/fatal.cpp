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

constexpr uint32_t kEveryCode[] = {
    kFatalOutOfMemory,       kFatalPoolClass,          kFatalUnknownThrow,      kFatalIocpPort,
    kFatalIocpWorker,        kFatalIocpPost,           kFatalIoRequestReleased, kFatalSystemFunction,
    kFatalCrashPath,         kFatalLogBuffer,          kFatalLogRing,           kFatalLogger,
    kFatalSocketCount,       kFatalSocketOutstanding,  kFatalSocketReopened,    kFatalUpdaterWinsock,
    kFatalShareWinsock,      kFatalLoggerRunning,      kFatalLoggerThread,      kFatalBroadcasterRunning,
    kFatalBroadcasterThread, kFatalRefresherRunning,   kFatalRefresherThread,   kFatalQueryLogRunning,
    kFatalQueryLogThread,    kFatalServerRunning,      kFatalServerThread,
};

constexpr bool AllDiffer()
{
    for (size_t i = 0; i < sizeof(kEveryCode) / sizeof(kEveryCode[0]); ++i) {
        for (size_t j = 0; j < i; ++j) {
            if (kEveryCode[i] == kEveryCode[j])
                return false;
        }
    }
    return true;
}
static_assert(AllDiffer(), "a fatal error code is used for two things");

// An exception that escapes a thread or a noexcept function lands here; hand it to the filter.
[[noreturn]] void OnTerminate()
{
    uint32_t code = kFatalUnknownThrow;
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
