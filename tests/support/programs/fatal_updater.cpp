// The updater's own entry routine with one test hook: the logger's clock raises FatalError
// (code 0x46415441) when the third entry is stamped, so a test can watch the real start-up
// end in the crash reporter.
#include "app/entry.h"
#include "runtime/fatal.h"
#include "runtime/logger.h"

#include <windows.h>

namespace {

int stamped = 0;

void FailingClock(SYSTEMTIME* time)
{
    if (++stamped == 3)
        FatalError(0x46415441);
    GetLocalTime(time);
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    wLogger::localTime = FailingClock;
    return UpdaterMain(argc, argv);
}
